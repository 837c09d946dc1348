// SPDX-License-Identifier: MIT
#include "core/proto_stage.h"

#include "core/candidates.h"
#include "core/cycle.h"
#include "core/hints.h"
#include "core/link_scan.h"
#include "core/retries.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/dumps.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/lan/lan_hosts.h"

// The parts of the stage's callbacks speak in their names.
constexpr const char *SEND = "uloop_proto_detect_start";
constexpr const char *COLLECT = "uloop_proto_detect_end";
constexpr const char *VERDICT = "uloop_wan_detect_using_proto_detect";
constexpr const char *SORTING = "remove_specific_proto_dev_from_list";

static t_protocol *dhcp_protocol()
{
    return find_protocol(port_model.proto_hashmap_head, "dhcp");
}

static void forget_recorded_protocols(t_device *only)
{
    if (only)
        set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, only, nullptr, nullptr,
                                     nullptr);
    else
        clear_all_dev_proto(&port_model);
}

static void send_probes_now()
{
    uloop_timeout_set(&engine.proto_detect_start, 0);
}

static void collect_in(int delay_ms)
{
    uloop_timeout_set(&engine.proto_detect_end, delay_ms);
}

int start_proto_detect(const t_proto_detect_request *request)
{
    LOG_ENTER();
    if (stage_is_taken()) {
        LOG(Error, "A instace is running protocol detection! Not allowed detect protocol now!\n");
        return ERR_BUSY;
    }
    begin_retries_anew();
    engine.proto_detect_timeout_ms = static_cast<uint32_t>(request->timeout_ms);
    engine.proto_detect_dev = request->dev;
    engine.proto_detect_target = request->protocol;
    take_stage(t_stage_owner::request);
    delete_file(PROTO_RESULT_FILE);
    refresh_reserved_ports();
    update_eth_link_status(port_model.dev_hashmap_head);
    update_brlan_dev(&port_model);
    update_banned_device_list(&port_model.banned_list);
    forget_recorded_protocols(engine.proto_detect_dev);
    send_probes_now();
    return OK;
}

void start_cycle_proto_stage()
{
    engine.proto_detect_dev = nullptr;
    engine.proto_detect_target = wanted_protocol();
    engine.proto_detect_timeout_ms = CYCLE_STAGE_TIMEOUT_MS;
    begin_probing();
    delete_file(PROTO_RESULT_FILE);
    forget_recorded_protocols(nullptr);
    send_probes_now();
}

static void ask_all_ports(bool want_dhcp, bool want_pppoe)
{
    if (want_dhcp && ask_linked_ports(dhcp_discovery, &port_model) != OK)
        LOG_AS(SEND, Error, "Error sending dhcp discovery packet\n");
    if (want_pppoe && ask_linked_ports(pppoe_discovery, &port_model) != OK)
        LOG_AS(SEND, Error, "Error sending pppoe discovery packet\n");
}

// False when nothing went out at all.
static bool ask_port(t_device *dev, bool want_dhcp, bool want_pppoe)
{
    const bool dhcp_failed = want_dhcp && ask_one_port(dhcp_discovery, dev) != OK;
    const bool pppoe_failed = want_pppoe && ask_one_port(pppoe_discovery, dev) != OK;
    if (dhcp_failed && pppoe_failed)
        LOG_AS(SEND, Error, "Error sending dhcp discovery & pppoe discovery packet via dev:%s\n", dev->name);
    else if (dhcp_failed && !want_pppoe)
        LOG_AS(SEND, Error, "Error sending dhcp discovery packet via dev:%s\n", dev->name);
    else if (pppoe_failed && !want_dhcp)
        LOG_AS(SEND, Error, "Error sending pppoe discovery packet via dev:%s\n", dev->name);
    return dhcp_failed != want_dhcp || pppoe_failed != want_pppoe;
}

