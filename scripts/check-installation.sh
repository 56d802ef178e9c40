#!/bin/bash
# Checks what a host gets: installs the library as a shared and as a static one, each into an empty
# folder that is then moved elsewhere, and against the moved one
#
# - compiles each installed header by itself,
# - builds and runs the program in tests/consumer through find_package,
# - builds and runs it through pkg-config,
# - sees that the program includes every installed header, directly or not, so that none is
#   installed by mistake and none is left untried.
#
# Then builds and runs that program with the library as a part of its build, by add_subdirectory and by FetchContent
# from a folder and from a local clone (of what is committed), and sees that only the program is installed.
#
# Then goes the way of a newcomer: `make install`, the installed tools, and the program of README.md, built and run by
# the commands that stand there. First below a folder that the system does not search; then, in a mount namespace of
# its own, in an empty /usr/local, where nothing but what README.md says may be needed.
#
#     scripts/check-installation.sh [--quick] WORK-FOLDER
#
# --quick: only the way of a newcomer, below a folder that the system does not search, and there the headers and the
# program of tests/consumer.
set -euo pipefail

quick=
if [[ $1 == --quick ]]; then
    quick=1
    shift
fi
work=$(realpath -m "$1")
source=$(realpath "$(dirname "$0")/..")
consumer=$source/tests/consumer
warnings=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Werror)

rm -rf "$work"
mkdir -p "$work"

# Builds the library and installs it into $prefix by way of another folder.
install_library() {
    local build=$work/$kind/build
    # As `make` builds it, so that ccache has the objects already.
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_SHARED_LIBS="$shared" \
        -DVELORA_BUILD_TESTS=OFF -DVELORA_BUILD_EXAMPLES=OFF -DVELORA_BUILD_TOOLS=OFF >"$work/$kind.configure.log"
    cmake --build "$build"
    cmake --install "$build" --prefix "$work/$kind/installed-first" >"$work/$kind.install.log"
    mv "$work/$kind/installed-first" "$prefix"
}

check_headers() {
    (cd "$prefix/include" && find . -name '*.h' -printf '%P\n' | sort) >"$work/$kind.headers"
    # Those of the static library are the same.
    if [[ $kind == static ]]; then
        diff "$work/shared.headers" "$work/static.headers"
        return
    fi
    # shellcheck disable=SC2016
    xargs -a "$work/$kind.headers" -d '\n' -P "$(nproc)" -I HEADER sh -c '
        echo "#include <HEADER>" | g++ "$@" -fsyntax-only -x c++ - || { echo "HEADER does not compile by itself"; exit 1; }
    ' sh "${warnings[@]}" -I "$prefix/include"
    echo "$(wc -l <"$work/$kind.headers") headers compile by themselves"
}

check_package() {
    local build=$work/$kind/consumer
    cmake -S "$consumer" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" \
        >"$work/$kind.consumer.log"
    cmake --build "$build"
    run "$build/consumer"
}

check_pkg_config() {
    export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
    local flags
    read -ra flags <<<"$(pkg-config --cflags --libs Velora_UserDefaults)"
    g++ "${warnings[@]}" "$consumer"/*.cpp -o "$work/$kind/consumer-by-pkg-config" "${flags[@]}" -Wl,-rpath,"$prefix/lib"
    run "$work/$kind/consumer-by-pkg-config"
}

# Runs the program with files of its own only.
run() {
    local folder
    folder=$(mktemp -d "$work/$kind/run-XXXXXX")
    (cd "$folder" && VELORA_DEFAULTS_FILE=$folder/UserDefaults.json "$1" "$folder") >"$folder/output" ||
        { cat "$folder/output"; echo "$1 failed" >&2; return 1; }
}

check_use_of_headers() {
    local unused
    unused=$(g++ -std=c++20 -I "$prefix/include" -M "$consumer"/*.cpp | tr ' ' '\n' |
        grep "^$prefix/include/Velora_UserDefaults/" | sed "s|^$prefix/include/||" | sort -u |
        comm -13 - "$work/$kind.headers")
    [[ -z $unused ]] || {
        echo "These headers are installed, but tests/consumer uses them nowhere: use them there, or keep them" >&2
        echo "out of the installation (cmake/VeloraInstall.cmake):" >&2
        printf '%s\n' "$unused" >&2
        return 1
    }
}

check_ways_of_linking() {
    for kind in shared static; do
        prefix=$work/$kind/installed
        [[ $kind == shared ]] && shared=ON || shared=OFF
        echo "-- $kind library"
        install_library
        check_headers
        check_package
        check_pkg_config
        check_use_of_headers
    done
}

check_subproject() {
    local way=$1 build=$work/$1/build installed=$work/$1/installed launcher=()
    kind=$way
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    echo "-- as a part of its host: $way"
    mkdir -p "$work/$way"
    cmake -S "$consumer/subproject" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" \
        -DVELORA_WAY="$way" -DVELORA_SOURCE="$source" >"$work/$way.configure.log"
    cmake --build "$build"
    run "$build/consumer"
    cmake --install "$build" --prefix "$installed" >"$work/$way.install.log"
    [[ $(cd "$installed" && find . -type f) == ./bin/consumer ]] || {
        echo "the host's installation holds more than the host:" >&2
        find "$installed" -type f >&2
        return 1
    }
}

# Prints the block of README.md that is in the language and holds the text.
block_of_readme() {
    awk -v language="$1" -v text="$2" '
        /^```/ && inside { inside = 0; if (wanted && index(code, text)) { printf "%s", code; found = 1; exit } next }
        /^```/ { inside = 1; wanted = ($0 == "```" language); code = ""; next }
        inside { code = code $0 "\n" }
        END { exit !found }' "$source/README.md" || { echo "README.md has no block with $2" >&2; return 1; }
}

# What of the program's output is the same in every run.
lasting() {
    sed -E 's/^[0-9-]{10} [0-9:.]{12}/DATE/; s/\.cpp:[0-9]+\]/.cpp]/; s|file:///\S*/|file:///|'
}

