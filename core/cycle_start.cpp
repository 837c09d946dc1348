// SPDX-License-Identifier: MIT
#include "core/cycle_start.h"

#include "core/background.h"
#include "core/candidates.h"
#include "core/engine.h"
#include "core/proto_stage.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "model/reserved_ports.h"
#include "platform/adapters/link_status.h"
#include "platform/adapters/network_status.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/lan_hosts.h"

// How the remaining candidates are confirmed.
enum class t_confirmation : uint8_t { probes, arp, unsupported };

static t_confirmation choose_confirmation()
{
    if (connection_is("static") || tunnel_over("static"))
        return t_confirmation::arp;
    if (connection_is("dhcp") || connection_is("pppoe") || tunnel_over("dynamic"))
        return t_confirmation::probes;
    return t_confirmation::unsupported;
}

static void refresh_reserved_ports()
{
    update_lan_agg_port(port_model.dev_hashmap_head, &port_model.lan_agg[0]);
    update_lan_gaming_port(&port_model.gaming);
}

void uloop_init_wan_detect_all(uloop_timeout *timer)
{
    LOG_ENTER();
    if (port_model.wan_detect_running) {
        LOG(Info, "Aleady has a instace is running wan detect! Multi instance not allowed, auto retry in 500ms!\n");
        engine.restart_requested = 1;
        uloop_timeout_set(timer, CYCLE_RETRY_MS);
        return;
    }
    if (port_model.proto_detect_running) {
        LOG(Info,
            "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!\n");
        uloop_timeout_set(timer, CYCLE_RETRY_MS);
        return;
    }
    engine.result_dev = nullptr;
    clear_candidates();
    refresh_reserved_ports();
    update_eth_link_status(port_model.dev_hashmap_head);
    update_banned_device_list(&port_model.banned_list);
    generate_possible_wan_dev_list();
    engine.detecting = 1;
    uloop_timeout_set(&engine.start_wan_detect, 0);
}

// The first pass of a cycle takes the stage; every pass reads the connection type anew.
static void open_pass()
{
    cancel_cycle_stage();
    forget_requested_start();
    if (!port_model.wan_detect_running) {
        port_model.wan_detect_running = 1;
        delete_file(WAN_RESULT_FILE);
        update_wan_device(&port_model);
    }
    update_wan_ipv4_protocol(&port_model);
}

static bool current_wan_is_good()
{
    const t_device *now_wan = port_model.wan_dev;
    return now_wan && now_wan->link_active && get_network_status(0, connection_is("static")) == NETWORK_CONNECTED;
}

// False when nobody is left.
static bool filter_candidates()
{
    refresh_reserved_ports();
    update_banned_device_list(&port_model.banned_list);
    update_brlan_dev(&port_model);
    remove_impossble_wan_dev_from_list();
    remove_brlan_dev_from_list();
    return engine.possible_wan_dev_list.count != 0;
}

// Long because every line that tells of a pass stands here, in the order of the pass.
void uloop_start_wan_detect(uloop_timeout *timer)
{
    LOG_ENTER();
    open_pass();
    if (!port_model.enable) {
        LOG(Info, "exiting detecting due to switch off!\n");
        return end_cycle_with(nullptr);
    }
    if (engine.restart_requested) {
        LOG(Info, "exiting this cycle of detecting, waiting for detect all!\n");
        return end_cycle_with(nullptr);
    }
    if (!port_model.wan_proto) {
        LOG(Error, "Failed to get now protocol! Should not happen!\n");
        return end_cycle_with(nullptr);
    }

    adopt_parked_devices();
    t_device *now_wan = port_model.wan_dev;
    int added = add_candidate(now_wan);
    if (added == OK)
        LOG(Debug, "Always add now wan:%s to detect list!\n", now_wan->name);
    else if (added == ERR_ALREADY_PRESENT)
        LOG(Debug, "now wan:%s already in detect list!\n", now_wan->name);
    else if (!now_wan)
        LOG(Error, "Can't find the device:%s in hash list!\n", device_name(now_wan));

    for (int voids = drop_void_candidates(); voids > 0; voids--)
        LOG(Error, "Impossible to happen! Check code carefully! remove this node manully!\n");
    char names[JOINED_NAMES_SIZE];
    int found = join_candidate_names(names);
    if (found != engine.possible_wan_dev_list.count) {
        LOG(Error,
            "Impossible to happen! Check code carefully! traverse found %d device, But the original recorded is %d, "
            "Fix recorded!\n",
            found, engine.possible_wan_dev_list.count);
        engine.possible_wan_dev_list.count = static_cast<uint8_t>(found);
    }
    LOG(Info, "Start to detect in %d device(s):%s\n", engine.possible_wan_dev_list.count, names);

    update_eth_link_status(port_model.dev_hashmap_head);
    if (current_wan_is_good())
        return end_cycle_with(now_wan);
    drop_candidate(now_wan); // it was listed only to be looked at first
    if (engine.possible_wan_dev_list.count == 0 || !filter_candidates()) {
        LOG(Debug, "Zero device need to detect after filter! waiting for other devices plug in trigger!\n");
        uloop_timeout_set(timer, CYCLE_POLL_MS);
        return;
    }

    const t_protocol *type = port_model.wan_proto;
    switch (choose_confirmation()) {
    case t_confirmation::arp:
        LOG(Info, "Start to detect in %d device(s) using arp\n", engine.possible_wan_dev_list.count);
        uloop_timeout_set(&engine.using_arp, 0);
        return;
    case t_confirmation::probes:
        break;
    case t_confirmation::unsupported:
        LOG(Warning, "detecting protocol %s(sed_conn:%s) is not supported!, exit!\n", type->name, type->snd_conn);
        return end_cycle_with(nullptr);
    }
    if (port_model.proto_detect_running) {
        LOG(Info,
            "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!\n");
        uloop_timeout_set(timer, CYCLE_RETRY_MS);
        return;
    }
    if (!connection_is("dhcp") && !connection_is("pppoe") && !tunnel_over("dynamic")) {
        LOG(Error,
            "wan protocol detect only support dhcp/pppoe/xxtp+dhcp! detecting protocol %s(sed_conn:%s) is not "
            "supported!\n",
            type->name, type->snd_conn);
        return end_cycle_with(nullptr);
    }
    LOG(Info, "Start to detect in %d device(s) using protocol detect\n", engine.possible_wan_dev_list.count);
    start_cycle_proto_stage();
}
