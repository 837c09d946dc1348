#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Plays the daemon's lives in simulated time (tests/simulation/README.md), and builds what that needs.
#
#   tests/simulate.sh MINUTES          as many lives as there is time for, on all processors, from a fresh seed
#   tests/simulate.sh --short          what ./test.sh runs: kept lives and lives that must fail, each twice, lives as in the lab, the first 2,000 seeds and fresh ones
#   tests/simulate.sh --seed N         one life again, with its timeline
#   tests/simulate.sh --life FILE      the same for one that was written down
#   tests/simulate.sh OPTIONS...       anything else is for the program
#
# --build FOLDER in front plays the program there, which is built if it can be; build/simulation by default. --asan in front:
# in a build with Clang's address and undefined behaviour sanitizers. Ends with 1 when a life failed; the first one is told.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

folder=build/simulation
# As it ships, but without what a debugger reads, and the sources of a room as one: half of the time.
options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG" -DCMAKE_UNITY_BUILD=ON
    -DCMAKE_UNITY_BUILD_BATCH_SIZE=0)
jobs=$(nproc)
fixed_seed=1

usage() {
    sed -n '3,/^set/s/^# \{0,1\}//p' "$0" >&2
    exit 2
}

case ${1:-} in
--build)
    [ -n "${2:-}" ] || usage
    folder=$2
    shift 2
    ;;
--asan)
    folder=build/simulation-asan
    options=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1" "-DWAN_DETECT_SANITIZE=address,undefined"
        -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14)
    export ASAN_OPTIONS=use_sigaltstack=0 # a detached thread's end trips over that stack in Clang 14
    shift
    ;;
esac
[ $# -gt 0 ] || usage

build() {
    [ -e "$folder/build.ninja" ] || cmake -S . -B "$folder" -G Ninja "${options[@]}" -DWAN_DETECT_LIBS=bundled \
        -DWAN_DETECT_SHARED_HEADERS=ON -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LAB=OFF -DWAN_DETECT_SIMULATION=ON || return 1
    cmake --build "$folder" --target simulation -j "$jobs"
}

simulate() { # simulate OPTIONS...: when one of many lives failed, its timeline comes below
    local told status seed
    told=$(mktemp) || return 1
    "$folder/bin/simulate" "$@" | tee "$told"
    status=$?
    seed=$(sed -n 's/^seed \([0-9]*\): FAILED.*/\1/p' "$told" | head -n 1)
    rm -f "$told"
    [ $status -eq 0 ] && return 0
    [ -z "$seed" ] || {
        printf -- '---- the end of the first that failed (tests/simulate.sh --seed %s)\n' "$seed"
        "$folder/bin/simulate" --seed "$seed" --timeline | tail -n 60
    }
    return 1
}

short() {
    local failed=0
    "$folder/bin/simulate" --regressions tests/simulation/regressions || failed=1
    "$folder/bin/simulate" --regressions tests/simulation/can_fail || failed=1
    tests/simulation/both.py --simulate "$folder/bin/simulate" --kept || failed=1
    simulate --jobs "$jobs" --lives 2000 --from $fixed_seed || failed=1
    simulate --jobs "$jobs" --seconds 3 || failed=1
    return $failed
}

log=$folder.log
mkdir -p "$(dirname "$folder")"
build >"$log" 2>&1 || {
    tail -n 40 "$log" >&2
    exit 1
}
case $1 in
--short) short ;;
--seed | --life) [ $# -ne 2 ] || set -- "$@" --timeline; "$folder/bin/simulate" "$@" ;;
--*) simulate "$@" ;;
*[!0-9.]*) usage ;;
*) simulate --jobs "$jobs" --minutes "$1" ;;
esac
