#!/bin/sh
# Runs clang-tidy with the checks of .clang-tidy over source files: all, or those named.
#
#     scripts/tidy.sh BUILD-FOLDER [FILE...]
#
# The build folder is one that CMake has configured; nothing in it needs to be built. Prints only the
# files with findings, and fails if there are any.
set -eu
build=$1
shift
cd "$(dirname "$0")/.."
if [ $# = 0 ]; then
    files=$(scripts/sources.sh '*.cpp')
else
    files=$(printf '%s\n' "$@")
fi

# Warnings that clang-tidy only counts ("12 warnings generated") are those of system headers.
check='
    output=$(clang-tidy --quiet -p "$0" "$1" 2>&1) && exit 0
    printf "%s:\n%s\n" "$1" "$output" | grep -v -E "^[0-9]+ warnings? (and [0-9]+ errors? )?generated"
    exit 1
'
printf '%s\n' "$files" | xargs -d '\n' -P "$(nproc)" -n 1 sh -c "$check" "$build"
