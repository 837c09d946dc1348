// SPDX-License-Identifier: MIT
#include "core/confirm_stages.h"

#include <cstring>
#include <netinet/in.h>

#include "core/cycle.h"
#include "core/fates.h"
#include "core/hints.h"
#include "core/retries.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_probe.h"
#include "probes/dns/dns_probe.h"

// The parts of the two stages speak in their names.
constexpr const char *BY_ARP = "uloop_wan_detect_using_arp";
constexpr const char *BY_DNS = "uloop_wan_detect_using_dns";

// The gateway of a static connection, the server of a tunnel over a static address.
static uint32_t target_address()
{
    return port_model.wan_proto ? port_model.wan_proto->static_config.gateway.ipv4_be : 0;
}

// 0 for the LAN bridge's. A gateway that answers nobody of a foreign network answers the connection's own address.
static uint32_t asking_address()
{
    const uint32_t own = port_model.wan_proto ? port_model.wan_proto->static_config.address.ipv4_be : 0;
    return asks_in_own_name() && own != INADDR_NONE ? own : 0;
}

static void choose_among_static(int count, t_device *first)
{
    const char *type = protocol_name(port_model.wan_proto);
    const t_ipv4_text gateway(target_address());
    if (count > 1) {
        LOG_AS(BY_ARP, Info,
               "Found %d devices provide %s protocol(have gateway ip in arp detect:%s)! Next try dns detect!\n", count,
               type, gateway.text);
        LOG_AS(BY_ARP, Info, "Start to detect in %d device(s) using dns\n", count);
        return ask_by_dns();
    }
    if (first)
        LOG_AS(BY_ARP, Info,
               "ARP shows Only one device:%s using protocol %s(have gateway ip in arp detect:%s)! treat it as wan!\n",
               first->name, type, gateway.text);
    else
        LOG_AS(BY_ARP, Error, "That's impossible! device is lost? treat it as null!\n");
    end_cycle_with(first, t_decision::only_gateway);
}

static void choose_behind_gateway()
{
    t_device *first = engine.possible_wan_dev_list.first();
    switch (connection_kind()) {
    case t_connection::fixed:
        return choose_among_static(engine.possible_wan_dev_list.count, first);
    case t_connection::tunnel_fixed:
        LOG_AS(BY_ARP, Info, "ARP shows server ip:%s in dev:%s, wan detect Success!\n",
               t_ipv4_text(target_address()).text, device_name(first));
        return end_cycle_with(first,
                              engine.possible_wan_dev_list.count > 1 ? t_decision::priority : t_decision::only_gateway);
    case t_connection::dhcp:
    case t_connection::pppoe:
    case t_connection::tunnel_dynamic:
    case t_connection::other:
        break;
    }
    const t_protocol *type = port_model.wan_proto;
    LOG_AS(BY_ARP, Warning, "detecting protocol %s(sed_conn:%s) using arp is not supported!, exit!\n",
           protocol_name(type), type ? type->snd_conn : "null");
    end_cycle_with(nullptr, t_decision::not_detectable);
}

void uloop_wan_detect_using_arp(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    t_device_list_head &list = engine.possible_wan_dev_list;
    const t_ipv4_text target(target_address());
    note_search();
    if (find_target_ip_and_device_with_arp(&list, target_address(), asking_address()) != OK) {
        LOG(Error, "find_target_ip_and_device_with_arp failed with ip:%s, return null!\n", target.text);
        return end_cycle_with(nullptr, t_decision::nobody);
    }
    note_candidates_lost(t_fate::no_gateway);
    if (list.count == 0) {
        LOG(Info, "Can't find gateway ip:%s in arp table, waiting for another device\n", target.text);
        look_for_hints_of_silence();
        return look_in(CYCLE_POLL_MS);
    }
    choose_behind_gateway();
}

// A static connection asks with its configured addresses; the next hop stays the one that ARP learned on this port.
static void use_static_config(t_device *dev)
{
    uint8_t next_hop[MAC_SIZE];
    memcpy(next_hop, dev->result.server_mac, MAC_SIZE);
    dev->result = port_model.wan_proto->static_config;
    memcpy(dev->result.server_mac, next_hop, MAC_SIZE);
}

static t_dns_entry &fill_dns_entry(t_dns_entry &entry, t_device *dev)
{
    entry.dev = dev;
    entry.dev_ip_be = dev->result.address.ipv4_be;
    uint32_t server = dev->result.dns_server.ipv4_be;
    entry.dns_server_be = server ? server : dev->result.gateway.ipv4_be;
    send_special_arp(dev, entry.dns_server_be);
    entry.server_mac = mac_at(dev->result.server_mac);
    return entry;
}

static void tell_question(const t_dns_entry &entry)
{
    LOG_AS(BY_DNS, Debug, "Ready to dns detect for %s, ip_addr:%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n",
           entry.dev->name, t_ipv4_text(entry.dev_ip_be).text, MAC_ARGS(entry.server_mac));
    LOG_AS(BY_DNS, Debug, "Ready to dns detect for %s, dns_server:%s\n", entry.dev->name,
           t_ipv4_text(entry.dns_server_be).text);
}

// One question for each candidate, as far as there is room; their number.
static int32_t gather_questions(bool is_fixed)
{
    engine.dns_ctx = {};
    int32_t count = 0;
    for (t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next) {
        if (!node->dev)
            continue; // the next pass audits the list
        if (is_fixed)
            use_static_config(node->dev);
        tell_question(fill_dns_entry(engine.dns_ctx.entries[count++], node->dev));
        if (count == DNS_MAX_ENTRIES) {
            LOG_AS(BY_DNS, Error, "Count exceed maximum number of interfaces:%d\n", DNS_MAX_ENTRIES);
            break;
        }
    }
    engine.dns_ctx.count = count;
    return count;
}

// No name server answered: the port of the highest priority is as good as any.
static void take_first(bool is_fixed)
{
    t_device *first = engine.possible_wan_dev_list.first();
    const int count = engine.possible_wan_dev_list.count;
    if (is_fixed)
        LOG_AS(BY_DNS, Info,
               "Overall %d device using protocol %s(all have gateway ip in arp detect:%s)! Use first priority "
               "device:%s as "
               "wan!\n",
               count, protocol_name(port_model.wan_proto), t_ipv4_text(target_address()).text, device_name(first));
    else
        LOG_AS(BY_DNS, Info, "Overall %d device using protocol %s! Use first priority device:%s as wan!\n", count,
               protocol_name(port_model.wan_proto), device_name(first));
    end_cycle_with(first, t_decision::priority);
}

void uloop_wan_detect_using_dns(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    const t_connection kind = connection_kind();
    const bool is_fixed = kind == t_connection::fixed;
    if (!is_fixed && kind != t_connection::dhcp) {
        LOG(Error, "DNS lookup only support static/dhcp\n");
        return end_cycle_with(nullptr, t_decision::not_detectable);
    }
    if (gather_questions(is_fixed) == 0) {
        LOG(Error, "Shouldn't happen, no device need to query dns, wainting for other device connect!\n");
        return look_in(CYCLE_POLL_MS);
    }
    if (!dns_lookup_via_multi_eth(&engine.dns_ctx))
        return take_first(is_fixed);
    LOG(Info, "DNS lookup shows dev:%s online, wan detect Success!\n", device_name(engine.dns_ctx.winner));
    end_cycle_with(engine.dns_ctx.winner, t_decision::name_server);
}
