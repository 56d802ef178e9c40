#!/bin/sh
# Runs all tests of build/coverage, which must have been built, and tells which lines of the library they reached: a
# page for each file from build/coverage/index.html on, and the share of all lines.
#
#     scripts/coverage.sh
#
# Fails if a test does, or if less than 95 % of the lines are reached.
set -eu
cd "$(dirname "$0")/.."
build=build/coverage

# Counters of an earlier run would be added to.
find $build -name '*.gcda' -delete
ctest --preset coverage --parallel "$(nproc)"
gcovr --root . --object-directory $build --filter Velora_UserDefaults/ --exclude-throw-branches \
    --html-details $build/index.html --html-title "Velora_UserDefaults" --txt $build/lines.txt --print-summary \
    --fail-under-line 95 $build >$build/summary.txt 2>$build/gcovr.txt || {
    code=$?
    cat $build/gcovr.txt $build/summary.txt
    exit $code
}
grep '^lines: ' $build/summary.txt
echo "Line by line: $build/index.html"
