#!/bin/bash
# SPDX-License-Identifier: MIT
# Shows the daemon at work on a virtual router: installs what is missing, builds, plays a scenario.
# ./run.sh [SCENARIO] [--list] [--speed N] [--keep] [--log] [--build DIR]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$root/build/run
log=$(mktemp)
. "$root/.ci/packages.sh"
trap 'rm -f "$log"' EXIT

run_needs=(python3 iproute2 dnsmasq-base pppoe udhcpc faketime iputils-arping iputils-ping)
build_needs=(cmake ninja-build g++ libjson-c-dev uthash-dev)

fail() {
    cat "$log" >&2
    echo "run.sh: $*" >&2
    exit 1
}

install_needs() {
    install_packages "$@" >"$log" || fail "cannot install what it needs"
}

build_programs() {
    [ -e "$build/build.ninja" ] || echo "Building, once ..." >&2
    # Bundled, for the virtual router runs the bus daemon and the tools that come with those.
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LIBS=bundled >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}

own_programs=yes
for argument in "$@"; do
    case $argument in
    --build | --build=*) own_programs=no ;;
    --list | --help | -h)
        own_programs=no
        run_needs=(python3)
        ;;
    esac
done

install_needs "${run_needs[@]}"
if [ $own_programs = yes ]; then
    install_needs "${build_needs[@]}"
    build_programs
    set -- --build "$build" "$@"
fi
rm -f "$log"
trap - EXIT
export PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m lab "$@"
