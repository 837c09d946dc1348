#!/bin/bash
# SPDX-License-Identifier: MIT
# Measures the daemon: its probes, its costs at rest, the program's size. Installs what is missing, builds, tells.
# bench/run.sh [SECONDS to watch the idle daemon for, 60 unless told]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/bench
seconds=${1:-60}
log=$build/run.log

# A command or header that must be there, and the package that brings it.
NEEDS="python3:python3 ip:iproute2 dnsmasq:dnsmasq-base udhcpc:udhcpc cmake:cmake ninja:ninja-build g++:g++
       readelf:binutils strip:binutils size:binutils unshare:util-linux
       /usr/include/json-c/json.h:libjson-c-dev /usr/include/uthash.h:uthash-dev
       /usr/include/benchmark/benchmark.h:libbenchmark-dev"

say() { echo "$*" >&2; }

fail() {
    tail -n 40 "$log" >&2
    say "bench/run.sh: $*"
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
    for need in $NEEDS; do
        present "${need%%:*}" || missing+=("${need##*:}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing ${missing[*]} ..."
    export DEBIAN_FRONTEND=noninteractive
    apt-get -q update >"$log" 2>&1 || fail "cannot update the package lists"
    apt-get -qy install --no-install-recommends "${missing[@]}" >"$log" 2>&1 || fail "cannot install ${missing[*]}"
}

build_programs() {
    say "Building ..."
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_BENCH=ON -DWAN_DETECT_TESTS=OFF >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}

[ "$(id -u)" = 0 ] || { say "bench/run.sh: namespaces and packet sockets need root"; exit 2; }
mkdir -p "$build"
export PATH=$PATH:/usr/sbin:/sbin PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1
install_missing
build_programs
say "Timing the probes, about a minute ..."
"$build/bin/probe_bench" --benchmark_out="$build/probes.json" --benchmark_out_format=json >"$log" 2>&1 ||
    fail "the probes could not be timed"
say "Watching the idle daemon for $seconds s, after its start-up of 20 s ..."
/usr/bin/python3 -m bench.idle "$build" "$seconds" >"$build/idle.json" 2>"$log" ||
    fail "the idle daemon could not be watched"
/usr/bin/python3 -m bench.tables "$build"
