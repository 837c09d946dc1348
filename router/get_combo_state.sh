#!/bin/sh
# SPDX-License-Identifier: MIT
# get_combo_state.sh portN: prints which media of a combo port have a link and which one its SerDes serves, as JSON.
# The platform's driver keeps three one-word files per port: phy and sfp hold 1 or 0, serdes holds phy or sfp.

set -f
DRIVER=/var/run/combo
dir=$DRIVER/$1

attribute() {
    value=
    { read -r value || [ -n "$value" ]; } 2>/dev/null <"$dir/$1" || value=
}

link() {
    attribute "$1"
    if [ "$value" = 1 ]; then value=true; else value=false; fi
}

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

case $1 in
port*[!0-9]*) fail "usage: ${0##*/} port<number>" ;;
port[0-9]*) [ -d "$dir" ] || fail "$1 is no combo port" ;;
*) fail "usage: ${0##*/} port<number>" ;;
esac

link phy
phy=$value
link sfp
sfp=$value
attribute serdes
[ "$value" = sfp ] || value=phy
echo "{\"phy\":$phy,\"sfp\":$sfp,\"serdes\":\"$value\"}"
