// SPDX-License-Identifier: MIT
#include "probes/arp/arp_search.h"

#include "model/chronicle.h"
#include "model/fake_wan.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_batch.h"

constexpr int ARP_SEARCH_ATTEMPTS = 2;
constexpr const char *SEARCH = "check_ip_using_arp_blocked"; // the parts of the search speak in its name

static void open_port(t_arp_detect *ctx, t_device *dev, const t_mac &target_mac, uint32_t target_be)
{
    if (!dev || init_arp_sockfd(ctx, dev, target_mac, target_be) != OK) {
        LOG_AS(SEARCH, Error, "Failed to init ARP socket for: %s|%02X-%02X-%02X-%02X-%02X-%02X, bind to dev:%s\n",
               t_ipv4_text(target_be).text, MAC_ARGS(target_mac), device_name(dev));
        void_arp_target(ctx);
        // A port that cannot be asked has not answered either, and has to leave the list like any silent one.
        ctx->dev = dev;
        return;
    }
    LOG_AS(SEARCH, Debug, "Get device:%s , index=%d, hw_addr=%02x-%02x-%02x-%02x-%02x-%02x\n", dev->name,
           ctx->socket.ifindex, MAC_ARGS(ctx->source_mac));
    LOG_AS(SEARCH, Debug, "Arp packet sockfd init success in for: %s|%02X-%02X-%02X-%02X-%02X-%02X, bind to dev:%s\n",
           ARP_TARGET_ARGS(ctx), dev->name);
}

static void open_ports(const t_device_list_head &list, const t_mac &target_mac, uint32_t target_be)
{
    const t_device_list *node = list.head.next;
    for (t_arp_detect &ctx : arp_contexts()) {
        if (!node)
            break;
        open_port(&ctx, node->dev, target_mac, target_be);
        node = node->next;
    }
    if (node)
        LOG_AS(SEARCH, Error, "Impssible, will access out of bound! Check count of possible_dev_list!\n");
}

static void ask_port(t_arp_detect *ctx, int attempt)
{
    LOG_AS(SEARCH, Debug,
           "Ready to send Arp packet for: %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s, retry_times:%d/%d\n",
           ARP_TARGET_ARGS(ctx), device_name(ctx->dev), attempt, ARP_SEARCH_ATTEMPTS);
    if (send_arp_unicast_packet_blocked(ctx) != OK) {
        LOG_AS(SEARCH, Error, "Failed to send ARP socket for: %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s\n",
               ARP_TARGET_ARGS(ctx), device_name(ctx->dev));
        ctx->target_mac = UNKNOWN_MAC;
        return;
    }
    note_question(ctx->dev);
    LOG_AS(SEARCH, Debug, "Send Arp packet success for: %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s\n",
           ARP_TARGET_ARGS(ctx), device_name(ctx->dev));
}

// Takes a packet as the answer, or leaves it. Whose frame it is does not matter: an answer tells the MAC.
static bool is_answer(t_arp_detect *ctx, const t_arp_packet &packet)
{
    if (packet.opcode != ARP_OPCODE_REPLY) {
        if (may_tell_of_packet(LOG_LEVEL_Error))
            LOG_AS(SEARCH, Error, "Not a arp reply packet\n");
        return false;
    }
    if (packet.sender_ip_be != ctx->target_ip_be) {
        if (may_tell_of_packet(LOG_LEVEL_Info))
            LOG_AS(SEARCH, Info, "arp reply receieve a different ip:%s, Ignore!\n",
                   t_ipv4_text(packet.sender_ip_be).text);
        if (may_tell_of_packet(LOG_LEVEL_Info))
            LOG_AS(SEARCH, Info, "arp reply receieve a different ip, orig:%s, Ignore!\n",
                   t_ipv4_text(ctx->target_ip_be).text);
        return false;
    }
    memcpy(ctx->dev->result.server_mac, packet.sender_mac.bytes, MAC_SIZE);
    LOG_AS(SEARCH, Debug, "arp reply success in %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s, and mac is overwriten!!\n",
           ARP_TARGET_ARGS(ctx), device_name(ctx->dev));
    return true;
}

static void hear_port(t_arp_detect *ctx, int attempt)
{
    LOG_AS(SEARCH, Debug,
           "Trying to recv Arp packet for: %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s, retry_times:%d/%d\n",
           ARP_TARGET_ARGS(ctx), device_name(ctx->dev), attempt, ARP_SEARCH_ATTEMPTS);
    read_arp_replies(ctx, is_answer);
}

// One attempt over the whole batch; true when a port answered.
static bool ask_all_ports(int attempt)
{
    for (t_arp_detect &ctx : arp_contexts())
        ask_port(&ctx, attempt);
    sleep_ms(ARP_WAIT_FOR_REPLIES_MS);
    const t_arp_detect *first = nullptr;
    for (t_arp_detect &ctx : arp_contexts()) {
        hear_port(&ctx, attempt);
        if (ctx.replied && !first)
            first = &ctx;
    }
    if (first)
        LOG_AS(SEARCH, Debug, "arp reply success in dev:%s\n", device_name(first->dev));
    return first;
}

static void drop_silent_port(const t_arp_detect &silent, t_device_list_head *list)
{
    LOG_AS(SEARCH, Info,
           "No arp reply from %s|%02X-%02X-%02X-%02X-%02X-%02X via dev:%s! Remove it from possible wan list!\n",
           ARP_TARGET_ARGS(&silent), device_name(silent.dev));
    if (silent.dev)
        remove_fake_wan_if_match(silent.dev, false);
    list->remove(silent.dev);
}

int check_ip_using_arp_blocked(uint32_t target_be, const t_mac *target_mac, t_device_list_head *list,
                               uint32_t sender_be, const t_mac *sender_mac)
{
    LOG_ENTER();
    if (!list || list->count == 0 || !target_mac || !sender_mac || !sender_be || !target_be) {
        LOG(Error, "invalid parameters! Send failed!\n");
        return ERR_INVALID_INPUT;
    }
    if (arp_detect_handle.contexts) {
        LOG(Notice, "Last time handle not release, release it before resend!\n");
        release_arp_detect_handle();
    }
    const uint8_t count = list->count;
    if (!open_arp_batch(count)) {
        LOG(Error, "Failed to malloc %d t_arp_detect struct\n", count);
        return ERR_NO_MEMORY;
    }
    arp_detect_handle.sender_ip_be = sender_be;
    arp_detect_handle.sender_mac = *sender_mac;

    open_ports(*list, *target_mac, target_be);
    int attempt = 1;
    while (!ask_all_ports(attempt) && attempt < ARP_SEARCH_ATTEMPTS)
        attempt++;
    for (const t_arp_detect &ctx : arp_contexts())
        if (!ctx.replied)
            drop_silent_port(ctx, list);
    release_arp_detect_handle();
    return OK;
}
