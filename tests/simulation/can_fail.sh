#!/bin/sh
# Each life in can_fail/ has the world do in the daemon's name what must never be: the check that it names in its first
# line has to fail. Usage: can_fail.sh SIMULATE
# SPDX-License-Identifier: MIT
simulate=$1
here=$(dirname "$0")/can_fail
missed=0
for life in "$here"/*.life; do
    wanted=$(sed -n 's/^# fails: //p' "$life")
    told=$("$simulate" --life "$life")
    case $told in
    *"FAILED: $wanted"*) ;;
    *)
        echo "$life: wanted \"$wanted\", and got: $told"
        missed=$((missed + 1))
        ;;
    esac
done
echo "$(ls "$here"/*.life | wc -l) lives with a wrong deed, $missed of them passed or failed in another way"
[ "$missed" -eq 0 ]