void uloop_proto_detect_start(uloop_timeout *)
{
    const t_protocol *dhcp = dhcp_protocol();
    LOG_ENTER();
    if (!dhcp) {
        LOG(Error, "Couldn't find proto_dhcp! Skip detect!\n");
        return;
    }
    if (engine.stage_owner == t_stage_owner::cycle && end_if_switched_off(__func__))
        return;
    t_device *dev = engine.proto_detect_dev;
    const t_protocol *target = engine.proto_detect_target;
    const bool want_dhcp = !target || target == dhcp;
    const bool want_pppoe = target != dhcp;
    int end_delay_ms = PROTO_COLLECT_INTERVAL_MS;
    if (!dev)
        ask_all_ports(want_dhcp, want_pppoe);
    else if (!ask_port(dev, want_dhcp, want_pppoe))
        end_delay_ms = 0;
    collect_in(end_delay_ms);
}

static int collect(const t_discovery &kind, bool final)
{
    return collect_batch(kind, port_model.dev_hashmap_head, port_model.proto_hashmap_head, final);
}

// True while answers may still come. A batch that failed is over.
static bool dhcp_is_waiting(bool final)
{
    const int result = collect(dhcp_discovery, final);
    if (result < 0)
        LOG_AS(COLLECT, Error, "Error receiving dhcp discovery packet\n");
    else if (result == PROBE_WAITING)
        LOG_AS(COLLECT, Debug, "dhcp discovery packet not fully received\n");
    else if (result == PROBE_ALL_ANSWERED)
        LOG_AS(COLLECT, Info, "dhcp discovery packet all received offer\n");
    else
        LOG_AS(COLLECT, Debug, "dhcp discovery packet timeout!\n");
    return result == PROBE_WAITING;
}

static bool pppoe_is_waiting(bool final)
{
    const int result = collect(pppoe_discovery, final);
    if (result < 0)
        LOG_AS(COLLECT, Error, "Error receiving pppoe discovery packet\n");
    else if (result == PROBE_WAITING)
        LOG_AS(COLLECT, Debug, "pppoe discovery packet not fully received\n");
    else if (result == 1) // never the code for "all answered"; only this line depends on it
        LOG_AS(COLLECT, Info, "pppoe discovery packet all received PADO\n");
    else
        LOG_AS(COLLECT, Debug, "pppoe discovery packet timeout!\n");
    return result == PROBE_WAITING;
}

static bool one_is_waiting(bool final)
{
    const int dhcp = collect(dhcp_discovery, final);
    const int pppoe = collect(pppoe_discovery, final);
    const bool waiting = dhcp == PROBE_WAITING || pppoe == PROBE_WAITING;
    if (waiting)
        LOG_AS(COLLECT, Debug, "dhcp/pppoe discovery packet not fully received\n");
    return waiting;
}

static bool stage_is_waiting(const t_protocol *dhcp, bool final)
{
    const t_protocol *target = engine.proto_detect_target;
    if (!dhcp) {
        LOG_AS(COLLECT, Error, "Couldn't find proto_dhcp! Skip detect!\n");
        return false;
    }
    if (!target)
        return one_is_waiting(final);
    return target == dhcp ? dhcp_is_waiting(final) : pppoe_is_waiting(final);
}

void uloop_proto_detect_end(uloop_timeout *)
{
    const t_protocol *dhcp = dhcp_protocol();
    LOG_ENTER();
    engine.proto_detect_elapsed_ms += PROTO_COLLECT_INTERVAL_MS;
    if (stage_is_waiting(dhcp, engine.proto_detect_elapsed_ms > engine.proto_detect_timeout_ms))
        return collect_in(PROTO_COLLECT_INTERVAL_MS);
    dump_all_device(port_model.dev_hashmap_head);
    dump_all_protocols(port_model.proto_hashmap_head);
    finish_stage();
    write_proto_detect_result_file();
    LOG(Info, "Detection over!\n");
}

// The protocol found on the requested port, or else the first one on any port in the order of priority.
static const t_protocol *found_protocol()
{
    if (engine.proto_detect_dev)
        return engine.proto_detect_dev->proto;
    for (const t_device *dev : port_model.priority_order) {
        if (!dev)
            break;
        if (dev->proto)
            return dev->proto;
    }
    return nullptr;
}

void write_proto_detect_result_file()
{
    const t_protocol *found = found_protocol();
    if (!write_whole_file(PROTO_RESULT_FILE, found ? found->name : "static"))
        LOG(Error, "File:%s Open Failed !\n", PROTO_RESULT_FILE);
}

// --- a cycle judges the answers of its stage

static bool has_answered(const t_device *dev, const t_protocol *wanted)
{
    return dev->link_active && wanted && dev->proto == wanted;
}

