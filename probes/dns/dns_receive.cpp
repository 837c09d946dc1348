// SPDX-License-Identifier: MIT
#include "probes/dns/dns_receive.h"

#include "model/chronicle.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "probes/dns/dns_frames.h"

constexpr size_t DNS_RECEIVE_SIZE = 256; // the last byte terminates

// A flooded port must not keep the waiting loop from its deadline.
constexpr int DNS_FRAMES_PER_READ = 1024;

static t_dns_entry *entry_of(uloop_fd *watcher)
{
    return container_of(watcher, t_dns_entry, socket.watcher);
}

static bool may_tell(t_dns_entry *entry, t_log_level level)
{
    return may_tell_of_frame(&handle_of(entry)->lines, level);
}

// False when nothing is pending or reading failed.
static bool read_answer(const t_port_socket &socket, t_dns_answer *answer, bool accept_empty)
{
    uint8_t bytes[DNS_RECEIVE_SIZE] = {};
    const ssize_t got = socket.receive(std::span(bytes).first(DNS_RECEIVE_SIZE - 1));
    if (got < 0 || (got == 0 && !accept_empty))
        return false;
    *answer = parse_dns_answer({bytes, static_cast<size_t>(got)});
    return true;
}

// Says why a frame is not the answer; one without answers is passed over in silence.
static void tell_flaw(t_dns_entry *entry, const t_dns_answer &answer, t_dns_flaw flaw, const char *speaker)
{
    switch (flaw) {
    case t_dns_flaw::identification:
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG_AS(speaker, Info, "DNS response check fail at IP id: %d/%d\n", answer.identification,
                   dns_ip_identification(entry->query_id));
        return;
    case t_dns_flaw::addresses:
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG_AS(speaker, Info, "DNS response check fail at IP addr dst_addr: %s\n",
                   t_ipv4_text(answer.destination_be).text);
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG_AS(speaker, Info, "DNS response check fail at IP addr src_addr: %s\n",
                   t_ipv4_text(answer.source_be).text);
        return;
    case t_dns_flaw::port:
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG_AS(speaker, Info, "DNS response check fail at udp port: %d/%d\n", answer.source_port, DNS_SERVER_PORT);
        return;
    case t_dns_flaw::id:
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG_AS(speaker, Info, "DNS response check fail at dns id: %d/%d\n", answer.id, entry->query_id);
        return;
    case t_dns_flaw::protocol: // each of the two ways says it at its own level
    case t_dns_flaw::no_answers:
    case t_dns_flaw::none:
        return;
    }
}

static void accept_answer(t_dns_entry *entry, const char *speaker)
{
    entry->received = 1;
    handle_of(entry)->winner = entry->dev;
    note_answer(entry->dev, nullptr);
    LOG_AS(speaker, Info, "dns response checked! eth=%s, dev_ip:%s\n", device_name(entry->dev),
           t_ipv4_text(entry->dev_ip_be).text);
    LOG_AS(speaker, Info, "dns response checked! eth=%s, dns_server:%s\n", device_name(entry->dev),
           t_ipv4_text(entry->dns_server_be).text);
}

void recv_dns_query(uloop_fd *watcher)
{
    const char *const speaker = "recv_dns_query";
    t_dns_entry *entry = entry_of(watcher);
    if (entry->received) {
        LOG(Debug, "Already receieved response!\n");
        return;
    }
    t_dns_answer answer;
    for (int i = 0; i < DNS_FRAMES_PER_READ && read_answer(entry->socket, &answer, false); i++) {
        if (may_tell(entry, LOG_LEVEL_Info))
            LOG(Info, "dns response from ip=%s!\n", t_ipv4_text(entry->dev_ip_be).text);
        const t_dns_flaw flaw = find_dns_flaw(answer, *entry, false);
        if (flaw == t_dns_flaw::none)
            return accept_answer(entry, speaker);
        if (flaw == t_dns_flaw::protocol && may_tell(entry, LOG_LEVEL_Debug))
            LOG(Debug, "DNS response check fail at IP protocol: %d/%d\n", answer.protocol, IPV4_PROTOCOL_UDP);
        tell_flaw(entry, answer, flaw, speaker);
    }
}

void uloop_recv_dns_query(uloop_fd *watcher, unsigned int events)
{
    const char *const speaker = "uloop_recv_dns_query";
    t_dns_entry *entry = entry_of(watcher);
    if (entry->received) {
        LOG(Debug, "Already receieved response!\n");
        return;
    }
    if (may_tell(entry, LOG_LEVEL_Info))
        LOG(Info, "dns response:events=%u, ip=%s!\n", events, t_ipv4_text(entry->dev_ip_be).text);
    if (!(events & ULOOP_READ))
        return;
    t_dns_answer answer;
    if (read_answer(entry->socket, &answer, true)) {
        const t_dns_flaw flaw = find_dns_flaw(answer, *entry, true);
        if (flaw == t_dns_flaw::none)
            return accept_answer(entry, speaker);
        if (flaw == t_dns_flaw::protocol && may_tell(entry, LOG_LEVEL_Info))
            LOG(Info, "DNS response check fail at IP protocol: %d/%d\n", answer.protocol, IPV4_PROTOCOL_UDP);
        tell_flaw(entry, answer, flaw, speaker);
    }
    if (may_tell(entry, LOG_LEVEL_Info))
        LOG(Info, "dns through ip %s failed!\n", t_ipv4_text(entry->dev_ip_be).text);
    entry->received = 0;
}
