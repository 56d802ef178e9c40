#!/bin/bash
# Searches all states of the model in rotation.pml for deadlocks and for lost, doubled or misplaced lines. Then leaves
# out one rule at a time, and sees that the search finds what comes of it. README.md tells what is modelled.
#
#     tests/model/check.sh --short|--long
#
# Needs spin, and gcc to compile what spin generates. Two searches at a time; fails if one that should be clean finds an
# error or does not come to its end, or if a rule that is left out is not missed.
set -euo pipefail

model=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/rotation.pml
case ${1:-} in
    --short) length=short optimization=-O0 megabytes=1300 seconds=300 ;;
    --long) length=long optimization=-O1 megabytes=6000 seconds=1800 ;;
    *)
        echo "usage: $0 --short|--long" >&2
        exit 2
        ;;
esac
for tool in spin gcc; do
    if ! command -v "$tool" >/dev/null; then
        echo "$0: $tool is missing; on Debian: apt-get install $tool" >&2
        exit 1
    fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Runs one search in a folder of its own and prints its line. `expected` is "clean", or how the error is to read.
search() {
    local expected=$1 name=$2 folder=$work/$3 optimization=$4
    shift 4
    local -i before=${EPOCHREALTIME//[!0-9]/} tenths
    local result=unfinished states verdict=FAILED
    mkdir "$folder"
    cd "$folder"
    cp "$model" .
    if ! spin -a "$@" rotation.pml >spin.txt 2>&1 || grep -q 'Error:' spin.txt ||
        ! gcc "$optimization" -w -DSAFETY -DCOLLAPSE -DVECTORSZ=2048 -DMEMLIM="$megabytes" -o pan pan.c >gcc.txt 2>&1
    then
        result="does not compile"
    elif timeout "$seconds" ./pan -m200000 >pan.txt 2>&1; then
        if grep -qE '^pan:1: ' pan.txt; then
            result=$(sed -n 's/^pan:1: \(.*\) (at depth [0-9]*)$/\1/p' pan.txt | tr -s ' ')
        elif grep -q 'errors: 0$' pan.txt && grep -q '^Full statespace search' pan.txt &&
            ! grep -qE 'max search depth|Search not completed|out of memory|MEMLIM' pan.txt; then
            result=clean
        fi
    fi
    states=$(sed -n 's/^ *\([0-9]*\) states, stored.*/\1/p' pan.txt 2>/dev/null || true)
    if [[ $result == "$expected" || ($expected != clean && $result == *"$expected"*) ]]; then
        verdict=ok
        touch passed
    fi
    tenths=$(((${EPOCHREALTIME//[!0-9]/} - before) / 100000))
    printf '%-6s %-54s %10s states %5s s  %s\n' "$verdict" "$name" "${states:--}" \
        "$((tenths / 10)).$((tenths % 10))" "$result"
    if [[ $verdict == FAILED ]]; then
        echo "       spin -a $* rotation.pml; expected: $expected"
    fi
    rm -f pan pan.?
}

# Starts a search when less than two are running.
declare -i started=0
start() {
    while (($(jobs -rp | wc -l) >= 2)); do
        wait -n || true
    done
    started+=1
    search "$1" "$2" "$started" "${@:3}" &
}

clean() { start clean "$1" "$optimization" "${@:2}"; }
# What is left out, how its error reads, and in which search.
broken() { start "$2" "without: $1" -O0 "${@:3}"; }

small=(-DL=1 -DLIMIT=1)
direct=("${small[@]}")
buffered=("${small[@]}" -DBUFFERED)
queued=("${small[@]}" -DQUEUED)

if [[ $length == short ]]; then
    clean "direct, two lines a thread" -DDUE
    clean "direct, two failures" "${direct[@]}" -DFAIL_MOVE -DFAIL_OPEN -DLOOK -DFAILURES=2
    clean "direct, exceptions, no descriptor" "${direct[@]}" -DTHROW -DFAIL_IN_PLACE -DLOOK
    clean "direct, explicit, one thread, a failure" -DT=1 -DEXPLICIT -DFAIL_MOVE -DFAIL_OPEN -DLOOK
    clean "direct, explicit" "${direct[@]}" -DEXPLICIT
    clean "direct, completions rotate" "${direct[@]}" -DCOMPLETION_ROTATES
    clean "direct, fork" "${direct[@]}" -DFORK
    clean "direct, removal, flush" "${direct[@]}" -DREMOVE -DLOOK -DFLUSH
    clean "buffered" "${buffered[@]}" -DDUE
    clean "buffered, removal, failing open" "${buffered[@]}" -DREMOVE -DFAIL_OPEN -DLOOK
    clean "buffered, exceptions, no descriptor" "${buffered[@]}" -DTHROW -DFAIL_IN_PLACE -DLOOK
    clean "buffered, explicit, one thread, two lines, failing move" -DBUFFERED -DLIMIT=1 -DT=1 -DEXPLICIT -DFAIL_MOVE
    clean "buffered, fork" "${buffered[@]}" -DFORK
    clean "queued, exceptions, no descriptor" "${queued[@]}" -DCAPACITY=1 -DTHROW -DFAIL_IN_PLACE -DDUE
    clean "queued, explicit, one thread" "${queued[@]}" -DT=1 -DEXPLICIT
    clean "queued, fork, one thread, two lines" -DQUEUED -DLIMIT=1 -DT=1 -DFORK
    clean "two queues, completions rotate, one thread" "${queued[@]}" -DTWO_QUEUES -DT=1 -DCOMPLETION_ROTATES
else
    clean "direct, three threads" "${direct[@]}" -DT=3 -DDUE
    clean "direct, explicit, failures, removal" "${direct[@]}" -DEXPLICIT -DFAIL_MOVE -DFAIL_OPEN -DLOOK -DREMOVE
    clean "direct, two lines a thread, failures" -DFAIL_MOVE -DFAIL_OPEN -DLOOK -DFAILURES=2
    clean "direct, explicit, completions report" "${direct[@]}" -DEXPLICIT -DCOMPLETION_REPORTS
    clean "direct, fork, completions rotate" "${direct[@]}" -DFORK -DCOMPLETION_ROTATES
    clean "direct, two lines a thread, removal, flush" -DREMOVE -DLOOK -DFLUSH
    clean "buffered, explicit" "${buffered[@]}" -DEXPLICIT
    clean "buffered, two lines a thread" -DBUFFERED -DDUE
    clean "buffered, removal, failures" "${buffered[@]}" -DREMOVE -DFAIL_OPEN -DFAIL_MOVE -DLOOK
    clean "buffered, fork, completions report" "${buffered[@]}" -DFORK -DCOMPLETION_REPORTS
    clean "queued, fork, completions report" "${queued[@]}" -DFORK -DCOMPLETION_REPORTS
    clean "queued, removal, failing open" "${queued[@]}" -DREMOVE -DFAIL_OPEN -DLOOK
    clean "queued, explicit, one thread, failing move" "${queued[@]}" -DT=1 -DEXPLICIT -DFAIL_MOVE
    clean "two queues" "${queued[@]}" -DTWO_QUEUES
    clean "two queues, explicit, one thread" "${queued[@]}" -DTWO_QUEUES -DT=1 -DEXPLICIT
fi

deadlock="invalid end state"
lost="assertion violated (y&32)"
two="assertion violated !(fresh"
role="assertion violated ((( !(isChanging"
broken "no report with handleMutex held" "$deadlock" "${direct[@]}" -DBREAK_REPORTS_WITH_MUTEX
broken "the role first, then the move" "$two" "${direct[@]}" -DEXPLICIT -DBREAK_LATE_ROLE
broken "no look while the file changes" "$two" "${direct[@]}" -DLOOK -DBREAK_LOOK
broken "reports start no rotation" "rotationsLeft" "${direct[@]}" -DBREAK_REPORTS_ROTATE
broken "what was skipped is asked again" "owesRotation" "${direct[@]}" -DDUE -DBREAK_SKIPPED_FOR_GOOD
broken "an exception gives the role back" "$role" "${direct[@]}" -DTHROW -DBREAK_ROLE_KEPT
broken "an exception ends the completion" "$role" "${direct[@]}" -DBREAK_COMPLETION_UNGUARDED
broken "generation of owners" "assertion violated (owner" "${direct[@]}" -DREMOVE -DBREAK_NO_GENERATION
broken "flush of the retiring file" "assertion violated (unsynced" "${direct[@]}" -DFLUSH -DBREAK_NO_RETIRING
broken "handleMutex, then bufferMutex" "$deadlock" "${buffered[@]}" -DBREAK_MUTEX_ORDER
broken "writing pending lines, then the new file" "$lost" "${buffered[@]}" -DFAIL_OPEN -DBREAK_INSTALL_FIRST
broken "text waits while there is no descriptor" "$lost" "${buffered[@]}" -DFAIL_IN_PLACE -DBREAK_DROPS_IN_BETWEEN
broken "a fork takes the mutexes" "$deadlock" "${buffered[@]}" -DFORK -DBREAK_FORK_WITHOUT_MUTEX
broken "a child forgets pending lines" ">=next[" "${buffered[@]}" -DFORK -DBREAK_CHILD_KEEPS_TEXT
broken "a child ends others' rotations" "isChangingInChild" "${buffered[@]}" -DFORK -DBREAK_CHILD_KEEPS_ROTATION
broken "tasks and rotators need no room" "$deadlock" "${queued[@]}" -DCAPACITY=1 -DBREAK_ROTATOR_WAITS
broken "no task is queued, then it runs" "q_len(waiting" "${queued[@]}" -DBREAK_LATE_SWAP
broken "completions wait for no queue" "$deadlock" "${queued[@]}" -DTWO_QUEUES -DCOMPLETION_ROTATES \
    -DBREAK_COMPLETION_WAITS
wait

passed=$(find "$work" -name passed | wc -l)
echo "$passed of $started searches as expected"
((passed == started))
