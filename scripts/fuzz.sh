#!/bin/bash
# Runs the fuzz targets: all of fuzz/, or those named.
#
#     scripts/fuzz.sh [--seconds N] [--replay-only] [TARGET...]
#
# First every input of fuzz/corpus is replayed. Then each target generates inputs: for N seconds, as many targets at a time
# as there are processors, or without an end, all at once, until interrupted. Inputs that reach new code are kept in
# build/fuzz/corpus, where the next run goes on from. An input that breaks a promise is kept in build/fuzz/failures, and
# the command that tries it again is printed; then this fails. The programs must have been built in build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/fuzz
seconds=${FUZZ_SECONDS:-}
replay_only=
targets=()
while (($# > 0)); do
    case $1 in
        --seconds)
            seconds=$2
            shift
            ;;
        --replay-only) replay_only=1 ;;
        -*)
            sed -n '4s/^# *//p' "$0" >&2
            exit 2
            ;;
        *) targets+=("$1") ;;
    esac
    shift
done
if ((${#targets[@]} == 0)); then
    for source in fuzz/*Fuzz.cpp; do
        targets+=("$(basename "$source" .cpp)")
    done
fi
for target in "${targets[@]}"; do
    [[ -x $build/fuzz/bin/$target ]] || {
        echo "fuzz: there is no program $build/fuzz/bin/$target; 'make fuzz' builds it" >&2
        exit 2
    }
done

# What the programs make is temporary. A folder of their own: one that dies leaves its files behind. It must be on a
# file system with extended attributes, which that of the tree usually is.
temporary=$(mktemp -d "$PWD/$build/temporary-XXXXXX")
trap 'rm -rf "$temporary"' EXIT
export TMPDIR=$temporary
export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p $build/failures $build/logs

# Runs a target with libFuzzer's arguments given; its output goes to the target's log.
run() {
    local target=$1 log=$build/logs/$1.txt interrupted=72 code=0 files
    shift
    nice $build/fuzz/bin/"$target" -artifact_prefix=$build/failures/"$target"- "$@" >"$log" 2>&1 || code=$?
    if ((code == 0 || code == interrupted)); then
        return 0
    fi
    files=$(sed -n 's/.*Test unit written to //p' "$log")
    {
        echo "$target failed; the end of $log:"
        grep -a -m 1 -E 'Fuzz\.cpp:[0-9]+: |runtime error: |ERROR: ' "$log" || tail -n 5 "$log"
        for file in $files; do
            echo "Try that input again:  $build/fuzz/bin/$target $file"
        done
    } >&2
    return 1
}

replay() {
    run "$1" -runs=0 fuzz/corpus/"$1" && printf '%-28s %6d inputs of fuzz/corpus\n' "$1" "$(ls fuzz/corpus/"$1" | wc -l)"
}

# The first folder is where libFuzzer puts what it finds.
explore() {
    local target=$1 options=(-timeout=20 -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1)
    [[ -f fuzz/dictionaries/$target.dict ]] && options+=("-dict=fuzz/dictionaries/$target.dict")
    [[ -n $seconds ]] && options+=("-max_total_time=$seconds")
    mkdir -p $build/corpus/"$target"
    run "$target" "${options[@]}" $build/corpus/"$target" fuzz/corpus/"$target" || return 1
    printf '%-28s %9d inputs, %d that reached new code\n' "$target" \
        "$(sed -n 's/^stat::number_of_executed_units: *//p' $build/logs/"$target".txt)" \
        "$(sed -n 's/^stat::new_units_added: *//p' $build/logs/"$target".txt)"
}

export -f run replay explore
export build seconds
at_a_time=$(nproc)
each() {
    printf '%s\n' "${targets[@]}" | xargs -P "$at_a_time" -I '{}' bash -c "$1 {}"
}

each replay
[[ -z $replay_only ]] || exit 0
if [[ -z $seconds ]]; then
    at_a_time=${#targets[@]}
    echo "Until interrupted. Each target tells what it does in $build/logs."
fi
each explore
