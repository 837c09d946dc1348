// SPDX-License-Identifier: MIT
// Joins the bridge's forwarding records with the LAN ARP table, whose stale entries drop out first, and marks the ports
// with hosts of the LAN behind them.
#include "probes/lan/lan_hosts.h"

#include <cstdlib>
#include <net/if.h>
#include <span>

#include "model/chronicle.h"
#include "platform/clock.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_batch.h"
#include "probes/lan/bridge_table.h"
#include "probes/wire/frame_lines.h"
#include "probes/wire/packet_socket.h"

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
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        dev->is_brlan_dev = 0;
        dev->notes.lan_hosts = 0;
    }
}

static t_device *find_device_by_brlan_index(t_device *dev_hashmap_head, int index)
{
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->brlan_index == index)
            return dev;
    return nullptr;
}

// --- re-checking the table

constexpr const char *RECHECK = "double_check_arp_packet_all_blocked"; // its parts speak in its name

static void open_host(t_arp_detect *ctx, const t_arp_entry &entry)
{
    if (init_arp_sockfd(ctx, nullptr, entry.mac, entry.address_be) != OK) {
        LOG_AS(RECHECK, Error, "Failed to init ARP socket for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n",
               ARP_TARGET_ARGS(ctx));
        void_arp_target(ctx);
        return;
    }
    ctx->source_mac = arp_detect_handle.sender_mac;
    LOG_AS(RECHECK, Debug, "Arp packet sockfd init success in for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n",
           ARP_TARGET_ARGS(ctx));
}

