// SPDX-License-Identifier: MIT
#include "core/proto_stage.h"

#include "core/cycle.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "model/reserved_ports.h"
#include "model/tables.h"
#include "platform/adapters/link_status.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_probe.h"
#include "probes/dispatch.h"
#include "probes/lan_hosts.h"
#include "probes/pppoe_probe.h"

// What a look at the batches said.
enum class t_collected : uint8_t { waiting, over };

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

int start_proto_detect(const t_proto_detect_request *request)
{
    LOG_ENTER();
    if (stage_is_taken()) {
        LOG(Error, "A instace is running protocol detection! Not allowed detect protocol now!\n");
        return ERR_BUSY;
    }
    request_fresh_retries();
    engine.proto_detect_timeout_ms = static_cast<uint32_t>(request->timeout_ms);
    engine.proto_detect_dev = request->dev;
    engine.proto_detect_target = request->protocol;
    take_stage(t_stage_owner::request);
    delete_file(PROTO_RESULT_FILE);
    update_lan_agg_port(port_model.dev_hashmap_head, &port_model.lan_agg[0]);
    update_lan_gaming_port(&port_model.gaming);
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
    engine.proto_detect_target = tunnel_over("dynamic") ? dhcp_protocol() : port_model.wan_proto;
    engine.proto_detect_timeout_ms = CYCLE_STAGE_TIMEOUT_MS;
    begin_probing();
    delete_file(PROTO_RESULT_FILE);
    forget_recorded_protocols(nullptr);
    send_probes_now();
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
    bool want_dhcp = !target || target == dhcp;
    bool want_pppoe = target != dhcp;
    int end_delay_ms = PROTO_COLLECT_INTERVAL_MS;
    if (!dev) {
        if (want_dhcp && dhcp_detect_for_all_link_device(&port_model) != OK)
            LOG(Error, "Error sending dhcp discovery packet\n");
        if (want_pppoe && pppoe_detect_for_all_link_device(&port_model) != OK)
            LOG(Error, "Error sending pppoe discovery packet\n");
    } else {
        bool dhcp_failed = want_dhcp && dhcp_detect_for_specify_device(dev) != OK;
        bool pppoe_failed = want_pppoe && pppoe_detect_for_specify_device(dev) != OK;
        if (dhcp_failed && pppoe_failed)
            LOG(Error, "Error sending dhcp discovery & pppoe discovery packet via dev:%s\n", dev->name);
        else if (dhcp_failed && !want_pppoe)
            LOG(Error, "Error sending dhcp discovery packet via dev:%s\n", dev->name);
        else if (pppoe_failed && !want_dhcp)
            LOG(Error, "Error sending pppoe discovery packet via dev:%s\n", dev->name);
        if (dhcp_failed == want_dhcp && pppoe_failed == want_pppoe)
            end_delay_ms = 0;
    }
    collect_in(end_delay_ms);
}

static void close_stage()
{
    dump_all_device(port_model.dev_hashmap_head);
    dump_all_protocols(port_model.proto_hashmap_head);
    finish_stage();
    write_proto_detect_result_file();
}

static int collect_dhcp(bool final)
{
    return process_dhcp_discovery_all(port_model.dev_hashmap_head, port_model.proto_hashmap_head, final);
}

static int collect_pppoe(bool final)
{
    return process_pppoe_discovery_all(port_model.dev_hashmap_head, port_model.proto_hashmap_head, final);
}

// Long because every line that tells how a stage went stands here.
void uloop_proto_detect_end(uloop_timeout *)
{
    const t_protocol *dhcp = dhcp_protocol();
    LOG_ENTER();
    t_collected collected = t_collected::over;
    engine.proto_detect_elapsed_ms += PROTO_COLLECT_INTERVAL_MS;
    bool final = engine.proto_detect_elapsed_ms > engine.proto_detect_timeout_ms;
    const t_protocol *target = engine.proto_detect_target;
    if (!dhcp) {
        LOG(Error, "Couldn't find proto_dhcp! Skip detect!\n");
    } else if (!target) {
        int dhcp_result = collect_dhcp(final);
        int pppoe_result = collect_pppoe(final);
        if (dhcp_result == PROBE_WAITING || pppoe_result == PROBE_WAITING) {
            LOG(Debug, "dhcp/pppoe discovery packet not fully received\n");
            collected = t_collected::waiting;
        }
    } else if (target == dhcp) {
        int result = collect_dhcp(final);
        if (result < 0) {
            LOG(Error, "Error receiving dhcp discovery packet\n");
        } else if (result == PROBE_WAITING) {
            LOG(Debug, "dhcp discovery packet not fully received\n");
            collected = t_collected::waiting;
        } else if (result == PROBE_ALL_ANSWERED) {
            LOG(Info, "dhcp discovery packet all received offer\n");
        } else {
            LOG(Debug, "dhcp discovery packet timeout!\n");
        }
    } else {
        int result = collect_pppoe(final);
        if (result < 0) {
            LOG(Error, "Error receiving pppoe discovery packet\n");
        } else if (result == PROBE_WAITING) {
            LOG(Debug, "pppoe discovery packet not fully received\n");
            collected = t_collected::waiting;
        } else if (result == 1) { // never the code for "all answered"; only this line depends on it
            LOG(Info, "pppoe discovery packet all received PADO\n");
        } else {
            LOG(Debug, "pppoe discovery packet timeout!\n");
        }
    }
    if (collected == t_collected::waiting)
        return collect_in(PROTO_COLLECT_INTERVAL_MS);
    close_stage();
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
