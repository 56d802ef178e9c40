#!/bin/bash
# Checks the Debian packages as a user has them: builds them, runs lintian, installs them, builds and runs
# tests/consumer against the installed ones with both compilers, runs the tools and shows their manual pages, removes
# the packages and sees that nothing is left.
#
#     scripts/check-packages.sh WORK-FOLDER
#
# Installing needs root; without, it ends after lintian and says so. The packages are removed whatever happens.
set -euo pipefail
work=$(realpath -m "$1")
cd "$(dirname "$0")/.."
names=(libvelora-userdefaults1 libvelora-userdefaults-dev velora-userdefaults-tools)
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Werror)

fail() {
    echo "$1" >&2
    exit 1
}

# Everything that the packages put on the system, folders of others not counted.
files_of_packages() {
    for package in build/packages/*.deb; do
        dpkg-deb --contents "$package" | grep -v '^d' | sed -E 's| -> .*||; s|.* \./|/|'
    done
}

remove_packages() {
    DEBIAN_FRONTEND=noninteractive dpkg --purge "${names[@]}" >"$work/removal.log" 2>&1
}

# Compiles each installed header by itself, then all of tests/consumer, and runs that.
try_compiler() {
    local compiler=$1 standard=$2 flags folder
    read -ra flags <<<"$(pkg-config --cflags --libs Velora_UserDefaults)"
    # shellcheck disable=SC2016
    [[ $standard != c++20 ]] || (cd /usr/include && find Velora_UserDefaults -name '*.h') | xargs -d '\n' -P "$(nproc)" -I HEADER sh -c '
        echo "#include <HEADER>" | "$@" -fsyntax-only -x c++ - || { echo "HEADER does not compile by itself"; exit 1; }
    ' sh "$compiler" -std="$standard" "${warnings[@]}"
    "$compiler" -std="$standard" "${warnings[@]}" tests/consumer/*.cpp -o "$work/consumer" "${flags[@]}"
    folder=$(mktemp -d "$work/run-XXXXXX")
    (cd "$folder" && VELORA_DEFAULTS_FILE=$folder/UserDefaults.json "$work/consumer" "$folder") >"$folder/output" ||
        fail "the program of $compiler as $standard fails: $(cat "$folder/output")"
    echo "$compiler, $standard: every header and the program"
}

# The manual page is looked for in the package: containers are often told to install none.
try_tools() {
    local tool program
    for program in $(files_of_packages | grep '^/usr/bin/'); do
        tool=$(basename "$program")
        VELORA_DEFAULTS_FILE=$work/UserDefaults.json "$program" --version >"$work/$tool.version"
        MANPAGER=cat MANWIDTH=80 man -l "$work/tools/usr/share/man/man1/$tool.1.gz" >"$work/$tool.page" 2>"$work/$tool.complaints"
        grep -q NAME "$work/$tool.page" || fail "the manual page of $tool shows nothing"
        [[ ! -s $work/$tool.complaints ]] || fail "the manual page of $tool: $(cat "$work/$tool.complaints")"
        if [[ -e /usr/share/man/man1/$tool.1.gz ]]; then
            man -w "$tool" >/dev/null || fail "man does not find $tool"
        fi
        echo "$tool: runs, has a manual page"
    done
}

rm -rf "$work"
mkdir -p "$work"
make packages >"$work/build.log"
lintian --fail-on error build/packages/*.deb
dpkg-deb --extract build/packages/velora-userdefaults-tools_*.deb "$work/tools"

if [[ $(id -u) != 0 ]]; then
    echo "Not root: the packages were built and checked, but not installed."
    exit 0
fi
if dpkg-query -W "${names[@]}" >/dev/null 2>&1; then
    fail "the packages are installed already; remove them first"
fi

trap remove_packages EXIT
dpkg --install build/packages/*.deb >"$work/installation.log"
for standard in c++20 c++2b; do
    try_compiler g++ "$standard"
    try_compiler clang++-16 "$standard"
done
cmake -S tests/consumer -B "$work/cmake" -G Ninja -DCONSUMER_WANTS_TOOLS=ON >"$work/cmake.log"
try_tools
trap - EXIT
remove_packages

left=$(files_of_packages | while read -r file; do [[ ! -e $file && ! -L $file ]] || echo "$file"; done)
[[ -z $left ]] || fail "removing the packages leaves: $left"
for folder in /usr/include/Velora_UserDefaults /usr/lib/*/cmake/Velora_UserDefaults; do
    [[ ! -e $folder ]] || fail "removing the packages leaves $folder"
done
echo "Removed: nothing is left."
