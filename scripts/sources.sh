#!/bin/sh
# Lists the C++ files of this tree that git knows or would add, those that match the patterns given.
#
#     scripts/sources.sh '*.cpp'
#
# Fails when there are none: a check of no files would pass.
set -eu
cd "$(dirname "$0")/.."
files=$(git ls-files --cached --others --exclude-standard -- "$@" | while read -r file; do
    # A file that was deleted but not yet committed is still listed.
    [ -f "$file" ] && printf '%s\n' "$file"
done || true)
[ -n "$files" ] || {
    echo "sources: no file matches $*" >&2
    exit 1
}
printf '%s\n' "$files"
