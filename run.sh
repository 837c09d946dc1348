#!/bin/bash
# SPDX-License-Identifier: MIT
# Shows the daemon at work on a virtual router: installs what is missing, builds, plays a scenario. Installing is for root,
# the rest for anybody.
# ./run.sh [SCENARIO] [--list] [--check] [--speed N] [--keep] [--log] [--build DIR]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$root/build/run
log=$(mktemp)
. "$root/.ci/packages.sh"
trap 'rm -f "$log"' EXIT
export PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1

run_needs=(python3 iproute2 dnsmasq-base pppoe udhcpc faketime iputils-arping iputils-ping)
build_needs=(cmake ninja-build g++ libjson-c-dev uthash-dev)

fail() {
    cat "$log" >&2
    echo "run.sh: $*" >&2
    exit 1
}

# A folder to build in; what a copied tree brings along was built for another place.
prepare_folder() {
    { mkdir -p "$build" && [ -w "$build" ]; } 2>/dev/null ||
        fail "cannot write to $build: copy the tree to a folder of your own, or name a build with --build"
    [ ! -e "$build/CMakeCache.txt" ] ||
        [ "$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$build/CMakeCache.txt")" -ef "$root" ] || rm -rf "${build:?}"/*
}

build_programs() {
    if [ ! -e "$build/build.ninja" ]; then
        /usr/bin/python3 -m lab "$@" --check || exit # nobody waits for a build that cannot be played
        echo "Building, once ..." >&2
    fi
    # Bundled, for the virtual router runs the bus daemon and the tools that come with those.
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LIBS=bundled \
        --compile-no-warning-as-error >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}

own_programs=yes needs=("${run_needs[@]}" "${build_needs[@]}")
for argument in "$@"; do
    case $argument in
    --build | --build=* | --check) own_programs=no needs=("${run_needs[@]}") ;;
    --list | --help | -h)
        own_programs=no needs=(python3)
        break
        ;;
    esac
done

install_packages "${needs[@]}" || exit 1
if [ $own_programs = yes ]; then
    prepare_folder
    build_programs "$@"
    set -- --build "$build" "$@"
fi
rm -f "$log"
trap - EXIT
exec /usr/bin/python3 -m lab "$@"
