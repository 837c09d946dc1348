#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every fuzz target on all kept inputs, and then a moment on new ones: always the same ones, so that a change is not
# blamed for what fuzzing would have found before it.
#
#   tests/fuzz/replay.sh [SECONDS]    of fuzzing per target, 1 by default; 0 replays only
#
# Ends with 1, and names the input, when one crashed.
set -uo pipefail
. "$(dirname "$0")/common.sh"

seconds=${1:-1}
prepare_targets

replay() {
    local name=$1 folders inputs executions=0
    mapfile -t folders < <(kept_folders "$name")
    mapfile -t inputs < <(find "${folders[@]:-none}" -type f 2>/dev/null | sort)
    [ ${#inputs[@]} -gt 0 ] || { echo "$name: no seeds"; return 1; }
    fuzz_target "$name" "${inputs[@]}" || { show_crash "$name"; return 1; }
    if [ "$seconds" -gt 0 ]; then
        rm -rf "scratch/$name"
        mkdir -p "scratch/$name"
        fuzz_target "$name" -seed=1 -max_total_time="$seconds" "scratch/$name" "${folders[@]}" ||
            { show_crash "$name"; return 1; }
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "logs/$name.log")
    fi
    printf '%-20s ok, %4d kept inputs, %8d executions\n' "$name" ${#inputs[@]} "$executions"
}

on_all replay "${targets[@]}"