static void ask_host(t_arp_detect *ctx)
{
    LOG_AS(RECHECK, Debug, "Ready to send Arp packet for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
    if (send_arp_unicast_packet_blocked(ctx) != OK) {
        LOG_AS(RECHECK, Error, "Failed to send ARP socket for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n",
               ARP_TARGET_ARGS(ctx));
        void_arp_target(ctx);
        return;
    }
    LOG_AS(RECHECK, Debug, "Send Arp packet success for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
}

// The host is alive, but its address is another one than the table says.
static void judge_other_address(const t_arp_detect &ctx, uint32_t address_be)
{
    LOG_AS(RECHECK, Info, "arp reply receieve a different ip:%s\n", t_ipv4_text(address_be).text);
    LOG_AS(RECHECK, Info, "arp reply receieve a different ip, orig:%s\n", t_ipv4_text(ctx.target_ip_be).text);
    if ((address_be ^ arp_detect_handle.sender_ip_be) & arp_detect_handle.netmask_be) {
        LOG_AS(RECHECK, Info, "arp reply new is not same subnet with br-lan! remove it from arp hash table!\n");
        remove_arp_entry(arp_detect_handle.arp_table_hashmap_head, &ctx.target_mac);
    } else {
        LOG_AS(RECHECK, Debug, "arp reply new ip still remains same subnet with br-lan!\n");
    }
}

// Takes a packet as the host's reply, or leaves it.
static bool is_reply(t_arp_detect *ctx, const t_arp_packet &packet)
{
    if (packet.ethernet_source != ctx->target_mac) {
        if (may_tell_of_packet(LOG_LEVEL_Info))
            LOG_AS(RECHECK, Info, "Not match eth header:%02X-%02X-%02X-%02X-%02X-%02X|%02X-%02X-%02X-%02X-%02X-%02X\n",
                   MAC_ARGS(packet.ethernet_source), MAC_ARGS(ctx->target_mac));
        return false;
    }
    if (packet.sender_mac != ctx->target_mac) {
        if (may_tell_of_packet(LOG_LEVEL_Error))
            LOG_AS(RECHECK, Error,
                   "Not match arp packet mac:%02X-%02X-%02X-%02X-%02X-%02X|%02X-%02X-%02X-%02X-%02X-%02X\n",
                   MAC_ARGS(packet.sender_mac), MAC_ARGS(ctx->target_mac));
        return false;
    }
    if (packet.opcode != ARP_OPCODE_REPLY) {
        if (may_tell_of_packet(LOG_LEVEL_Error))
            LOG_AS(RECHECK, Error, "Not a arp reply packet\n");
        return false;
    }
    if (packet.sender_ip_be == ctx->target_ip_be) {
        LOG_AS(RECHECK, Debug, "arp reply success in %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
        return true;
    }
    judge_other_address(*ctx, packet.sender_ip_be);
    return true;
}

static void hear_host(t_arp_detect *ctx)
{
    LOG_AS(RECHECK, Debug, "Trying to recv Arp packet for: %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
    read_arp_replies(ctx, is_reply);
    if (ctx->replied)
        return;
    LOG_AS(RECHECK, Info, "No arp reply from %s|%02X-%02X-%02X-%02X-%02X-%02X! Remove it from arp hash table!\n",
           ARP_TARGET_ARGS(ctx));
    remove_arp_entry(arp_detect_handle.arp_table_hashmap_head, &ctx->target_mac);
}

static void recheck_hosts(const t_arp_entry *entry)
{
    listen_to_all_hosts();
    for (t_arp_detect &ctx : arp_contexts()) {
        open_host(&ctx, *entry);
        entry = static_cast<t_arp_entry *>(entry->hh.next);
    }
    for (t_arp_detect &ctx : arp_contexts())
        ask_host(&ctx);
    sleep_ms(ARP_WAIT_FOR_REPLIES_MS);
    for (t_arp_detect &ctx : arp_contexts())
        hear_host(&ctx);
}

int double_check_arp_packet_all_blocked(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be,
                                        uint32_t lan_netmask_be, const t_mac *lan_mac, unsigned int lan_ifindex)
{
    LOG_ENTER();
    if (!arp_table_hashmap_head || !*arp_table_hashmap_head || !lan_mac || !lan_netmask_be || !lan_ip_be) {
        LOG(Error, "invalid parameters! Send failed!\n");
        return ERR_INVALID_INPUT;
    }
    if (arp_detect_handle.contexts) {
        LOG(Notice, "Last time handle not release, release it before resend!\n");
        release_arp_detect_handle();
    }
    const auto count = static_cast<uint8_t>(arp_table_count(*arp_table_hashmap_head)); // wraps, and 0 is an empty table
    if (count == 0) {
        LOG(Error, "No arp entry in arp_table_hashmap_head!\n");
        return ERR_INVALID_INPUT;
    }
    if (!open_arp_batch(count, ARP_LONGEST_HOST_WAITS_MS)) {
        LOG(Error, "Failed to malloc %d t_arp_detect struct\n", count);
        return ERR_NO_MEMORY;
    }
    arp_detect_handle.ifindex = lan_ifindex;
    arp_detect_handle.sender_ip_be = lan_ip_be;
    arp_detect_handle.netmask_be = lan_netmask_be;
    arp_detect_handle.arp_table_hashmap_head = arp_table_hashmap_head;
    arp_detect_handle.sender_mac = *lan_mac;
    recheck_hosts(*arp_table_hashmap_head);
    release_arp_detect_handle();
    return OK;
}

static void double_checkarp_table(t_port_model *model, const t_interface_info &lan, unsigned int lan_ifindex)
{
    LOG_ENTER();
    if (double_check_arp_packet_all_blocked(&model->arp_table_hashmap_head, lan.address_be, lan.netmask_be, &lan.mac,
                                            lan_ifindex) != OK)
        LOG(Error, "failed to send&recv ARP sniffer packet, continue whatever!\n");
}

// --- marking the ports

constexpr const char *UPDATE = "update_brlan_dev"; // its part speaks in its name

// Looks at one forwarding record. Whoever invents hosts makes many, so each is one of the lines that may be left out.
static void mark_port(t_port_model *model, const t_interface_info &lan, const t_bridge_record &record,
                      t_frame_lines *lines)
{
    const bool told = may_tell_of_frame(lines, LOG_LEVEL_Debug);
    t_device *dev = find_device_by_brlan_index(model->dev_hashmap_head, record.port);
    if (!dev) {
        if (told)
            LOG_AS(UPDATE, Debug, "No device index(%d) match in device hashmap!\n", record.port);
        return;
    }
    const t_arp_entry *entry = nullptr;
    if (model->arp_table_hashmap_head || may_tell_of_frame(lines, LOG_LEVEL_Info)) // which tells of an empty table
        entry = find_arp_entry(model->arp_table_hashmap_head, &record.mac);
    if (entry)
        note_lan_host(dev);
    if (dev->is_brlan_dev) {
        if (told)
            LOG_AS(UPDATE, Debug, "device:%s already has an ip that has same subnet as LAN!\n", dev->name);
        return;
    }
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
        mark_port(model, lan, record, &lines);
    tell_lines_left_out(&lines);
    return OK;
}
