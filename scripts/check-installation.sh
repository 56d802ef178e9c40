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
#     scripts/check-installation.sh WORK-FOLDER
set -euo pipefail

work=$(realpath -m "$1")
source=$(realpath "$(dirname "$0")/..")
consumer=$source/tests/consumer
warnings=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Werror)

rm -rf "$work"
mkdir -p "$work"

# Builds the library and installs it into $prefix by way of another folder.
install_library() {
    local build=$work/$kind/build
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS="$shared" \
        -DVELORA_BUILD_TESTS=OFF -DVELORA_BUILD_EXAMPLES=OFF -DVELORA_BUILD_TOOLS=OFF \
        -DVELORA_WARNINGS_AS_ERRORS=OFF >"$work/$kind.configure.log"
    cmake --build "$build"
    cmake --install "$build" --prefix "$work/$kind/installed-first" >"$work/$kind.install.log"
    mv "$work/$kind/installed-first" "$prefix"
}

check_headers() {
    (cd "$prefix/include" && find . -name '*.h' -printf '%P\n' | sort) >"$work/$kind.headers"
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

for way in subdirectory source-dir clone; do
    check_subproject "$way"
done
