#!/bin/bash
# SPDX-License-Identifier: MIT
# Measures the daemon: its probes, its costs at rest, the program's size. Installs what is missing, builds, tells.
# bench/run.sh [SECONDS to watch the idle daemon for, 60 unless told]
set -euo pipefail

name=run
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
seconds=${1:-60}

prepare
say "Timing the probes, about two minutes ..."
"$build/bin/probe_bench" --benchmark_out="$build/probes.json" --benchmark_out_format=json >"$log" 2>&1 ||
    fail "the probes could not be timed"
say "Watching the idle daemon for $seconds s, after its start-up of 20 s ..."
/usr/bin/python3 -m bench.idle "$build" "$seconds" >"$build/idle.json" 2>"$log" ||
    fail "the idle daemon could not be watched"
/usr/bin/python3 -m bench.tables "$build"
