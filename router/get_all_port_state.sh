#!/bin/sh
# SPDX-License-Identifier: MIT
# Prints the link of every Ethernet port as one JSON object, {"eth0":true,"eth1":false}. A port begins with a word of
# network.auto_wan_detect.port_prefix, which spaces part; where there is none, it is "eth" and a number.
# It runs once a second: the daemon tells it the words, and nothing but the shell itself is started. By hand they are looked
# up, without waiting for a lock as `uci` does. The reader takes 512 bytes at most.

set -f
IFS=' '
CONFIG=/etc/config/network
LIMIT=512
NEWLINE='
'

look_up_prefixes() {
    quote="[\"']\\{0,1\\}"
    blank='[[:space:]]'
    some=$blank'\{1,\}'
    section="^$blank*config${some}[^[:space:]]*$some${quote}auto_wan_detect${quote}$blank*\\(#.*\\)\\{0,1\\}\$"
    prefixes=$(sed -n "/$section/,/^$blank*config$blank/\
s/^$blank*option$some${quote}port_prefix$quote$some$quote\\([^\"']*\\).*/\\1 /p" "$CONFIG" 2>/dev/null)
    prefixes=${prefixes##*"$NEWLINE"} # of several the last one counts, as for `uci`
}

if [ "${WAN_DETECT_PORT_PREFIX+told}" ]; then
    prefixes=$WAN_DETECT_PORT_PREFIX
else
    look_up_prefixes
fi
case $prefixes in
*[!' ']*) ;;
*) prefixes= ;;
esac
json=

# add PORT: false where the reader would not take it any more.
add() {
    carrier=0
    # The kernel refuses to tell the carrier of a port that is administratively down.
    { read -r carrier <"/sys/class/net/$1/carrier"; } 2>/dev/null
    [ "$carrier" = 1 ] && link=true || link=false
    more="$json${json:+,}\"$1\":$link"
    [ $((${#more} + 2)) -le $LIMIT ] || return 1
    json=$more
}

for prefix in ${prefixes:-eth}; do
    set +f
    for dir in "/sys/class/net/$prefix"*; do
        name=${dir##*/}
        case $name in
        *.*) continue ;; # a VLAN on a port
        esac
        case $prefixes:$name in
        :eth*[!0-9]*) continue ;; # no port at all
        esac
        [ ! -d "$dir" ] || add "$name" || break 2
    done
    set -f
done
echo "{$json}"
