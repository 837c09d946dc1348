#!/bin/sh
# SPDX-License-Identifier: MIT
# Prints the link of every Ethernet port as one JSON object, {"eth0":true,"eth1":false}.
# It runs once a second: nothing but the shell itself is started. The reader takes 512 bytes at most.

LIMIT=512
json=
for dir in /sys/class/net/eth*; do
    name=${dir##*/}
    case ${name#eth} in
    '' | *[!0-9]*) continue ;; # a VLAN on a port, or no port at all
    esac
    carrier=0
    # The kernel refuses to tell the carrier of a port that is administratively down.
    { read -r carrier <"$dir/carrier"; } 2>/dev/null
    [ "$carrier" = 1 ] && link=true || link=false
    more="$json${json:+,}\"$name\":$link"
    [ $((${#more} + 2)) -le $LIMIT ] || break
    json=$more
done
echo "{$json}"
