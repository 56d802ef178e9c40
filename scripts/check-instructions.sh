#!/bin/bash
# Counts the instructions of a call below level, a composed line, a queued line and a preference read, and fails where
# one takes over 5 % more than benchmarks/instructions.json says.
#
#     scripts/check-instructions.sh [--update]
#
# --update accepts the counts as they are now. What counts is the build folder of the preset "release".
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $# -gt 1 || ($# -eq 1 && $1 != --update) ]]; then
    sed -n '2,8s/^# \{0,1\}//p' "$0" >&2
    exit 2
fi
scripts/install-packages.sh build bench
test -f build/release/build.ninja || cmake --preset release -DVELORA_BUILD_TESTS=OFF >/dev/null
cmake --build build/release --target InstructionsBenchmark >/dev/null
/usr/bin/python3 -B benchmarks/instructions.py build/release "$@"
