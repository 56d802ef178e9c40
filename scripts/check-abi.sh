#!/bin/bash
# Compares the library's binary interface with the one that was accepted last, abi/Velora_UserDefaults.abi.gz, and
# fails where programs linked with that one would break. New functions are no break.
#
#     scripts/check-abi.sh [--update]
#
# --update accepts the interface as it is now. A break is a decision: it needs a new major version, unless the
# accepted one was never released.
set -euo pipefail
cd "$(dirname "$0")/.."
accepted=abi/Velora_UserDefaults.abi.gz

scripts/install-packages.sh build package
[[ -f build/release/build.ninja ]] || cmake --preset release -DVELORA_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release --target Velora_UserDefaults >/dev/null
library=$(realpath build/release/Velora_UserDefaults/libVelora_UserDefaults.so)
work=build/abi
rm -rf "$work"
cmake --install build/release --prefix "$PWD/$work/installed" --component development >/dev/null

# Only what the installed headers define: the standard library's and {fmt}'s types are theirs.
dump() {
    abidw --headers-dir "$work/installed/include" --drop-private-types --no-corpus-path --no-comp-dir-path \
        --no-show-locs --exported-interfaces-only "$library"
}

if [[ ${1:-} == --update ]]; then
    mkdir -p abi
    dump | gzip -9 --no-name >"$accepted"
    echo "Accepted: $accepted, $(stat -c %s "$accepted") bytes"
    exit 0
fi

dump >"$work/current.abi"
gzip -dc "$accepted" >"$work/accepted.abi"
code=0
abidiff --no-added-syms "$work/accepted.abi" "$work/current.abi" || code=$?
if ((code != 0)); then
    echo "The binary interface differs from the accepted one (abidiff: $code). If that is meant: make abi-update" >&2
    exit 1
fi
echo "The binary interface is the accepted one, or adds to it."
