#!/bin/bash
# Runs clang-tidy with the checks of .clang-tidy over source files: all, those named, or those that changed.
#
#     scripts/tidy.sh [FILE...]
#     scripts/tidy.sh --changed
#
# --changed: of what is delivered (library, tools, examples), what differs from VELORA_BASE, which is a commit; without
# it from where origin's branch was left, else from the last commit that is a day older than the newest. Of more
# than VELORA_TIDY_LIMIT (40) files the first, and the number of the others is printed.
#
# Prints only the files with findings, and fails if there are any.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/lint
cmake --preset lint >/dev/null

base_of_changes() {
    local head fork
    head=$(git rev-parse HEAD)
    fork=$(git merge-base HEAD "origin/HEAD" 2>/dev/null || true)
    if [[ -n ${VELORA_BASE:-} ]]; then
        git rev-parse "$VELORA_BASE"
    elif [[ -n $fork && $fork != "$head" ]]; then
        echo "$fork"
    else
        git rev-list -1 --before="$(($(git log -1 --format=%ct) - 86400))" HEAD
    fi
}

# A header is looked at with the source beside it.
changed_sources() {
    local base
    base=$(base_of_changes)
    # Without a commit to compare with, such as in a shallow clone, all are taken for changed.
    [[ -n $base ]] || base=$(git hash-object -t tree /dev/null)
    git diff --name-only --diff-filter=d "$base" -- Velora_UserDefaults tools examples |
        sed -nE 's/\.(h|cpp)$/.cpp/p' | sort -u | while read -r file; do [[ ! -f $file ]] || echo "$file"; done
}

if [[ ${1:-} == --changed ]]; then
    mapfile -t files < <(changed_sources)
    limit=${VELORA_TIDY_LIMIT:-40}
    echo "${#files[@]} sources changed"
    if ((${#files[@]} > limit)); then
        echo "the first $limit are looked at; all: make lint"
        files=("${files[@]:0:limit}")
    fi
elif (($# > 0)); then
    files=("$@")
else
    mapfile -t files < <(scripts/sources.sh '*.cpp')
fi
((${#files[@]} > 0)) || exit 0

# Warnings that clang-tidy only counts ("12 warnings generated") are those of system headers.
check='
    output=$(clang-tidy --quiet -p "$0" "$1" 2>&1) && exit 0
    printf "%s:\n%s\n" "$1" "$output" | grep -v -E "^[0-9]+ warnings? (and [0-9]+ errors? )?generated"
    exit 1
'
printf '%s\n' "${files[@]}" | xargs -d '\n' -P "$(nproc)" -n 1 sh -c "$check" "$build"
