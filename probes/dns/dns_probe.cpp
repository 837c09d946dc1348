// SPDX-License-Identifier: MIT
// The DNS probe: a socket per port, the queries, and the wait for the first answer.
#include "probes/dns/dns_probe.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <poll.h>
#include <span>
#include <sys/socket.h>

#include "model/chronicle.h"
#include "platform/clock.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dns/dns_frames.h"
#include "probes/dns/dns_receive.h"
#include "probes/wire/packet_socket.h"

constexpr int DNS_QUERY_ID_LIMIT = 65535;
constexpr int DNS_TIMEOUT_SECONDS = 3;
constexpr int64_t DNS_TIMEOUT_US = int64_t{DNS_TIMEOUT_SECONDS} * MICROSECONDS_PER_SECOND;

static std::span<t_dns_entry> entries_of(t_dns_ctx *ctx)
{
    return {ctx->entries, static_cast<size_t>(std::clamp(ctx->count, 0, DNS_MAX_ENTRIES))};
}

static bool switch_off_address_reuse(int fd)
{
    const int off = 0;
    return packet_socket_set_option(fd, SO_REUSEADDR, &off, sizeof off) == 0;
}

static void limit_transfer_times(int fd)
{
    const timeval limit = {.tv_sec = DNS_TIMEOUT_SECONDS, .tv_usec = 0};
    packet_socket_set_option(fd, SO_SNDTIMEO, &limit, sizeof limit);
    packet_socket_set_option(fd, SO_RCVTIMEO, &limit, sizeof limit);
}

static void close_all(std::span<t_dns_entry> entries)
{
    for (t_dns_entry &entry : entries)
        close_dns_entry(&entry);
}

// Who wants to answer may first have to ask for the address that it goes to.
static void answer_askers(std::span<t_dns_entry> entries)
{
    for (t_dns_entry &entry : entries)
        answer_arp_questions(&entry.answerer);
}

static void start_answerer(t_dns_entry *entry, uint32_t own_ip_be)
{
    t_arp_answerer *answerer = &entry->answerer;
    answerer->dev = entry->dev;
    answerer->socket.ifindex = entry->socket.ifindex;
    answerer->socket.mac = entry->socket.mac;
    answerer->own_ip_be = own_ip_be;
    answerer->next_hop = entry->server_mac;
    start_arp_answers(answerer);
}

static pollfd await_reading(const t_port_socket &socket)
{
    return {.fd = socket.watcher.fd, .events = POLLIN, .revents = 0};
}

// Reads what is pending; the first entry in table order that has its answer, or null.
static const t_dns_entry *take_first_answer(std::span<t_dns_entry> entries)
{
    for (t_dns_entry &entry : entries) {
        if (!entry.socket.is_open())
            continue;
        recv_dns_query(&entry.socket.watcher);
        if (entry.received && entry.dev)
            return &entry;
    }
    return nullptr;
}

// Sleeps until a socket has a frame or the probe's time is over.
static void await_frames(std::span<const t_dns_entry> entries, int64_t elapsed_us)
{
    pollfd sockets[2 * DNS_MAX_ENTRIES];
    size_t count = 0;
    for (const t_dns_entry &entry : entries) {
        sockets[count++] = await_reading(entry.socket);
        sockets[count++] = await_reading(entry.answerer.socket);
    }
    const int64_t left_ms = (DNS_TIMEOUT_US - elapsed_us) / MICROSECONDS_PER_MILLISECOND + 1;
    packet_socket_poll(sockets, count, static_cast<int>(left_ms));
}

void close_dns_entry(t_dns_entry *entry)
{
    entry->socket.close();
    stop_arp_answers(&entry->answerer);
}

// Opens one entry's socket; the entry stays closed on failure.
static void dnslookup_init_fd(t_dns_entry *entry)
{
    entry->socket = {};
    entry->answerer = {};
    entry->socket.watcher.cb = uloop_recv_dns_query;
    LOG(Info, "sending eth:%s using ip %s is in initial!\n", device_name(entry->dev),
        t_ipv4_text(entry->dev_ip_be).text);
    if (!entry->socket.open(ETH_P_ALL)) {
        LOG(Error, "dnslookup_init_fd create socket in %s fail!\n", device_name(entry->dev));
        return;
    }
    const int fd = entry->socket.watcher.fd;
    if (!entry->dev || packet_socket_bind_to_device(fd, entry->dev->name) != 0) {
        entry->socket.close();
        LOG(Error, "dnslookup_init_fd bindtodevice in %s fail!\n", device_name(entry->dev));
        return;
    }
    if (!switch_off_address_reuse(fd)) {
        entry->socket.close();
        LOG(Error, "Failed to set socket in %s option 'SO_REUSE\n", device_name(entry->dev));
        return;
    }
    limit_transfer_times(fd);
    packet_socket_set_nonblocking(fd);
}

