#!/bin/bash
# SPDX-License-Identifier: MIT
# Measures the daemon: its probes, its costs at rest, the program's size. Installs what is missing, builds, tells.
# bench/run.sh [SECONDS to watch the idle daemon for, 60 unless told]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/bench
seconds=${1:-60}
log=$build/run.log

. "$root/.ci/packages.sh"
needs=(python3 iproute2 dnsmasq-base udhcpc cmake ninja-build g++ binutils libjson-c-dev uthash-dev libbenchmark-dev)

say() { echo "$*" >&2; }

fail() {
    tail -n 40 "$log" >&2
    say "bench/run.sh: $*"
    exit 1
}

build_programs() {
    say "Building ..."
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_BENCH=ON -DWAN_DETECT_TESTS=OFF \
        -DWAN_DETECT_LIBS=bundled >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}

[ "$(id -u)" = 0 ] || { say "bench/run.sh: namespaces and packet sockets need root"; exit 2; }
mkdir -p "$build"
export PATH=$PATH:/usr/sbin:/sbin PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1
install_packages "${needs[@]}" >"$log" || fail "cannot install what it needs"
build_programs
say "Timing the probes, about a minute ..."
"$build/bin/probe_bench" --benchmark_out="$build/probes.json" --benchmark_out_format=json >"$log" 2>&1 ||
    fail "the probes could not be timed"
say "Watching the idle daemon for $seconds s, after its start-up of 20 s ..."
/usr/bin/python3 -m bench.idle "$build" "$seconds" >"$build/idle.json" 2>"$log" ||
    fail "the idle daemon could not be watched"
/usr/bin/python3 -m bench.tables "$build"
