#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every fuzz target on all kept inputs, and then a moment on new ones.
#
#   tests/fuzz/replay.sh [SECONDS]    of fuzzing per target, 3 by default; 0 replays only
#
# Ends with 1 when an input crashed.
set -uo pipefail
. "$(dirname "$0")/common.sh"

seconds=${1:-3}
prepare_targets

# check NAME ARGUMENTS...: one run of a target; false, and shown, when an input crashed.
check() {
    fuzz_target "$@" && return 0
    echo "$1: FAILED"
    show_crash "$1"
    return 1
}

failed=0
for name in "${targets[@]}"; do
    mapfile -t inputs < <(kept_inputs "$name")
    [ ${#inputs[@]} -gt 0 ] || { echo "$name: no seeds"; failed=1; continue; }
    check "$name" "${inputs[@]}" || { failed=1; continue; }
    executions=0
    if [ "$seconds" -gt 0 ]; then
        mkdir -p "corpus/$name"
        check "$name" -max_total_time="$seconds" "corpus/$name" "$here/corpus/$name" || { failed=1; continue; }
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "logs/$name.log")
    fi
    printf '%-20s ok, %4d kept inputs, %8d executions\n' "$name" ${#inputs[@]} "$executions"
done
exit $failed
