// SPDX-License-Identifier: MIT
// One port's PPPoE discovery: its socket, the PADI that leaves, the PADO that comes back.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <span>
#include <sys/socket.h>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/interface_query.h"
#include "probes/packet_address.h"
#include "probes/packet_socket.h"
#include "probes/pppoe_frames.h"
#include "probes/pppoe_probe.h"
#include "probes/probe_batch.h"

constexpr size_t PPPOE_FRAME_BUFFER_SIZE = 1520;

static bool may_tell(t_log_level level)
{
    return may_tell_of_frame(&pppoe_detect_handle.lines, level);
}

int init_pppoe_sockfd(t_pppoe_detect_ctx *ctx)
{
    const int first = rand(), second = rand();
    *ctx = {};
    ctx->watcher.fd = packet_socket_open(ETH_P_ALL);
    ctx->watcher.cb = recv_pppoe_discovery_packet;
    ctx->host_uniq = probe_identifier(first, second);
    if (ctx->watcher.fd < 0) {
        if (errno == EPERM)
            LOG(Error, "Cannot create raw socket -- pppoe must be run as root.\n");
        LOG(Error, "Create pppoe request socket failed!\n");
        return PPPOE_ERR_NOT_OPEN;
    }
    const int on = 1;
    if (packet_socket_set_option(ctx->watcher.fd, SO_BROADCAST, &on, sizeof on) != 0)
        LOG(Error, "setsockopt 'SO_BROADCAST' error!\n");
    return OK;
}

void filter_pados(const t_pppoe_detect_ctx &ctx)
{
    if (ctx.watcher.fd > 0)
        packet_socket_filter(ctx.watcher.fd, pado_filter(ctx.host_uniq, log_get_level()));
}

int send_pppoe_discovery_packet(t_pppoe_detect_ctx *ctx)
{
    LOG_ENTER();
    if (ctx->watcher.fd <= 0) {
        LOG(Error, "Skip sending pppoe discoery packet due to socket error!\n");
        return PPPOE_ERR_NOT_OPEN;
    }
    // A port that is gone has index 0: nothing can be sent to that one.
    int ifindex;
    uint8_t mac[MAC_SIZE];
    query_port(ctx->watcher.fd, device_name(ctx->dev), &ifindex, mac);
    LOG(Debug, "Get device:%s , index=%d, hw_addr=%02x-%02x-%02x-%02x-%02x-%02x\n", device_name(ctx->dev), ifindex,
        MAC_ARGS(mac));
    filter_pados(*ctx);
    const sockaddr_ll everyone = packet_broadcast_address(ETH_P_ALL, ifindex);
    if (packet_socket_bind(ctx->watcher.fd, everyone) != 0) {
        LOG(Error, "Error binding socket!\n");
        packet_socket_close(&ctx->watcher);
        return PPPOE_ERR_BIND;
    }
    uint8_t frame[PPPOE_FRAME_BUFFER_SIZE];
    const size_t size = build_padi(frame, mac, ctx->host_uniq);
    if (size == 0) {
        LOG(Error, "Error while creating a pppoe discovery socket, device:%s\n", device_name(ctx->dev));
        packet_socket_close(&ctx->watcher);
        return PPPOE_ERR_FRAME;
    }
    packet_socket_unwatch(&ctx->watcher);
    if (packet_socket_send(ctx->watcher.fd, frame, size, everyone) < 0) {
        LOG(Error, "Error while writing to pppoe discovery socket, using device:%s\n", device_name(ctx->dev));
        packet_socket_close(&ctx->watcher);
        return PPPOE_ERR_SEND;
    }
    packet_socket_watch(&ctx->watcher);
    return OK;
}

