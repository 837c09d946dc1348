#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fuzzes every decoder of foreign data.
#
#   tests/fuzz/run.sh [--merge] [--coverage] MINUTES [TARGET...]
#
#   MINUTES      divided among the targets, all of them by default; 0 with one of the options only does what that says
#   --merge      afterwards, tests/fuzz/grown becomes the fewest inputs that reach everything that was ever reached
#   --coverage   tells how many lines of each target's decoders its inputs reach (needs the package llvm-14)
#
# New inputs stay in build/fuzz/fuzz-work/corpus and are where the next run begins. Ends with 1 when an input crashed.
# FUZZ_JOBS says how many targets run at a time, as many as there are processors by default.
set -uo pipefail
. "$(dirname "$0")/common.sh"

usage() { sed -n '3,/^set/s/^# \{0,1\}//p' "$0" >&2; exit 2; }

merge=0 coverage=0
while [[ ${1:-} == --* ]]; do
    case $1 in
    --merge) merge=1 ;;
    --coverage) coverage=1; packages+=(llvm-14) ;;
    *) usage ;;
    esac
    shift
done
minutes=${1:-}
[[ $minutes =~ ^[0-9]+$ ]] || usage
shift
prepare_targets
[ $# -eq 0 ] || targets=("$@")
seconds=$((minutes * 60 * jobs / ${#targets[@]}))

statistic() { # statistic NAME FIELD
    sed -n "s/^stat::$2: *//p" "logs/$1.log" | tail -n 1
}

progress() { # progress NAME FIELD: of the last line that tells
    grep -aoE "\b$2: [0-9]+" "logs/$1.log" | tail -n 1 | grep -oE '[0-9]+$'
}

inputs_in() {
    find "$@" -type f 2>/dev/null | wc -l
}

run() {
    local name=$1 folders before status=0
    mkdir -p "corpus/$name"
    mapfile -t folders < <(kept_folders "$name")
    before=$(inputs_in "corpus/$name")
    fuzz_target "$name" -max_total_time="$seconds" "corpus/$name" "${folders[@]}" || status=1
    printf '%-20s %12s %9s %8s %9s %9s %7s\n' "$name" "$(statistic "$name" number_of_executed_units)" \
        "$(statistic "$name" average_exec_per_sec)" "$(progress "$name" cov)" "$(progress "$name" ft)" \
        $(($(inputs_in "corpus/$name") - before)) "$status"
    [ "$status" -eq 0 ] || show_crash "$name"
    return "$status"
}

# Inputs over this size are not worth their place in the tree.
largest_kept=4096

merge() {
    local name=$1 folder=$fuzz/grown/$1 folders input
    rm -rf "merged/$name"
    mkdir -p "merged/$name" "corpus/$name"
    mapfile -t folders < <(kept_folders "$name")
    fuzz_target "$name" -set_cover_merge=1 -max_len="$largest_kept" "merged/$name" "corpus/$name" "${folders[@]}" || { show_crash "$name"; return 1; }
    # What is a seed or a regression already is not kept a second time.
    for input in "kept/corpus/$name"/* "kept/regressions/$name"/*; do
        [ ! -f "$input" ] || rm -f "merged/$name/$(sha1sum <"$input" | cut -d ' ' -f 1)"
    done
    rm -rf "$folder"
    mkdir -p "$folder"
    find "merged/$name" -type f -exec cp -t "$folder" {} +
    printf '%-20s %5d inputs, %7d bytes\n' "$name" "$(inputs_in "$folder")" \
        "$(find "$folder" -type f -exec cat {} + | wc -c)"
}

# decoders_of NAME: the files it is there for.
decoders_of() {
    case $1 in
    dhcp_answer) echo probes/discovery/{dhcp_frames,dhcp_discovery,discovery}.cpp ;;
    pado) echo probes/discovery/{pppoe_frames,pppoe_discovery,discovery}.cpp ;;
    arp_frame) echo probes/arp/arp_{frames,batch,search}.cpp probes/lan/lan_hosts.cpp ;;
    dns_answer) echo probes/dns/dns_{probe,frames,receive}.cpp ;;
    frame_streams) echo probes/discovery/{discovery,dhcp_frames,dhcp_discovery,pppoe_frames,pppoe_discovery}.cpp \
        probes/arp/arp_{probe,search}.cpp probes/dns/dns_{probe,receive}.cpp probes/wire/packet_socket.h ;;
    arp_cache) echo probes/lan/arp_table.cpp ;;
    forwarding_records) echo probes/lan/{bridge_table,lan_hosts}.cpp ;;
    port_state) echo core/link_scan.cpp ;;
    combo_state) echo adapters/link_status.cpp ;;
    config_files | config_values) echo model/{port_config,protocol_config,static_config,switch_attributes}.cpp \
        model/{reserved_ports,current_wan,fake_wan,config_text}.cpp platform/uci_access.cpp ;;
    network_status) echo adapters/network_status.cpp ;;
    options) echo core/options.cpp ;;
    bus_methods) echo adapters/{bus_object,state_object,state_report,state_reasons}.cpp model/banned.cpp ;;
    bus_replies) echo adapters/network_status.cpp ;;
    status_picture) echo status/{picture,panel,page,form,fields,words,json_text}.cpp ;;
    bus_session) echo platform/{bus,bus_call}.cpp adapters/bus_object.cpp ;;
    engine_events) echo core/{engine,candidates,cycle_start,cycle_end,proto_stage,confirm_stages}.cpp \
        core/{link_change,link_scan,combo_switch}.cpp adapters/wan_switch.cpp ;;
    blob) echo compat/libubox/{blob_parse,blobmsg_parse,blob_to_json}.cpp ;;
    json_to_blob) echo compat/libubox/{json_to_blob,blob_to_json,blobmsg_builder}.cpp ;;
    bus_client) echo compat/libubus/{connection,context,request,serve,event,object,pending,call,message,frame}.cpp \
        compat/libubus/{notification,subscriber}.cpp ;;
    bus_daemon) echo compat/libubus/ubusd/{client,events,ids,objects,requests,subscriptions,transmit}.cpp ;;
    config_parser) echo compat/libuci/{config_parser,line_reader,export,names}.cpp ;;
    config_path) echo compat/libuci/{lookup,edit,tree}.cpp ;;
    config_batch) echo compat/libuci/cli/{change,input,show}.cpp ;;
    config_delta) echo compat/libuci/{delta,delta_line,load,commit}.cpp ;;
    esac
}

# The same targets in a build that counts lines; the name stands before what the tool says of all the files.
cover() {
    local name=$1 folders report
    mapfile -t folders < <(kept_folders "$name")
    mkdir -p "corpus/$name" "logs/coverage"
    LLVM_PROFILE_FILE="profiles/$name" programs=$build-coverage fuzz_target "$name" -runs=0 "corpus/$name" \
        "${folders[@]}" || { show_crash "$name"; return 1; }
    llvm-profdata-14 merge -o "profiles/$name.data" "profiles/$name" || return 1
    report=$(cd "$root" && llvm-cov-14 report "$build-coverage/bin/${name}_fuzz" \
        -instr-profile="$work/profiles/$name.data" $(decoders_of "$name")) || return 1
    echo "$report" >"logs/coverage/$name.txt"
    awk -v name="$name" '$1 == "TOTAL" { printf "%-20s %5d lines, %3d not reached, %s\n", name, $8, $9, $10 }' <<<"$report"
}

result=0
if [ "$minutes" -gt 0 ]; then
    printf '%-20s %12s %9s %8s %9s %9s %7s\n' target executions exec/s edges features new-units crashes
    on_all run "${targets[@]}" || result=1
fi
if [ $merge -eq 1 ]; then
    on_all merge "${targets[@]}" || result=1
fi
if [ $coverage -eq 1 ]; then
    mkdir -p profiles
    quietly build-coverage build_targets "$build-coverage" "-fprofile-instr-generate -fcoverage-mapping"
    on_all cover "${targets[@]}" || result=1
    echo "per file: $work/logs/coverage/"
fi
exit $result
