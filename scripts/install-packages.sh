#!/bin/sh
# Installs what is missing of the package groups named; see packages.txt beside this script.
#
#     scripts/install-packages.sh build test
#
# Never asks a question. Where it cannot install, it says what is missing and exits with 1.
# VELORA_SKIP_PACKAGES=1 leaves the installing to the caller and does nothing.
set -eu

[ "${VELORA_SKIP_PACKAGES:-}" = 1 ] && exit 0

list=$(dirname "$0")/packages.txt

packages_of() {
    for group in "$@"; do
        awk -v group="$group" '$1 == group { print $2; found = 1 } END { exit !found }' "$list" || {
            echo "install-packages: there is no group '$group' in $list" >&2
            exit 2
        }
    done
}

# Prints those of the packages that are not installed.
missing_of() {
    installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | awk '$1 == "installed" { print $2 }')
    for package in "$@"; do
        printf '%s\n' "$installed" | grep -qxF -e "$package" || printf '%s\n' "$package"
    done
}

# Says on standard error which packages are needed, what for, and why they are not there.
explain() {
    reason=$1
    shift
    {
        echo "These packages are needed, and $reason:"
        for package in "$@"; do
            awk -v package="$package" \
                '$2 == package { name = $2; $1 = $2 = ""; sub(/^ +/, ""); printf "    %-22s%s\n", name, $0 }' "$list"
        done
    } >&2
}

wanted=$(packages_of "$@")

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    explain "this system has no apt to install them with" $wanted
    echo "Install what they are called here, then run again with VELORA_SKIP_PACKAGES=1." >&2
    exit 1
fi

missing=$(missing_of $wanted)
[ -z "$missing" ] && exit 0

if [ "$(id -u)" = 0 ]; then
    as_root=
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root="sudo -n"
else
    explain "only an administrator may install them" $missing
    echo "Install them with:  sudo apt-get install" $missing >&2
    exit 1
fi

# SYSTEMD_OFFLINE: installing a daemon must not start it, nor wait for a service manager.
apt() {
    $as_root env DEBIAN_FRONTEND=noninteractive NEEDRESTART_SUSPEND=1 SYSTEMD_OFFLINE=1 \
        apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 \
        -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold "$@" </dev/null
}

echo "Installing:" $missing
# An index that could not be renewed may still know the packages: only the installing decides.
apt update || echo "install-packages: the package index could not be renewed" >&2
apt install --yes --no-install-recommends $missing || {
    explain "installing them failed, see above" $missing
    exit 1
}