int send_dns_query(uint32_t source_be, t_dns_entry *entry)
{
    t_port_socket &socket = entry->socket;
    const bool known = socket.look_up(entry->dev->name);
    const sockaddr_ll next_hop = packet_address(ETH_P_ALL, socket.ifindex, &entry->server_mac);
    if (!known || !socket.listen(dns_answer_filter(*entry, log_get_level()), next_hop)) {
        LOG(Error, "detect_all_dns_query bind socket to %s fail!\n", device_name(entry->dev));
        close_dns_entry(entry);
        return DNS_ERR_BIND;
    }
    start_answerer(entry, source_be);
    t_dns_query_frame frame;
    build_dns_query(&frame, *entry, source_be, socket.mac);
    if (!socket.send(bytes_of(frame), next_hop)) {
        LOG(Error, "dns sendto %s failed, errno=%d!\n", t_ipv4_text(entry->dns_server_be).text, errno);
        close_dns_entry(entry);
        return DNS_ERR_SEND;
    }
    note_question(entry->dev);
    return OK;
}

static int wait_dns_response(t_dns_ctx *ctx)
{
    const std::span<t_dns_entry> entries = entries_of(ctx);
    const t_time_stamp start = get_time_stamp();
    for (int64_t elapsed_us = 0; elapsed_us <= DNS_TIMEOUT_US;) {
        if (const t_dns_entry *answered = take_first_answer(entries)) {
            ctx->winner = answered->dev;
            LOG(Debug, "dnslookup success, eth=%s, dev_ip:%s\n", answered->dev->name,
                t_ipv4_text(answered->dev_ip_be).text);
            LOG(Debug, "dnslookup success, eth=%s, dns_server:%s, server_mac:%02X-%02X-%02X-%02X-%02X-%02X\n",
                answered->dev->name, t_ipv4_text(answered->dns_server_be).text, MAC_ARGS(answered->server_mac));
            close_all(entries);
            LOG(Debug, "gethostbyname_own_implement return success!\n");
            return OK;
        }
        answer_askers(entries);
        elapsed_us = time_stamp_diff_us(get_time_stamp(), start);
        if (elapsed_us <= DNS_TIMEOUT_US)
            await_frames(entries, elapsed_us);
    }
    for (const t_dns_entry &entry : entries) {
        if (!entry.socket.is_open())
            continue;
        LOG(Info, "dnslookup failed at: %s, dev_ip:%s\n", device_name(entry.dev), t_ipv4_text(entry.dev_ip_be).text);
        LOG(Info, "dnslookup failed at: %s, dns_server:%s, server_mac:%02X-%02X-%02X-%02X-%02X-%02X\n",
            device_name(entry.dev), t_ipv4_text(entry.dns_server_be).text, MAC_ARGS(entry.server_mac));
    }
    close_all(entries);
    ctx->winner = nullptr;
    LOG(Error, "gethostbyname_own_implement resolve failed!, ret = %d\n", DNS_NO_ANSWER);
    return DNS_NO_ANSWER;
}

int gethostbyname_own_implement(t_dns_ctx *ctx)
{
    for (t_dns_entry &entry : entries_of(ctx))
        dnslookup_init_fd(&entry);
    for (t_dns_entry &entry : entries_of(ctx)) {
        if (!entry.socket.is_open())
            continue;
        entry.query_id = static_cast<uint16_t>(rand() % DNS_QUERY_ID_LIMIT);
        if (send_dns_query(entry.dev_ip_be, &entry) == OK)
            LOG(Debug, "Send dns request to %s success using dev:%s\n", t_ipv4_text(entry.dns_server_be).text,
                device_name(entry.dev));
    }
    const int result = wait_dns_response(ctx);
    tell_lines_left_out(&ctx->lines);
    return result;
}

int dns_lookup_via_multi_eth(t_dns_ctx *ctx)
{
    LOG_ENTER();
    ctx->winner = nullptr;
    ctx->lines = {};
    ctx->lines.probe = "dns";
    int32_t index = 0;
    for (t_dns_entry &entry : entries_of(ctx)) {
        entry.index = index++;
        entry.received = 0;
    }
    return gethostbyname_own_implement(ctx) == OK ? 1 : 0;
}
