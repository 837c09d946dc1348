#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# How much of the daemon the tests run through: builds it with counters, runs the unit tests and the virtual router's
# scenarios, and prints the lines covered per room, then what no test ran through. Fails when a test fails, when a room or
# the whole is below its bound, or when a function that nothing calls has no reason in tests/coverage_exceptions.txt.
# Needs Debian and root; installs what is missing. Everything it writes is in build/coverage.
#
#   tests/coverage.sh          all tests
#   tests/coverage.sh unit     unit tests only: quicker, and judged by no bound, for some code only runs in the router
#   tests/coverage.sh report   the figures of the last run once more
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
build=$root/build/coverage
jobs=$(nproc)
rooms=(platform model probes status core)
what=${1:-all}

case $what in
all | unit | report) ;;
*) echo "coverage.sh: not '$what'; all, unit or report" >&2; exit 2 ;;
esac

report() { # report OPTION...
    /usr/bin/python3 tests/coverage_report.py "$@" --build "$build" --exceptions tests/coverage_exceptions.txt
}

# Counters are added up by every process of the daemon, by its threads at once, and only for the daemon's own code.
configure() {
    local counters="--coverage -fprofile-update=atomic '-fprofile-exclude-files=/(tests|compat|lab)/'"
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O0" -DCMAKE_CXX_FLAGS="$counters" \
        -DCMAKE_C_FLAGS="$counters" -DWAN_DETECT_LIBS=bundled
}

build_programs() {
    local room targets=(wan_detect ubusd ubus uci lab/all)
    for room in "${rooms[@]}"; do
        targets+=("tests/unit/$room/all")
    done
    cmake --build "$build" -j "$jobs" --target "${targets[@]}"
}

unit_tests() {
    local room failed=0
    for room in "${rooms[@]}"; do
        ctest --test-dir "$build/tests/unit/$room" -j "$jobs" --timeout 300 --output-on-failure -Q \
            -O "$build/unit-$room.log" || failed=1
        sed -n '/tests passed/,$p' "$build/unit-$room.log"
    done
    return $failed
}

scenarios() {
    /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/lab --build "$build"
}

if [ "$what" = report ]; then
    report
    exit
fi

[ "$(id -u)" -eq 0 ] || { echo "coverage.sh: needs root (network namespaces, raw sockets)" >&2; exit 1; }
. .ci/packages.sh
packages=(g++ cmake ninja-build libjson-c-dev uthash-dev libgtest-dev iproute2 python3)
[ "$what" = unit ] || packages+=(dnsmasq-base pppoe udhcpc faketime iputils-arping iputils-ping python3-pytest valgrind)
install_packages "${packages[@]}"

mkdir -p "$build"
{ configure && build_programs; } >"$build/build.log" 2>&1 || { tail -n 60 "$build/build.log" >&2; exit 1; }
find "$build" -name '*.gcda' -delete

failed=0
unit_tests || failed=1
if [ "$what" = all ]; then
    scenarios || failed=1
    report || failed=1
else
    report --unbound
fi
[ $failed -eq 0 ] || echo "coverage.sh: failed" >&2
exit $failed
