// SPDX-License-Identifier: MIT
// Sockets of the ARP batch.
#include "probes/arp/arp_batch.h"

#include <algorithm>
#include <cstdlib>
#include <net/ethernet.h>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/wire/new_contexts.h"
#include "probes/wire/packet_socket.h"

constinit t_arp_detect_handle arp_detect_handle = {};

constexpr size_t RECEIVE_SIZE = 1024;

namespace {

enum class t_arp_heard {
    nothing,    // no frame is pending
    irrelevant, // not ARP, or not received on the context's port
    packet,
};

} // namespace

std::span<t_arp_detect> arp_contexts()
{
    const size_t count = arp_detect_handle.contexts ? arp_detect_handle.arp_num : 0;
    return {arp_detect_handle.contexts, count};
}

bool open_arp_batch(uint8_t count, int longest_waits_ms)
{
    arp_detect_handle.contexts = new_contexts<t_arp_detect>(count);
    if (!arp_detect_handle.contexts)
        return false;
    arp_detect_handle.arp_num = count;
    arp_detect_handle.wait_left_ms = longest_waits_ms;
    arp_detect_handle.lines.probe = "arp";
    return true;
}

// A bridge takes its members' frames before any listener for ARP hears them, and binding by name does not restrict what
// a packet socket receives: only all frames of this interface index are the port's own.
static bool listen_on_port(t_port_socket *socket, const char *name, uint32_t target_ip_be)
{
    return packet_socket_bind_to_device(socket->watcher.fd, name) == 0 &&
           socket->listen(arp_search_filter(target_ip_be, log_get_level()),
                          packet_address(ETH_P_ALL, socket->ifindex, nullptr));
}

int init_arp_sockfd(t_arp_detect *ctx, t_device *dev, const t_mac &target_mac, uint32_t target_ip_be)
{
    *ctx = {};
    ctx->target_ip_be = target_ip_be;
    ctx->target_mac = target_mac;
    if (!ctx->socket.open(dev ? ETH_P_ALL : ETH_P_ARP)) {
        LOG(Error, "Create ARP socket for %s|%02X-%02X-%02X-%02X-%02X-%02X failed!\n", ARP_TARGET_ARGS(ctx));
        return ARP_ERR_SOCKET;
    }
    if (!dev) {
        // A busy network fills the socket's queue within the wait, and the reply would be lost.
        packet_socket_filter(ctx->socket.watcher.fd, arp_host_filter(target_mac, log_get_level()));
        return OK;
    }
    const bool known = ctx->socket.look_up(dev->name);
    LOG(Debug, "Bind Arp socket into dev:%s, index:%d\n", dev->name, ctx->socket.ifindex);
    if (!known || !listen_on_port(&ctx->socket, dev->name, target_ip_be)) {
        ctx->socket.close();
        LOG(Error, "init_arp_sockfd bind to dev:%s fail!\n", dev->name);
        return ARP_ERR_BIND;
    }
    ctx->source_mac = ctx->socket.mac;
    ctx->dev = dev;
    return OK;
}

void listen_to_all_hosts()
{
    if (log_get_level() < LOG_LEVEL_Info)
        arp_detect_handle.ear.open(ETH_P_ARP);
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

// Waits as setTimeOut does, for at most what the batch has left. On a socket that hears all ARP packets, where there is
// one: whoever answers first ends the wait of all, for a network that answers is not kept waiting.
static int wait_before_sending(const t_port_socket &socket)
{
    const t_port_socket &heard_on = arp_detect_handle.ear.is_open() ? arp_detect_handle.ear : socket;
    const t_time_stamp start = get_time_stamp();
    const int result =
        setTimeOut(heard_on.watcher.fd, std::min(ARP_WAIT_BEFORE_SEND_MS, arp_detect_handle.wait_left_ms));
    const int64_t waited_ms = milliseconds_since(start);
    arp_detect_handle.wait_left_ms -= static_cast<int>(std::min<int64_t>(waited_ms, arp_detect_handle.wait_left_ms));
    return result;
}

int send_arp_unicast_packet_blocked(t_arp_detect *ctx)
{
    LOG_ENTER();
    if (!ctx->socket.is_open()) {
        LOG(Error, "Skip sending arp packet due to socket error!\n");
        return ARP_ERR_NOT_OPEN;
    }
    t_arp_frame frame;
    build_arp_request(&frame, ctx->source_mac, arp_detect_handle.sender_ip_be, ctx->target_mac, ctx->target_ip_be);
    const int ifindex = ctx->dev ? ctx->socket.ifindex : static_cast<int>(arp_detect_handle.ifindex);
    if (wait_before_sending(ctx->socket) != OK)
        return ARP_ERR_SEND;
    if (!ctx->socket.send(bytes_of(frame), packet_address(0, ifindex, nullptr))) {
        LOG(Error, "Error while sending arp socket to %s|%02X-%02X-%02X-%02X-%02X-%02X\n", ARP_TARGET_ARGS(ctx));
        ctx->socket.close();
        return ARP_ERR_SEND;
    }
    return OK;
}

static bool received_on_port(const t_arp_detect &ctx, const sockaddr_ll &from)
{
    return from.sll_pkttype != PACKET_OUTGOING && (!ctx.dev || from.sll_ifindex == ctx.socket.ifindex);
}

// Takes one pending frame of a context's socket.
static t_arp_heard hear_arp_packet(const t_arp_detect &ctx, t_arp_packet *packet)
{
    uint8_t bytes[RECEIVE_SIZE];
    sockaddr_ll from = {};
    const ssize_t got = ctx.socket.receive(bytes, &from);
    if (got <= 0)
        return t_arp_heard::nothing;
    const bool arp = received_on_port(ctx, from) && parse_arp_frame({bytes, static_cast<size_t>(got)}, packet);
    return arp ? t_arp_heard::packet : t_arp_heard::irrelevant;
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
        ctx->socket.close();
}

bool may_tell_of_packet(t_log_level level)
{
    return may_tell_of_frame(&arp_detect_handle.lines, level);
}

void void_arp_target(t_arp_detect *ctx)
{
    ctx->target_mac = UNKNOWN_MAC;
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
    for (t_arp_detect &ctx : arp_contexts())
        ctx.socket.close();
    arp_detect_handle.ear.close();
    tell_lines_left_out(&arp_detect_handle.lines);
    free(arp_detect_handle.contexts);
    LOG(Debug, "release arp_detect_handle success!\n");
    arp_detect_handle = {};
}
