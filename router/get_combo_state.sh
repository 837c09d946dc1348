#!/bin/sh
# SPDX-License-Identifier: MIT
# get_combo_state.sh portN: prints which media of a combo port have a link and which one its SerDes serves, as JSON.
# The platform's driver keeps three one-word files per port: phy and sfp hold 1 or 0, serdes holds phy or sfp.

DRIVER=${COMBO_DRIVER:-/var/run/combo}
dir=$DRIVER/$1

attribute() {
    value=
    { read -r value || [ -n "$value" ]; } 2>/dev/null <"$dir/$1" || value=
}

link() {
    attribute "$1"
    if [ "$value" = 1 ]; then value=true; else value=false; fi
}

case $1 in
port*) [ -d "$dir" ] || { echo "${0##*/}: $1 is no combo port" >&2; exit 1; } ;;
*) echo "usage: ${0##*/} port<number>" >&2; exit 1 ;;
esac

link phy
phy=$value
link sfp
sfp=$value
attribute serdes
[ "$value" = sfp ] || value=phy
echo "{\"phy\":$phy,\"sfp\":$sfp,\"serdes\":\"$value\"}"