void recv_pppoe_discovery_packet(uloop_fd *watcher, unsigned int events)
{
    if (!(events & ULOOP_READ)) {
        packet_socket_settle_error(watcher);
        return;
    }
    t_pppoe_detect_ctx *ctx = container_of(watcher, t_pppoe_detect_ctx, watcher);
    const char *name = device_name(ctx->dev);
    if (may_tell(LOG_LEVEL_Debug))
        LOG(Debug, "recv pppoe discovery offer(PADO) packet from dev:%s\n", name);
    uint8_t buffer[PPPOE_FRAME_BUFFER_SIZE];
    const ssize_t got = packet_socket_receive(watcher->fd, buffer, sizeof buffer, nullptr);
    if (got < 1) {
        LOG(Error, "Cannot read from socket, try again! dev=%s\n", name);
        return;
    }
    const std::span<const uint8_t> frame(buffer, static_cast<size_t>(got));
    switch (check_pado(frame)) {
    case t_pado_flaw::broadcast_source:
        if (may_tell(LOG_LEVEL_Debug))
            LOG(Debug, "Ignoring PADO packet from broadcast MAC address\n");
        return;
    case t_pado_flaw::other_ether_type:
        if (may_tell(LOG_LEVEL_Debug))
            LOG(Debug, "Ignoring packet because it is not a pppoe disover packet!\n");
        return;
    case t_pado_flaw::other_code:
        if (may_tell(LOG_LEVEL_Debug))
            LOG(Debug, "Ignoring packet because it is not a PADO packet!\n");
        return;
    case t_pado_flaw::length:
        if (may_tell(LOG_LEVEL_Debug))
            LOG(Debug, "Bogus PPPoE length field (%u) dev=%s\n", ntohs(read_pppoe_start(frame).pppoe.length_be), name);
        return;
    case t_pado_flaw::none:
        break;
    }
    if (packetIsForMe(frame.data(), frame.size(), ctx->host_uniq) != OK) {
        if (may_tell(LOG_LEVEL_Info))
            LOG(Info, "read from socket parse error, try again! dev=%s\n", name);
        return;
    }
    ctx->pado_received = 1;
    packet_socket_close(watcher);
    LOG(Info, "Success parse pppoe discovery offer(PADO) packet in dev=%s\n", name);
}

int packetIsForMe(const uint8_t *frame, size_t size, uint32_t host_uniq)
{
    const std::span<const uint8_t> bytes(frame, size);
    const t_pppoe_header header = read_pppoe_start(bytes).pppoe;
    const int version = header.version_type >> 4;
    const int type = header.version_type & 0xf;
    if (version != 1) {
        if (may_tell(LOG_LEVEL_Info))
            LOG(Info, "Invalid PPPoE version (%d)\n", version);
        return ERR_INVALID_INPUT;
    }
    if (type != 1) {
        if (may_tell(LOG_LEVEL_Info))
            LOG(Info, "Invalid PPPoE type (%d)\n", type);
        return ERR_INVALID_INPUT;
    }
    const uint16_t payload = ntohs(header.length_be);
    if (payload > PPPOE_MAX_PAYLOAD) {
        if (may_tell(LOG_LEVEL_Info))
            LOG(Info, "Invalid PPPoE packet length (%u)\n", payload);
        return ERR_INVALID_INPUT;
    }
    for (size_t position = 0; position < payload;) {
        const t_pppoe_tag_view tag = read_pppoe_tag(bytes, payload, position);
        if (tag.type == PPPOE_TAG_END_OF_LIST)
            return PPPOE_ERR_TAGS;
        if (!tag.whole) {
            if (may_tell(LOG_LEVEL_Info))
                LOG(Info, "Invalid PPPoE tag length (%u)\n", tag.length);
            return PPPOE_ERR_TAGS;
        }
        uint32_t value;
        if (tag.type == PPPOE_TAG_HOST_UNIQ && tag.length == sizeof value) {
            memcpy(&value, tag.value.data(), sizeof value);
            if (value == host_uniq)
                return OK;
            // Another one may follow.
            if (may_tell(LOG_LEVEL_Info))
                LOG(Info, "Invalid PPPoE unique host tag value (0x%08x)/(0x%08x)\n", value, host_uniq);
        }
        position += sizeof(t_pppoe_tag) + tag.length;
    }
    return ERR_INVALID_INPUT;
}
