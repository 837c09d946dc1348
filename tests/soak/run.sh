#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Thousands of detection cycles in several virtual routers side by side, with everything going wrong around the daemon.
# tests/soak/run.sh [--build DIR] [--cycles 2000] [--labs 4] [--speed 10] [--seed N]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/prepare.sh"
exec /usr/bin/python3 "$root/tests/soak/soak.py" "$@"
