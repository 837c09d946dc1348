// SPDX-License-Identifier: MIT
// The DHCP batch: opened over a list of ports, collected, released. Each port's own exchange is in dhcp_port.cpp.
#include "probes/dhcp_probe.h"

#include <cstdlib>
#include <cstring>
#include <span>

#include "model/current_wan.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/interface_query.h"
#include "probes/probe_batch.h"

t_dhcp_detect_handle dhcp_detect_handle;

static std::span<t_dhcp_detect_ctx> contexts_of_batch()
{
    const size_t count = dhcp_detect_handle.contexts ? dhcp_detect_handle.device_num : 0;
    return {dhcp_detect_handle.contexts, count};
}

// Somebody may want to see more, or less, while the probe runs.
static void follow_log_level()
{
    const int level = log_get_level();
    if (level == dhcp_detect_handle.filter_level)
        return;
    dhcp_detect_handle.filter_level = level;
    for (const t_dhcp_detect_ctx &ctx : contexts_of_batch())
        filter_dhcp_offers(ctx);
}

int send_dhcp_discovery_all(t_device_list_head *list)
{
    LOG_ENTER();
    if (!list || list->count == 0) {
        LOG(Error, "invalid parameters! Send failed!\n");
        return ERR_INVALID_INPUT;
    }
    if (dhcp_detect_handle.contexts) {
        LOG(Notice, "Last time handle not release, release it before resend!\n");
        release_dhcp_detect_handle();
    }
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG(Error, "Couldn't get br-lan ip, netmask, mac!\n");
        return DHCP_ERR_LAN_BRIDGE;
    }
    memcpy(dhcp_detect_handle.lan_mac, lan.mac, MAC_SIZE);
    dhcp_detect_handle.contexts = static_cast<t_dhcp_detect_ctx *>(calloc(list->count, sizeof(t_dhcp_detect_ctx)));
    if (!dhcp_detect_handle.contexts) {
        LOG(Error, "Failed to malloc %d dhcp_detect struct\n", list->count);
        return ERR_NO_MEMORY;
    }
    dhcp_detect_handle.device_num = list->count;
    dhcp_detect_handle.finished = 0;
    dhcp_detect_handle.filter_level = log_get_level();
    dhcp_detect_handle.lines.probe = "dhcp";

    const t_device_list *node = list->head.next;
    for (t_dhcp_detect_ctx &ctx : contexts_of_batch()) {
        t_device *dev = node ? node->dev : nullptr;
        node = node ? node->next : nullptr;
        ctx.watcher.fd = -1;
        if (!dev) {
            LOG(Error, "Failed to load dhcp device!\n");
        } else if (init_dhcp_sockfd(&ctx) != OK) {
            LOG(Error, "Failed to init DHCP socket in dev:%s\n", dev->name);
        } else {
            ctx.dev = dev;
            LOG(Debug, "DHCP Discovery packet sockfd init success in dev:%s\n", dev->name);
        }
    }
    for (t_dhcp_detect_ctx &ctx : contexts_of_batch()) {
        LOG(Debug, "Ready to send DHCP Discovery packet via dev:%s\n", device_name(ctx.dev));
        if (send_dhcp_discovery_packet(&ctx) != OK)
            LOG(Error, "Failed to send DHCP socket via dev:%s\n", device_name(ctx.dev));
        else
            LOG(Debug, "Send DHCP Discovery packet success via dev:%s\n", device_name(ctx.dev));
    }
    return OK;
}

int process_dhcp_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final)
{
    LOG_ENTER();
    int result;
    if (!dhcp_detect_handle.contexts) {
        LOG(Info, "dhcp detect array is null, no packet sent yet, treat as detect over!\n");
        result = PROBE_NO_BATCH;
    } else if (dhcp_detect_handle.device_num == 0) {
        LOG(Error, "Should never happen, valid dhcp detect array while device count is 0!\n");
        result = ERR_INVALID_INPUT;
    } else {
        result = probe_batch_result(contexts_of_batch(), &t_dhcp_detect_ctx::offer_received, final);
    }
    if (result == PROBE_WAITING) {
        follow_log_level();
        return result;
    }

    dhcp_detect_handle.finished = 1;
    for (t_dhcp_detect_ctx &ctx : contexts_of_batch()) {
        t_device *dev = ctx.dev;
        LOG(Debug, "Processing dhcp offer in eth:%s\n", device_name(dev));
        if (ctx.offer_received && dev) {
            LOG(Info, "dev:%s detect dhcp Service!\n", dev->name);
            set_dev_using_specific_proto(dev_hashmap_head, proto_hashmap_head, nullptr, nullptr, dev->name, "dhcp");
            memcpy(&dev->result, &ctx.result, sizeof dev->result);
            LOG(Debug, "dev:%s, IPADDR=%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n", dev->name,
                t_ipv4_text(dev->result.address.ipv4_be).text, MAC_ARGS(dev->result.server_mac));
            LOG(Debug, "dev:%s, GATEWAY=%s\n", dev->name, t_ipv4_text(dev->result.gateway.ipv4_be).text);
            LOG(Debug, "dev:%s, DNS_SERVER=%s\n", dev->name, t_ipv4_text(dev->result.dns_server.ipv4_be).text);
        } else {
            LOG(Debug, "No dhcp Service detect in dev:%s yet!\n", device_name(dev));
        }
    }
    release_dhcp_detect_handle();
    return result;
}

void release_dhcp_detect_handle()
{
    LOG_ENTER();
    if (!dhcp_detect_handle.contexts) {
        LOG(Info, "Release null dhcp_detect_handle fail!\n");
        return;
    }
    if (dhcp_detect_handle.device_num == 0)
        LOG(Error, "dhcp_detect_handle not null but device_num=0, may cause unclosed socket fd \n");
    close_probe_sockets(contexts_of_batch());
    tell_lines_left_out(&dhcp_detect_handle.lines);
    free(dhcp_detect_handle.contexts);
    LOG(Debug, "release dhcp_detect_handler success!\n");
    dhcp_detect_handle = {};
}
