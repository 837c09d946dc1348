#!/bin/sh
# SPDX-License-Identifier: MIT
# Prints the link of every port of a switch that is driven by swconfig, as one JSON object, {"eth0":true,"eth1":false}. There
# a port's interface is a VLAN on the processor's own port, whose link never changes. Which port of the switch an interface
# belongs to stands in the option `switch_port` of its section in the package `switch`, else in `port`.
# It runs once a second, so it waits for no lock as `uci` does. The reader takes 512 bytes at most.

set -f
CONFIG=/etc/config/switch
SWITCH=switch0
LIMIT=512

links=$(swconfig dev "$SWITCH" show 2>/dev/null | sed -n 's/^[[:space:]]*link: *port:\([0-9]*\) link:up.*/ \1 /p')
json=

unquoted() {
    text=${1#[\"\']}
    text=${text%[\"\']}
}

# Appends the section that has been read.
add() {
    [ -n "$ifname" ] && [ -n "${chip:=$port}" ] || return 0
    case $links in
    *" $chip "*) link=true ;;
    *) link=false ;;
    esac
    more="$json${json:+,}\"$ifname\":$link"
    [ $((${#more} + 2)) -gt $LIMIT ] || json=$more
}

begin() {
    ifname='' port='' chip=''
}

begin
while read -r word name value || [ -n "$word" ]; do    # the last line may lack its end
    unquoted "$value"
    case "$word $name" in
    config*) add && begin ;;
    "option ifname" | "option 'ifname'") ifname=$text ;;
    "option port" | "option 'port'") port=$text ;;
    "option switch_port" | "option 'switch_port'") chip=$text ;;
    esac
done <"$CONFIG"
add
echo "{$json}"
