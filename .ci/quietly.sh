# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# How the scripts of this tree that take long say what went wrong; they source it.

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# quietly NAME COMMAND...: its output goes to NAME.log in the folder $logs; the end of it is shown, and the script ends, when it
# fails.
quietly() {
    local log=${logs:?}/$1.log
    shift
    "$@" >"$log" 2>&1 || { tail -n 60 "$log" >&2; fail "failed: $*"; }
}
