#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Asks the daemon to end at random moments of its life, in several virtual routers side by side.
# tests/soak/shutdown.sh [--build DIR] [--times 1000] [--labs 4] [--speed 10] [--seed N]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/prepare.sh"
exec /usr/bin/python3 "$root/tests/soak/shutdown.py" "$@"
