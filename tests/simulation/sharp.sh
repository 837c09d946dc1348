#!/bin/sh
# SPDX-License-Identifier: MIT
# Is the simulation sharp? Undoes mends of the daemon one at a time, and tells which check notices after how many lives.
exec python3 "$(dirname "$0")/sharp.py" "$@"
