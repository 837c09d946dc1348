// SPDX-License-Identifier: MIT
#include "core/confirm_stages.h"

#include <cstring>
#include <netinet/in.h>

#include "core/cycle.h"
#include "core/retries.h"
#include "model/port_model.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp_probe.h"
#include "probes/dns_probe.h"

static t_device *first_candidate()
{
    const t_device_list *first = engine.possible_wan_dev_list.head.next;
    return first ? first->dev : nullptr;
}

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

void uloop_wan_detect_using_arp(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    t_device_list_head &list = engine.possible_wan_dev_list;
    const t_ipv4_text target(target_address());
    const char *type = protocol_name(port_model.wan_proto);
    if (find_target_ip_and_device_with_arp(&list, target_address(), asking_address()) != OK) {
        LOG(Error, "find_target_ip_and_device_with_arp failed with ip:%s, return null!\n", target.text);
        return end_cycle_with(nullptr);
    }
    if (list.count == 0) {
        LOG(Info, "Can't find gateway ip:%s in arp table, waiting for another device\n", target.text);
        return look_in(CYCLE_POLL_MS);
    }
    t_device *first = first_candidate();
    if (connection_is("static")) {
        if (list.count > 1) {
            LOG(Info, "Found %d devices provide %s protocol(have gateway ip in arp detect:%s)! Next try dns detect!\n",
                list.count, type, target.text);
            LOG(Info, "Start to detect in %d device(s) using dns\n", list.count);
            return ask_by_dns();
        }
        if (first)
            LOG(Info,
                "ARP shows Only one device:%s using protocol %s(have gateway ip in arp detect:%s)! treat it as wan!\n",
                first->name, type, target.text);
        else
            LOG(Error, "That's impossible! device is lost? treat it as null!\n");
        return end_cycle_with(first);
    }
    if (tunnel_over("static")) {
        LOG(Info, "ARP shows server ip:%s in dev:%s, wan detect Success!\n", target.text, device_name(first));
        return end_cycle_with(first);
    }
    LOG(Warning, "detecting protocol %s(sed_conn:%s) using arp is not supported!, exit!\n", type,
        port_model.wan_proto ? port_model.wan_proto->snd_conn : "null");
    end_cycle_with(nullptr);
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
    memcpy(entry.server_mac, dev->result.server_mac, MAC_SIZE);
    return entry;
}

void uloop_wan_detect_using_dns(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    bool is_static = connection_is("static");
    if (!is_static && !connection_is("dhcp")) {
        LOG(Error, "DNS lookup only support static/dhcp\n");
        return end_cycle_with(nullptr);
    }
    const char *type = port_model.wan_proto->name;
    engine.dns_ctx = {};
    int32_t count = 0;
    for (t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next) {
        if (!node->dev)
            continue; // the next pass audits the list
        if (is_static)
            use_static_config(node->dev);
        const t_dns_entry &entry = fill_dns_entry(engine.dns_ctx.entries[count++], node->dev);
        LOG(Debug, "Ready to dns detect for %s, ip_addr:%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n", node->dev->name,
            t_ipv4_text(entry.dev_ip_be).text, MAC_ARGS(entry.server_mac));
        LOG(Debug, "Ready to dns detect for %s, dns_server:%s\n", node->dev->name,
            t_ipv4_text(entry.dns_server_be).text);
        if (count == DNS_MAX_ENTRIES) {
            LOG(Error, "Count exceed maximum number of interfaces:%d\n", DNS_MAX_ENTRIES);
            break;
        }
    }
    if (count == 0) {
        LOG(Error, "Shouldn't happen, no device need to query dns, wainting for other device connect!\n");
        return look_in(CYCLE_POLL_MS);
    }
    engine.dns_ctx.count = count;
    if (dns_lookup_via_multi_eth(&engine.dns_ctx)) {
        LOG(Info, "DNS lookup shows dev:%s online, wan detect Success!\n", device_name(engine.dns_ctx.winner));
        return end_cycle_with(engine.dns_ctx.winner);
    }
    t_device *first = first_candidate();
    if (is_static)
        LOG(Info,
            "Overall %d device using protocol %s(all have gateway ip in arp detect:%s)! Use first priority device:%s "
            "as "
            "wan!\n",
            engine.possible_wan_dev_list.count, type, t_ipv4_text(target_address()).text, device_name(first));
    else
        LOG(Info, "Overall %d device using protocol %s! Use first priority device:%s as wan!\n",
            engine.possible_wan_dev_list.count, type, device_name(first));
    end_cycle_with(first);
}
