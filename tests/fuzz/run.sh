#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fuzzes every decoder of foreign data, one after the other.
#
#   tests/fuzz/run.sh MINUTES [TARGET...]    the minutes are divided among the targets (all of them by default)
#
# New inputs stay in build/fuzz/fuzz-work/corpus and are where the next run begins. Ends with 1 when an input crashed.
set -uo pipefail
. "$(dirname "$0")/common.sh"

minutes=${1:?usage: run.sh MINUTES [TARGET...]}
shift
prepare_targets
[ $# -eq 0 ] || targets=("$@")
seconds=$((minutes * 60 / ${#targets[@]}))
[ "$seconds" -gt 0 ] || seconds=1

statistic() { # statistic NAME FIELD
    sed -n "s/^stat::$2: *//p" "logs/$1.log" | tail -n 1
}

progress() { # progress NAME FIELD: of the last line that tells
    grep -aoE "\b$2: [0-9]+" "logs/$1.log" | tail -n 1 | grep -oE '[0-9]+$'
}

crashed=0
printf '%-20s %12s %9s %8s %9s %9s %s\n' target executions exec/s edges features new-units crashes
for name in "${targets[@]}"; do
    mkdir -p "corpus/$name"
    folders=("corpus/$name" "$here/corpus/$name")
    [ -d "$here/regressions/$name" ] && folders+=("$here/regressions/$name")
    before=$(find "corpus/$name" -type f | wc -l)
    fuzz_target "$name" -max_total_time="$seconds" "${folders[@]}"
    status=$?
    found=$([ $status -eq 0 ] && echo 0 || echo 1)
    printf '%-20s %12s %9s %8s %9s %9s %s\n' "$name" "$(statistic "$name" number_of_executed_units)" \
        "$(statistic "$name" average_exec_per_sec)" "$(progress "$name" cov)" "$(progress "$name" ft)" \
        $(($(find "corpus/$name" -type f | wc -l) - before)) "$found"
    if [ $status -ne 0 ]; then
        crashed=1
        show_crash "$name"
    fi
done
exit $crashed
