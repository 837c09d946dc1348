#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The daemon on the libubox, libubus and libuci that a router has, installed below PREFIX together with their programs
# ubusd, ubus and uci: builds it against them, and runs the unit tests and the virtual router's scenarios on them. The
# tests of the stand-ins are not among them. Cases that cannot hold there stand in tests/real_libraries_exceptions.txt;
# anything else that fails, fails this. Needs Debian and root; installs what is missing. Everything it writes is in
# build/real.
#
#   tests/real_libraries.sh PREFIX         unit tests and scenarios
#   tests/real_libraries.sh PREFIX unit    unit tests only
#   tests/real_libraries.sh PREFIX lab     scenarios only
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
build=$root/build/real
logs=$build/logs
. "$root/.ci/quietly.sh"
jobs=$(nproc)
libraries=(libubox libubus libuci libblobmsg_json)

usage() {
    echo "usage: tests/real_libraries.sh PREFIX [unit|lab]" >&2
    exit 2
}

if [ $# -lt 1 ] || [ $# -gt 2 ]; then usage; fi
what=${2:-all}
case $what in
all | unit | lab) ;;
*) usage ;;
esac
prefix=$(cd "$1" 2>/dev/null && pwd) || fail "there is no folder $1"
[ "$(id -u)" -eq 0 ] || fail "needs root (network namespaces, raw sockets)"

# The folders below PREFIX that hold the libraries, as the loader wants them.
library_folders() {
    local library
    for library in "${libraries[@]}"; do
        find "$prefix" -name "$library.so*" -printf '%h\n'
    done | sort -u | paste -sd:
}

find_program() {
    local folder
    for folder in sbin bin usr/sbin usr/bin; do
        [ -x "$prefix/$folder/$1" ] && { echo "$prefix/$folder/$1"; return; }
    done
    fail "there is no $1 below $prefix"
}

# Libraries that are needed by libraries only are found through the program's own path when that is of the older kind.
build_daemon() {
    cmake --fresh -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DWAN_DETECT_LIBS=system \
        -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_EXE_LINKER_FLAGS=-Wl,--disable-new-dtags &&
        cmake --build "$build" -j "$jobs"
}

# In the places where a build with the stand-ins has its own.
install_programs() {
    local program path
    for program in ubusd ubus uci; do
        path=$(find_program "$program")
        rm -f "$build/bin/$program"
        cp "$path" "$build/bin/$program"
        patchelf --force-rpath --set-rpath "$1" "$build/bin/$program"
    done
}

# What runs must be PREFIX's own, not something that this machine happens to have.
check_libraries() {
    local program strangers
    for program in wan_detect lab_network_interface ubusd ubus uci; do
        strangers=$(ldd "$build/bin/$program" | grep -E 'lib(ubox|ubus|uci|blobmsg_json)\.so|not found' |
            grep -vF "=> $prefix/" || true)
        [ -z "$strangers" ] || fail "$program does not run on the libraries below $prefix: $strangers"
    done
}

. .ci/packages.sh
mkdir -p "$build/logs"
quietly packages install_packages g++ cmake ninja-build libjson-c-dev uthash-dev libgtest-dev iproute2 dnsmasq-base pppoe \
    udhcpc faketime iputils-arping iputils-ping python3 python3-pytest valgrind patchelf
library_path=$(library_folders)
[ -n "$library_path" ] || fail "there is no ${libraries[0]} below $prefix"
echo "Building the daemon for the libraries below $prefix ..."
quietly build build_daemon
quietly programs install_programs "$library_path"
check_libraries

play() { # play PYTEST-ARGUMENTS...: what fails is for the report to tell
    /usr/bin/python3 -m pytest -q -p no:cacheprovider "$@" --build "$build" >>"$build/logs/lab.log" 2>&1 || true
}

results=()
rm -f "$build"/unit.xml "$build"/lab.xml "$build"/floods.xml "$build"/logs/lab.log
if [ "$what" != lab ]; then
    echo "Running the unit tests ..."
    ctest --test-dir "$build" -j "$jobs" --timeout 300 --output-on-failure -Q -O "$build/logs/unit.log" \
        --output-junit "$build/unit.xml" || true
    results+=(--unit "$build/unit.xml")
fi
if [ "$what" != unit ]; then
    echo "Playing the scenarios ..."
    # Three labs for each processor, which wait most of the time; floods have the machine to themselves.
    play tests/lab --ignore tests/lab/test_hostile.py --junitxml "$build/lab.xml" --labs $((3 * jobs))
    play tests/lab/test_hostile.py --junitxml "$build/floods.xml"
    results+=(--lab "$build/lab.xml" --lab "$build/floods.xml")
fi
/usr/bin/python3 tests/real_libraries_report.py "${results[@]}" --exceptions tests/real_libraries_exceptions.txt ||
    fail "more in $build/logs"
