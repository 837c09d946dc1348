#!/bin/sh
# SPDX-License-Identifier: MIT
# A network manager, as much of it as a move of the WAN role sees: gives the LAN bridge the members that the committed
# configuration names, and no others.
#
#   manager.sh              once
#   manager.sh FOLDER       at each line of the pipe FOLDER/ask, which it answers in FOLDER/answer, until it is ended
set -f
BRIDGE=br-lan

members() {
    uci -q get "/etc/config/$(uci -q show /etc/config/network | sed -n "s/\.name='$BRIDGE'\$//p").ports"
}

reload() {
    wanted=" $(members) "
    for port in $(find /sys/class/net/$BRIDGE/brif/ -type l | sed 's|.*/||'); do
        case $wanted in *" $port "*) ;; *) ip link set dev "$port" nomaster ;; esac
    done
    for port in $wanted; do
        [ -d "/sys/class/net/$BRIDGE/brif/$port" ] || ip link set dev "$port" master $BRIDGE
    done
}

[ $# -gt 0 ] || { reload && exit; }
while read -r _ <"$1/ask"; do
    reload
    echo reloaded >"$1/answer"
done
