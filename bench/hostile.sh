#!/bin/bash
# SPDX-License-Identifier: MIT
# Floods the ports of the virtual router while the daemon probes them, in real time, about five minutes: every kind of flood on
# all ports at once and on each port alone. Prints what was found and what it cost; status 0 only when every answer was found
# and every limit held.
# bench/hostile.sh [FOLDER of the programs to look at instead of a fresh build]
set -uo pipefail

name=hostile
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

prepare
cd "$root" || exit 1
result=0
for scenario in hostile-full hostile-static-full; do
    /usr/bin/python3 -m lab "$scenario" --speed 1 --time-limit 900 --build "${1:-$build}" --report "$build/$scenario.json" || result=1
done
exit $result