# Runs the commands of README.md that hold the text, in a folder with the files that stand there.
follow_readme() {
    local folder expected
    folder=$(mktemp -d "$work/$kind/readme-XXXXXX")
    expected=$(block_of_readme '' 'Security Preferences' | lasting)
    block_of_readme cmake cmake_minimum_required >"$folder/CMakeLists.txt"
    block_of_readme cpp '<Velora_UserDefaults/Velora_UserDefaults.h>' >"$folder/main.cpp"
    block_of_readme sh "$1" >"$folder/commands"
    (cd "$folder" && VELORA_DEFAULTS_FILE=$folder/UserDefaults.json bash -eu commands) >"$folder/output" 2>&1 || {
        cat "$folder/output" >&2
        return 1
    }
    diff <(lasting <"$folder/output" | tail -n "$(wc -l <<<"$expected")") <(echo "$expected") || {
        echo "the program of README.md does not print what stands there" >&2
        return 1
    }
    [[ -s $folder/app.log ]] || { echo "the program of README.md has written no file" >&2; return 1; }
    echo "README.md: $(tail -n 1 "$folder/commands")"
}

check_tools() {
    local tool
    for tool in velora-log velora-defaults; do
        "$prefix/bin/$tool" --version
        [[ $(ldd "$prefix/bin/$tool") == *"$prefix/bin/../lib/libVelora_UserDefaults.so"* ]] || {
            echo "$tool takes another library than the one beside it: $(ldd "$prefix/bin/$tool")" >&2
            return 1
        }
    done
    VELORA_DEFAULTS_FILE=$work/$kind/UserDefaults.json "$prefix/bin/velora-defaults" list >"$work/$kind.list"
    grep -q Scaling_Image_Mode "$work/$kind.list" || { echo "velora-defaults lists no preferences" >&2; return 1; }
}

# Whoever installs below such a folder is told what programs need to find the library.
check_make_install() {
    mkdir -p "$work/$kind"
    make -C "$source" --no-print-directory install PREFIX="$work/$kind/installed-first" >"$work/$kind.install.log"
    grep -qF -e "-Wl,-rpath,$work/$kind/installed-first/lib" "$work/$kind.install.log" || {
        echo "make install does not say how programs find a library in a folder that the system does not search" >&2
        return 1
    }
    mv "$work/$kind/installed-first" "$prefix"
}

# In a system whose /usr/local is empty, and that knows nothing of the library; this one's own is not touched.
check_system_prefix() {
    mount --make-rprivate /
    cp -a /etc "$work/$kind/etc"
    mount --bind "$work/$kind/etc" /etc
    mount -t tmpfs none /usr/local
    [[ ! -d /var/cache/ldconfig ]] || mount -t tmpfs none /var/cache/ldconfig
    ldconfig
    unset PKG_CONFIG_PATH
    make -C "$source" --no-print-directory install PREFIX=/usr/local >"$work/$kind.install.log"
    follow_readme pkg-config
    follow_readme 'cmake -B'
}

unset LD_LIBRARY_PATH
if [[ -z $quick ]]; then
    check_ways_of_linking
    for way in subdirectory source-dir clone; do
        check_subproject "$way"
    done
fi

kind="make"
prefix=$work/$kind/installed
echo "-- make install"
check_make_install
check_tools
if [[ $quick ]]; then
    check_headers
    check_package
    check_use_of_headers
fi
(
    # What README.md says about a prefix that the system does not search; LD_RUN_PATH is -Wl,-rpath.
    export CMAKE_PREFIX_PATH=$prefix PKG_CONFIG_PATH=$prefix/lib/pkgconfig LD_RUN_PATH=$prefix/lib
    follow_readme 'cmake -B'
    follow_readme pkg-config
)

[[ -z $quick ]] || exit 0
kind="system"
mkdir -p "$work/$kind"
if unshare --mount true 2>/dev/null; then
    echo "-- make install PREFIX=/usr/local"
    export -f check_system_prefix follow_readme block_of_readme lasting
    export work kind source
    unshare --mount bash -euo pipefail -c check_system_prefix
else
    echo "Not tried in /usr/local: this system lets nobody have a mount namespace of his own."
fi
