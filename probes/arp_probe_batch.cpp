// SPDX-License-Identifier: MIT
// Sockets of the ARP batch.
#include "probes/arp_probe_batch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/interface_query.h"
#include "probes/packet_address.h"
#include "probes/packet_socket.h"

t_arp_detect_handle arp_detect_handle;

namespace {

constexpr size_t RECEIVE_SIZE = 1024;

// A bridge takes its members' frames before any listener for ARP hears them, and binding by name does not restrict what
// a packet socket receives: only all frames of this interface index are the port's own.
bool listen_on_port(int fd, const char *name, int ifindex)
{
    return packet_socket_bind_to_device(fd, name) == 0 &&
           packet_socket_bind(fd, packet_address(ETH_P_ALL, ifindex, nullptr)) == 0;
}

bool received_on_port(const t_arp_detect &ctx, const sockaddr_ll &from)
{
    return from.sll_pkttype != PACKET_OUTGOING && (!ctx.dev || from.sll_ifindex == ctx.ifindex);
}

// Waits as setTimeOut does, for at most what the batch has left. On a socket that hears all ARP packets, where there is
// one: whoever answers first ends the wait of all, for a network that answers is not kept waiting.
int wait_before_sending(int fd)
{
    const int heard_on = arp_detect_handle.ear.fd > 0 ? arp_detect_handle.ear.fd : fd;
    const t_time_stamp start = get_time_stamp();
    const int result = setTimeOut(heard_on, std::min(ARP_WAIT_BEFORE_SEND_MS, arp_detect_handle.wait_left_ms));
    const int64_t waited_ms = milliseconds_since(start);
    arp_detect_handle.wait_left_ms -= static_cast<int>(std::min<int64_t>(waited_ms, arp_detect_handle.wait_left_ms));
    return result;
}

enum class t_arp_heard {
    nothing,    // no frame is pending
    irrelevant, // not ARP, or not received on the context's port
    packet,
};

// Takes one pending frame of a context's socket.
t_arp_heard hear_arp_packet(const t_arp_detect &ctx, t_arp_packet *packet)
{
    uint8_t bytes[RECEIVE_SIZE];
    sockaddr_ll from = {};
    const ssize_t got = ctx.watcher.fd > 0 ? packet_socket_receive(ctx.watcher.fd, bytes, sizeof bytes, &from) : -1;
    if (got <= 0)
        return t_arp_heard::nothing;
    const bool arp = received_on_port(ctx, from) && parse_arp_frame({bytes, static_cast<size_t>(got)}, packet);
    return arp ? t_arp_heard::packet : t_arp_heard::irrelevant;
}

} // namespace

bool open_arp_batch(uint8_t count, int longest_waits_ms)
{
    arp_detect_handle.contexts = static_cast<t_arp_detect *>(calloc(count, sizeof(t_arp_detect)));
    if (!arp_detect_handle.contexts)
        return false;
    arp_detect_handle.arp_num = count;
    arp_detect_handle.wait_left_ms = longest_waits_ms;
    arp_detect_handle.lines.probe = "arp";
    for (uint8_t i = 0; i < count; i++)
        arp_detect_handle.contexts[i].watcher.fd = -1;
    return true;
}

