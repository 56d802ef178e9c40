#!/bin/bash
# Checks the Debian packages as a user has them: builds them, runs lintian, installs them, builds and runs
# tests/consumer against the installed ones with both compilers and with CMake, works with the tools and shows their
# manual pages, removes the packages and sees that nothing is left.
#
#     scripts/check-packages.sh [--quick] WORK-FOLDER
#
# --quick: the packages are made of what `make` has compiled already, and used with one compiler and standard, the one
# that check-installation.sh does not try.
#
# Installing needs root; without, it ends after lintian and says so. The packages are removed whatever happens.
set -euo pipefail
quick=
if [[ $1 == --quick ]]; then
    quick=1
    shift
fi
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

# Runs the program of tests/consumer with files of its own only.
run_consumer() {
    local folder
    folder=$(mktemp -d "$work/run-XXXXXX")
    (cd "$folder" && VELORA_DEFAULTS_FILE=$folder/UserDefaults.json "$1" "$folder") >"$folder/output" ||
        fail "$1 fails: $(cat "$folder/output")"
}

# Compiles each installed header by itself, then all of tests/consumer, and runs that. With g++ the headers are compiled
# by check-installation.sh.
try_compiler() {
    local compiler=$1 standard=$2 flags
    read -ra flags <<<"$(pkg-config --cflags --libs Velora_UserDefaults)"
    # shellcheck disable=SC2016
    [[ $quick || $compiler-$standard != clang++-16-c++20 ]] || (cd /usr/include && find Velora_UserDefaults -name '*.h') | xargs -d '\n' -P "$(nproc)" -I HEADER sh -c '
        echo "#include <HEADER>" | "$@" -fsyntax-only -x c++ - || { echo "HEADER does not compile by itself"; exit 1; }
    ' sh "$compiler" -std="$standard" "${warnings[@]}"
    "$compiler" -std="$standard" "${warnings[@]}" tests/consumer/*.cpp -o "$work/consumer-$compiler-$standard" "${flags[@]}"
    run_consumer "$work/consumer-$compiler-$standard"
    echo "$compiler, $standard: the program"
}

try_cmake() {
    cmake -S tests/consumer -B "$work/cmake" -G Ninja -DCONSUMER_WANTS_TOOLS=ON >"$work/cmake.log"
    cmake --build "$work/cmake" >>"$work/cmake.log" || fail "the program of CMake: $(cat "$work/cmake.log")"
    run_consumer "$work/cmake/consumer"
    echo "CMake: the program, and the tools are found"
}

# Each tool does a piece of its work.
try_work_of_tools() {
    local log=$work/app.log lines="2026-11-22 10:00:00.000 [Info] [app.cpp:1] main > good
2026-11-22 10:00:01.000 [Error] [app.cpp:2] main > bad"
    echo "$lines" >"$log"
    [[ $(velora-log show "$log") == "$lines" ]] || fail "velora-log does not show a file as it is"
    [[ $(velora-log show --level error "$log") == "${lines##*$'\n'}" ]] || fail "velora-log does not find the error"

    export VELORA_DEFAULTS_FILE=$work/UserDefaults.json
    [[ $(velora-defaults path) == "$VELORA_DEFAULTS_FILE" ]] || fail "velora-defaults takes another store"
    velora-defaults write Packaged --string yes
    [[ $(velora-defaults read Packaged) == yes ]] || fail "velora-defaults does not read what it wrote"
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
make packages PACKAGES_QUICK=$quick >"$work/build.log"
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
try_compiler clang++-16 c++20
if [[ -z $quick ]]; then
    try_compiler clang++-16 c++2b
    try_compiler g++ c++20
    try_compiler g++ c++2b
    try_cmake
fi
try_tools
try_work_of_tools
trap - EXIT
remove_packages

left=$(files_of_packages | while read -r file; do [[ ! -e $file && ! -L $file ]] || echo "$file"; done)
[[ -z $left ]] || fail "removing the packages leaves: $left"
for folder in /usr/include/Velora_UserDefaults /usr/lib/*/cmake/Velora_UserDefaults; do
    [[ ! -e $folder ]] || fail "removing the packages leaves $folder"
done
echo "Removed: nothing is left."
