#!/bin/bash
# The checks that take longer than those of every change (.ci/run), all of them or the parts named:
#
#     scripts/check-release.sh [PART...]
#
#     load          kills and rotations at full load, a long run
#     model         the larger searches of the model of the file destinations
#     analysis      static analysis of the whole tree
#     fuzz          each fuzz target for FUZZ_SECONDS (120)
#     installation  the library as a shared and a static one, and as a part of a host's build
#     packages      Debian packages with the distribution's flags, used with both compilers
#     bench         all benchmarks beside their peers
#     site          the documentation in a browser
#     coverage      which lines of the library the tests reach
#
# CONTRIBUTING.md says which change needs which part.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

check_load() {
    make test
    local programs=build/release/tests/bin
    VELORA_TEST_LINES_PER_THREAD=100000 "$programs/DestinationsTests" --gtest_filter='AutoRotatingFileDestinationThreads.*'
    VELORA_TEST_KILLS=300 "$programs/DestinationsTests" --gtest_filter='KilledProcesses*'
    VELORA_KILLS=500 "$programs/StoreProcessTests" --gtest_filter='*MayBeKilledAtAnyMoment'
    VELORA_KILLS=300 VELORA_LONG_RUN_SECONDS=300 "$programs/ReliabilityTests" --gtest_filter='*KilledProcess*:LongRun*'
}
check_model() {
    scripts/install-packages.sh build model
    tests/model/check.sh --long
}
check_analysis() { make lint; }
check_fuzz() { make fuzz FUZZ_SECONDS="${FUZZ_SECONDS:-120}"; }
check_installation() { scripts/check-installation.sh build/installation; }
check_packages() { scripts/check-packages.sh build/package-check; }
check_bench() { make bench; }
check_site() { make check-docs; }
check_coverage() { make coverage; }

parts=(load model analysis fuzz installation packages bench site coverage)
if (($# == 0)); then
    set -- "${parts[@]}"
fi
for part in "$@"; do
    [[ " ${parts[*]} " == *" $part "* ]] || {
        echo "check-release: there is no part $part; the parts are ${parts[*]}" >&2
        exit 2
    }
done
scripts/install-packages.sh build test bench fuzz package docs site lint coverage
for part in "$@"; do
    step "$part" "check_$part"
done
