// SPDX-License-Identifier: MIT
// Joins the bridge's forwarding records with the LAN ARP table and marks the ports with hosts of the LAN behind them.
#include "probes/lan/lan_hosts.h"

#include <cstdlib>
#include <net/if.h>
#include <span>

#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/lan/arp_recheck.h"
#include "probes/lan/bridge_table.h"
#include "probes/wire/frame_lines.h"
#include "probes/wire/interface_query.h"

namespace {

// What one refresh borrows from the kernel; the LAN ARP table lives in the model for its duration.
struct t_lan_sources {
    t_port_model &model;
    t_bridge_record *records = nullptr;

    explicit t_lan_sources(t_port_model &refreshed) : model(refreshed) {}
    ~t_lan_sources()
    {
        free(records);
        drop_arp_table();
    }
    t_lan_sources(const t_lan_sources &) = delete;
    t_lan_sources &operator=(const t_lan_sources &) = delete;

    void drop_arp_table()
    {
        if (model.arp_table_hashmap_head)
            release_arp_table(&model.arp_table_hashmap_head);
    }
};

} // namespace

static void clear_brlan_flags(t_device *dev_hashmap_head)
{
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        dev->is_brlan_dev = 0;
}

static t_device *find_device_by_brlan_index(t_device *dev_hashmap_head, int index)
{
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->brlan_index == index)
            return dev;
    return nullptr;
}

static void double_checkarp_table(t_port_model *model, const t_interface_info &lan, unsigned int lan_ifindex)
{
    LOG_ENTER();
    if (double_check_arp_packet_all_blocked(&model->arp_table_hashmap_head, lan.address_be, lan.netmask_be, &lan.mac,
                                            lan_ifindex) != OK)
        LOG(Error, "failed to send&recv ARP sniffer packet, continue whatever!\n");
}

constexpr const char *UPDATE = "update_brlan_dev"; // its part speaks in its name

// Looks at one forwarding record. Whoever invents hosts makes many, so each is one of the lines that may be left out.
static void mark_port(t_port_model *model, const t_interface_info &lan, const t_bridge_record &record, bool told)
{
    t_device *dev = find_device_by_brlan_index(model->dev_hashmap_head, record.port);
    if (!dev) {
        if (told)
            LOG_AS(UPDATE, Debug, "No device index(%d) match in device hashmap!\n", record.port);
        return;
    }
    if (dev->is_brlan_dev) {
        if (told)
            LOG_AS(UPDATE, Debug, "device:%s already has an ip that has same subnet as LAN!\n", dev->name);
        return;
    }
    const t_arp_entry *entry = find_arp_entry(model->arp_table_hashmap_head, &record.mac);
    if (!entry) {
        if (told)
            LOG_AS(UPDATE, Debug, "Failed to find arp entry for %02X-%02X-%02X-%02X-%02X-%02X!\n",
                   MAC_ARGS(record.mac));
        return;
    }
    if (told)
        LOG_AS(UPDATE, Debug, "find ip|mac:%s|%02X-%02X-%02X-%02X-%02X-%02X has same subnet as LAN in dev:%s!\n",
               t_ipv4_text(lan.address_be).text, MAC_ARGS(entry->mac), dev->name);
    dev->is_brlan_dev = 1;
}

int update_brlan_dev(t_port_model *model)
{
    LOG_ENTER();
    clear_brlan_flags(model->dev_hashmap_head);
    t_lan_sources sources(*model);
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG(Error, "Couldn't get br-lan ip, netmask, mac!\n");
        return LAN_HOSTS_ERR_BRIDGE;
    }
    const unsigned int lan_ifindex = if_nametoindex(LAN_BRIDGE);
    LOG(Debug, "Success get br-lan ip:%s, mac:%02X-%02X-%02X-%02X-%02X-%02X, index:%u\n",
        t_ipv4_text(lan.address_be).text, MAC_ARGS(lan.mac), lan_ifindex);
    update_brlan_dev_index(model->dev_hashmap_head);
    const int record_count = get_bridge_table(LAN_BRIDGE, &sources.records);
    if (record_count < 1) {
        LOG(Error, "Failed to get fdb table!\n");
        return LAN_HOSTS_ERR_FORWARDING;
    }
    sources.drop_arp_table();
    if (update_filtered_arp_table(&model->arp_table_hashmap_head, lan.address_be, lan.netmask_be) != OK) {
        LOG(Error, "Failed to get arp table!\n");
        return LAN_HOSTS_ERR_ARP;
    }
    double_checkarp_table(model, lan, lan_ifindex);
    t_frame_lines lines = {.probe = "lan hosts", .second = {}, .left_out = 0};
    for (const t_bridge_record &record : std::span(sources.records, static_cast<size_t>(record_count)))
        mark_port(model, lan, record, may_tell_of_frame(&lines, LOG_LEVEL_Debug));
    tell_lines_left_out(&lines);
    return OK;
}