int init_arp_sockfd(t_arp_detect *ctx, t_device *dev, const uint8_t *target_mac, uint32_t target_ip_be)
{
    *ctx = {};
    ctx->target_ip_be = target_ip_be;
    memcpy(ctx->target_mac, target_mac, MAC_SIZE);
    ctx->watcher.fd = packet_socket_open(dev ? ETH_P_ALL : ETH_P_ARP);
    if (ctx->watcher.fd < 0) {
        LOG(Error, "Create ARP socket for %s|%02X-%02X-%02X-%02X-%02X-%02X failed!\n", ARP_TARGET_ARGS(ctx));
        return ARP_ERR_SOCKET;
    }
    // A busy port fills the socket's queue within the wait, and the reply would be lost.
    packet_socket_filter(ctx->watcher.fd, dev ? arp_search_filter(target_ip_be, log_get_level())
                                              : arp_host_filter(target_mac, log_get_level()));
    if (!dev)
        return OK;
    const bool known = query_port(ctx->watcher.fd, dev->name, &ctx->ifindex, ctx->source_mac) == 0;
    LOG(Debug, "Bind Arp socket into dev:%s, index:%d\n", dev->name, ctx->ifindex);
    if (!known || !listen_on_port(ctx->watcher.fd, dev->name, ctx->ifindex)) {
        packet_socket_close(&ctx->watcher);
        LOG(Error, "init_arp_sockfd bind to dev:%s fail!\n", dev->name);
        return ARP_ERR_BIND;
    }
    ctx->dev = dev;
    return OK;
}

void listen_to_all_hosts()
{
    if (log_get_level() < LOG_LEVEL_Info)
        arp_detect_handle.ear.fd = packet_socket_open(ETH_P_ARP);
}

int setTimeOut(int fd, int milliseconds)
{
    packet_socket_set_nonblocking(fd);
    if (packet_socket_wait_readable(fd, milliseconds) < 0) {
        LOG(Error, "select error!\n");
        return ARP_ERR_WAIT;
    }
    return OK;
}

int send_arp_unicast_packet_blocked(t_arp_detect *ctx)
{
    LOG_ENTER();
    if (ctx->watcher.fd <= 0) {
        LOG(Error, "Skip sending arp packet due to socket error!\n");
        return ARP_ERR_NOT_OPEN;
    }
    t_arp_frame frame;
    build_arp_request(&frame, ctx->source_mac, arp_detect_handle.sender_ip_be, ctx->target_mac, ctx->target_ip_be);
    const int ifindex = ctx->dev ? ctx->ifindex : static_cast<int>(arp_detect_handle.ifindex);
    if (wait_before_sending(ctx->watcher.fd) != OK)
        return ARP_ERR_SEND;
    if (packet_socket_send(ctx->watcher.fd, &frame, sizeof frame, packet_address(0, ifindex, nullptr)) < 0) {
        LOG(Error, "Error while sending arp socket to %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
        packet_socket_close(&ctx->watcher);
        return ARP_ERR_SEND;
    }
    return OK;
}

void read_arp_replies(t_arp_detect *ctx, t_arp_judge judge)
{
    t_arp_heard heard = t_arp_heard::irrelevant;
    for (int i = 0; i < ARP_FRAMES_PER_READ && heard != t_arp_heard::nothing && !ctx->replied; i++) {
        t_arp_packet packet;
        heard = hear_arp_packet(*ctx, &packet);
        ctx->replied = heard == t_arp_heard::packet && judge(ctx, packet);
    }
    if (ctx->replied)
        packet_socket_close(&ctx->watcher);
}

bool may_tell_of_packet(t_log_level level)
{
    return may_tell_of_frame(&arp_detect_handle.lines, level);
}

void void_arp_target(t_arp_detect *ctx)
{
    memset(ctx->target_mac, 0, sizeof ctx->target_mac);
    ctx->target_ip_be = 0;
}

void release_arp_detect_handle()
{
    LOG_ENTER();
    if (!arp_detect_handle.contexts) {
        LOG(Info, "Release null arp_detect_handle fail!\n");
        return;
    }
    if (arp_detect_handle.arp_num == 0)
        LOG(Error, "arp_detect_handle not null but arp_num=0, may cause unclosed socket fd \n");
    for (uint8_t i = 0; i < arp_detect_handle.arp_num; i++)
        packet_socket_close(&arp_detect_handle.contexts[i].watcher);
    packet_socket_close(&arp_detect_handle.ear);
    tell_lines_left_out(&arp_detect_handle.lines);
    free(arp_detect_handle.contexts);
    LOG(Debug, "release arp_detect_handle success!\n");
    arp_detect_handle = {};
}