// A port that has not answered: false when its link or its last attempt is gone.
static bool may_try_again(t_device_list *node)
{
    const char *name = node->dev->name;
    const char *type = protocol_name(port_model.wan_proto);
    if (!node->dev->link_active) {
        LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to %s down!\n", name, name);
        note_fate(node->dev, t_fate::no_link);
        return false;
    }
    if (node->retry_count >= MAX_SILENT_RETRIES) {
        LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to no %s was detected after %d times try!\n",
               name, type, static_cast<int>(MAX_SILENT_RETRIES + 1));
        note_fate(node->dev, t_fate::silent);
        return false;
    }
    node->retry_count++;
    LOG_AS(SORTING, Debug,
           "Continue keep it in possible wan list due to no %s was detected in %s, retry! retry times:%d/%d\n", type,
           name, static_cast<int>(node->retry_count), static_cast<int>(MAX_SILENT_RETRIES));
    return true;
}

int remove_specific_proto_dev_from_list()
{
    const t_protocol *wanted = wanted_protocol();
    const char *type = protocol_name(port_model.wan_proto);
    t_device_list_head &list = engine.possible_wan_dev_list;
    t_leaving_fake_wan fake_wan;
    int found = 0;
    {
        t_read_guard guard(engine.gate.locks.device_lock);
        list.drop_if([&](t_device_list &node) {
            if (!node.dev)
                return false; // the next pass audits the list
            if (has_answered(node.dev, wanted)) {
                LOG_AS(SORTING, Debug, "Detect device:%s using protocol %s!\n", node.dev->name, type);
                found++;
                return false;
            }
            if (may_try_again(&node))
                return false;
            fake_wan.note(node.dev);
            return true;
        });
        list.drop_if([&](const t_device_list &node) {
            if (found == 0 || !node.dev || has_answered(node.dev, wanted))
                return false;
            LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to other device detected success!\n",
                   node.dev->name);
            note_fate(node.dev, t_fate::other_answered);
            fake_wan.note(node.dev);
            return true;
        });
    }
    fake_wan.remove(false);
    return found;
}

static void wait_for_stage(t_connection kind)
{
    const char *type = protocol_name(port_model.wan_proto);
    if (kind == t_connection::pppoe)
        LOG_AS(VERDICT, Debug, "Protocol%s detect is still in progress, Waiting...\n", type);
    else
        LOG_AS(VERDICT, Debug, "Protocol %s detect is still in progress, Waiting...\n", type);
    judge_later();
}

static void take_first(t_connection kind, int found)
{
    const char *type = protocol_name(port_model.wan_proto);
    t_device *winner = engine.possible_wan_dev_list.first();
    if (!winner)
        LOG_AS(VERDICT, Error, "That's impossible! device is lost? treat it as null!\n");
    else if (kind == t_connection::dhcp)
        LOG_AS(VERDICT, Info, "Only one device:%s using protocol %s! treat it as wan!\n", winner->name, type);
    else
        LOG_AS(VERDICT, Info, "Overall %d device using protocol %s! Use first priority device:%s as wan!\n", found,
               type, winner->name);
    end_cycle_with(winner, found > 1 ? t_decision::priority : t_decision::only_answer);
}

void uloop_wan_detect_using_proto_detect(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    const t_connection kind = connection_kind();
    if (!is_probed(kind)) {
        LOG(Error, "wan protocol detect only support dhcp/pppoe/xxtp+dhcp!\n");
        return end_cycle_with(nullptr, t_decision::not_detectable);
    }
    if (port_model.proto_detect_running)
        return wait_for_stage(kind);
    const int found = remove_specific_proto_dev_from_list();
    const char *type = protocol_name(port_model.wan_proto);
    if (found == 0) {
        LOG(Info, "No device using protocol %s! waiting for another device or retry!\n", type);
        if (engine.possible_wan_dev_list.count == 0)
            look_for_hints_of_silence();
        return look_in(CYCLE_POLL_MS);
    }
    if (kind == t_connection::dhcp && found > 1) {
        LOG(Info, "Found %d devices provide %s protocol! Next try dns detect!\n", found, type);
        return ask_by_dns();
    }
    take_first(kind, found);
}
