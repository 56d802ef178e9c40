#!/bin/sh
# Lets the system know of the library that was installed below PREFIX, so that programs find it when they start.
# Where that cannot be done, says what is left to do.
#
#     scripts/announce-library.sh PREFIX
#
# With a DESTDIR nothing is done: what was installed there is for another system.
set -eu
[ -z "${DESTDIR:-}" ] || exit 0
folder=$1/lib
library=$folder/libVelora_UserDefaults.so
# What only an administrator runs is not in everybody's PATH.
PATH=$PATH:/usr/sbin:/sbin

# A static library is a part of each program.
[ -e "$library" ] || exit 0

is_searched() {
    ldconfig -N -X -v 2>/dev/null | sed -n 's|^\(/[^:]*\):.*|\1|p' | xargs -r -d '\n' realpath -m |
        grep -qxF "$(realpath "$folder")"
}

is_known() {
    ldconfig -p | sed -n 's|.*libVelora_UserDefaults\.so.* => ||p' | xargs -r -d '\n' realpath -m |
        grep -qxF "$(realpath "$library")"
}

[ "$(id -u)" != 0 ] || ldconfig
if ! is_searched; then
    echo "The system does not search $folder. CMake finds the library with -DCMAKE_PREFIX_PATH=$1; without CMake," \
        "set PKG_CONFIG_PATH=$folder/pkgconfig and link with -Wl,-rpath,$folder."
elif ! is_known; then
    echo "Let root run ldconfig, so that programs find the library when they start."
fi
