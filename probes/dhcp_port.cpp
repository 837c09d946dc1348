// SPDX-License-Identifier: MIT
// One port's DHCP exchange: its socket, the DISCOVER that leaves, the OFFER that comes back.
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <span>

#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_frames.h"
#include "probes/dhcp_probe.h"
#include "probes/interface_query.h"
#include "probes/packet_address.h"
#include "probes/packet_socket.h"
#include "probes/probe_batch.h"

constexpr size_t DHCP_FRAME_BUFFER_SIZE = 1024;

static bool may_tell(t_log_level level)
{
    return may_tell_of_frame(&dhcp_detect_handle.lines, level);
}

int init_dhcp_sockfd(t_dhcp_detect_ctx *ctx)
{
    const int first = rand(), second = rand();
    *ctx = {};
    ctx->watcher.fd = packet_socket_open(ETH_P_ALL);
    ctx->watcher.cb = recv_dhcp_discovery_packet;
    ctx->random_xid = probe_identifier(first, second);
    if (ctx->watcher.fd < 0) {
        LOG(Error, "Create DHCP request socket failed!\n");
        return DHCP_ERR_SOCKET;
    }
    return OK;
}

void filter_dhcp_offers(const t_dhcp_detect_ctx &ctx)
{
    if (ctx.watcher.fd > 0)
        packet_socket_filter(ctx.watcher.fd,
                             dhcp_offer_filter(ctx.random_xid, dhcp_detect_handle.lan_mac, log_get_level()));
}

int send_dhcp_discovery_packet(t_dhcp_detect_ctx *ctx)
{
    LOG_ENTER();
    if (ctx->watcher.fd <= 0) {
        LOG(Error, "Skip sending dhcp discoery packet due to socket error!\n");
        return DHCP_ERR_NOT_OPEN;
    }
    // A port that is gone has index 0: nothing can be sent to that one.
    int ifindex;
    uint8_t mac[MAC_SIZE];
    query_port(ctx->watcher.fd, device_name(ctx->dev), &ifindex, mac);
    LOG(Debug, "Get device:%s , index=%d, hw_addr=%02x-%02x-%02x-%02x-%02x-%02x\n", device_name(ctx->dev), ifindex,
        MAC_ARGS(mac));
    filter_dhcp_offers(*ctx);
    const sockaddr_ll everyone = packet_broadcast_address(ETH_P_ALL, ifindex);
    if (packet_socket_bind(ctx->watcher.fd, everyone) != 0) {
        LOG(Error, "Error binding socket!\n");
        packet_socket_close(&ctx->watcher);
        return DHCP_ERR_BIND;
    }
    uint8_t frame[DHCP_FRAME_BUFFER_SIZE];
    const size_t size = build_dhcp_discover(frame, mac, ctx->random_xid);
    packet_socket_unwatch(&ctx->watcher);
    if (packet_socket_send(ctx->watcher.fd, frame, size, everyone) < 0) {
        LOG(Error, "Error while writing to dhcp request socket, using device:%s\n", device_name(ctx->dev));
        packet_socket_close(&ctx->watcher);
        return DHCP_ERR_SEND;
    }
    packet_socket_watch(&ctx->watcher);
    return OK;
}

constexpr const char *RECEIVING = "recv_dhcp_discovery_packet"; // its part speaks in its name

static void learn_options(t_dhcp_offer *offer, const char *name, t_detect_result *result)
{
    t_dhcp_option option;
    while (next_dhcp_option(&offer->options, &option)) {
        switch (learn_dhcp_option(option, result)) {
        case t_dhcp_learned::gateway:
            LOG_AS(RECEIVING, Debug, "dev:%s, GATEWAY=%s\n", name, t_ipv4_text(result->gateway.ipv4_be).text);
            break;
        case t_dhcp_learned::dns_server:
            LOG_AS(RECEIVING, Debug, "dev:%s, DNS_SERVER=%s\n", name, t_ipv4_text(result->dns_server.ipv4_be).text);
            break;
        case t_dhcp_learned::nothing:
            break;
        }
    }
}

void recv_dhcp_discovery_packet(uloop_fd *watcher, unsigned int events)
{
    if (!(events & ULOOP_READ)) {
        packet_socket_settle_error(watcher);
        return;
    }
    t_dhcp_detect_ctx *ctx = container_of(watcher, t_dhcp_detect_ctx, watcher);
    const char *name = device_name(ctx->dev);
    if (may_tell(LOG_LEVEL_Debug))
        LOG(Debug, "recv dhcp discovery packet from dev:%s\n", name);
    uint8_t frame[DHCP_FRAME_BUFFER_SIZE];
    const ssize_t got = packet_socket_receive(watcher->fd, frame, sizeof frame, nullptr);
    if (got < 1) {
        LOG(Error, "Cannot read from socket, try again! dev=%s\n", name);
        return;
    }
    t_dhcp_offer offer;
    if (!parse_dhcp_offer({frame, static_cast<size_t>(got)}, &offer)) {
        if (may_tell(LOG_LEVEL_Debug))
            LOG(Debug, "read from socket parse error, try again! dev=%s\n", name);
        return;
    }
    if (offer.xid != ctx->random_xid) {
        if (may_tell(LOG_LEVEL_Info))
            LOG(Info, "Not match: rdhcp->xid=0x%08x, dhcp_detect_ctx->random_xid=0x%08x\n", offer.xid, ctx->random_xid);
        return;
    }
    ctx->result.address.ipv4_be = offer.address_be;
    memcpy(ctx->result.server_mac, offer.server_mac, MAC_SIZE);
    const bool is_own = memcmp(offer.server_mac, dhcp_detect_handle.lan_mac, MAC_SIZE) == 0;
    if (!is_own || may_tell(LOG_LEVEL_Debug))
        LOG(Debug, "dev:%s, IPADDR=%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n", name, t_ipv4_text(offer.address_be).text,
            MAC_ARGS(offer.server_mac));
    if (is_own) {
        if (may_tell(LOG_LEVEL_Warning))
            LOG(Warning,
                "Detecing dhcp offer from own mac:%02X-%02X-%02X-%02X-%02X-%02X, meaning there is a cirecle in lan!!\n",
                MAC_ARGS(offer.server_mac));
        return;
    }
    learn_options(&offer, name, &ctx->result);
    ctx->offer_received = 1;
    packet_socket_close(watcher);
    LOG(Info, "Success parse dhcp discovery packet in dev=%s\n", name);
}
