#!/bin/bash
# SPDX-License-Identifier: MIT
# Shows the daemon at work on a virtual router: installs what is missing, builds, plays a scenario.
# ./run.sh [SCENARIO] [--list] [--speed N] [--keep] [--log] [--build DIR]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$root/build/run
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# A command or header that must be there, and the package that brings it.
RUN_NEEDS="python3:python3 ip:iproute2 dnsmasq:dnsmasq-base pppoe-server:pppoe udhcpc:udhcpc faketime:faketime
           arping:iputils-arping"
BUILD_NEEDS="cmake:cmake ninja:ninja-build g++:g++ /usr/include/json-c/json.h:libjson-c-dev
             /usr/include/uthash.h:uthash-dev"

fail() {
    cat "$log" >&2
    echo "run.sh: $*" >&2
    exit 1
}

present() {
    case $1 in
    /*) [ -e "$1" ] ;;
    *) PATH=$PATH:/usr/sbin:/sbin command -v "$1" >/dev/null ;;
    esac
}

install_missing() {
    local need missing=()
    for need in "$@"; do
        present "${need%%:*}" || missing+=("${need##*:}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    [ "$(id -u)" = 0 ] || fail "missing: ${missing[*]}; run as root to install them"
    echo "Installing ${missing[*]} ..." >&2
    export DEBIAN_FRONTEND=noninteractive
    apt-get -q update >"$log" 2>&1 && apt-get -qy install --no-install-recommends "${missing[@]}" >"$log" 2>&1 ||
        fail "cannot install ${missing[*]}"
}

build_programs() {
    [ -e "$build/build.ninja" ] || echo "Building, once ..." >&2
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_TESTS=OFF >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}

own_programs=yes
for argument in "$@"; do
    case $argument in
    --build | --build=*) own_programs=no ;;
    --list | --help | -h) own_programs=never ;;
    esac
done

# shellcheck disable=SC2086 # lists of words
install_missing $RUN_NEEDS
if [ $own_programs = yes ]; then
    # shellcheck disable=SC2086
    install_missing $BUILD_NEEDS
    build_programs
    set -- --build "$build" "$@"
fi
rm -f "$log"
trap - EXIT
export PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m lab "$@"
