#!/bin/sh
# Lays out every source file as .clang-format says; with --check only says which files differ, and
# fails if any does.
set -eu
cd "$(dirname "$0")/.."
case "${1:-}" in
    --check) action="--dry-run --Werror" ;;
    '') action=-i ;;
    *)
        echo "usage: scripts/format.sh [--check]" >&2
        exit 2
        ;;
esac
files=$(scripts/sources.sh '*.h' '*.cpp')
printf '%s\n' "$files" | xargs -d '\n' clang-format --style=file $action
