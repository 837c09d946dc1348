// SPDX-License-Identifier: MIT
// Building PADI frames and taking PADO frames apart.
#include "probes/discovery/pppoe_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

#include "platform/log.h"

constexpr uint8_t PPPOE_VERSION_TYPE = 0x11;
constexpr uint8_t CODE_PADI = 0x09;
constexpr uint8_t CODE_PADO = 0x07;
constexpr int FILTERED_TAGS = 12; // of a PADO; concentrators send about five, and kernels limit what a filter takes

// Copies a record out of a frame; bytes beyond its end stay zero.
template <typename Record> static Record read_record(std::span<const uint8_t> frame, size_t position)
{
    Record record = {};
    const size_t there = frame.size() > position ? frame.size() - position : 0;
    if (there > 0)
        memcpy(&record, frame.data() + position, std::min(there, sizeof record));
    return record;
}

constexpr sock_filter KEEP = BPF_STMT(BPF_RET | BPF_K, UINT32_MAX);
constexpr sock_filter DROP = BPF_STMT(BPF_RET | BPF_K, 0);
constexpr uint32_t PAYLOAD_END = 0; // a cell of the filter's memory

// Drops what claims to be longer than it is, and leaves the payload's end in its cell.
static void filter_length(t_frame_filter *filter)
{
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(t_pppoe_start, pppoe.length_be)), // A: its length
        BPF_STMT(BPF_ALU | BPF_ADD | BPF_K, PPPOE_PAYLOAD_START),                     // A: the end of the payload
        BPF_STMT(BPF_ST, PAYLOAD_END),                                                // kept for the walk over the tags
        BPF_STMT(BPF_MISC | BPF_TAX, 0),                                              // X: that end
        BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),                                        // A: bytes that arrived
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_X, 0, 1, 0),                                 // enough: over the next one
        DROP,                                                                         // it was cut short
    };
    filter_add(filter, program);
}

// Drops a payload longer than a PADO's may be, and lets X begin at the first tag.
static void filter_payload(t_frame_filter *filter)
{
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(t_pppoe_start, pppoe.length_be)), // A: its length
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, PPPOE_MAX_PAYLOAD, 0, 1),                 // not too long: over the next one
        DROP,                                                                         // no PADO is that long
        BPF_STMT(BPF_LDX | BPF_IMM, PPPOE_PAYLOAD_START),                             // X: the first tag
    };
    filter_add(filter, program);
}

// Keeps the frame if the tag at X is the wanted one, drops it where the tags end, and else moves X to the next one.
static void filter_tag(t_frame_filter *filter, uint32_t host_uniq)
{
    constexpr uint32_t length = offsetof(t_pppoe_tag, length_be), value = sizeof(t_pppoe_tag);
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_MEM, PAYLOAD_END),                          // A: end of the payload
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_X, 0, 1, 0),                     // X before it: go on
        DROP,                                                             // no tag is left
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 0),                            // A: type of the tag
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PPPOE_TAG_END_OF_LIST, 0, 1), // another: go on
        DROP,                                                             // the list ends here
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PPPOE_TAG_HOST_UNIQ, 0, 5),   // another: to the move
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, length),                       // A: length of the value
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, sizeof host_uniq, 0, 3),      // another: to the move
        BPF_STMT(BPF_LD | BPF_W | BPF_IND, value),                        // A: the value
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(host_uniq), 0, 1),      // another: to the move
        KEEP,                                                             // the tag is ours
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, length),                       // the move; A: length,
        BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),                           // from the tag on,
        BPF_STMT(BPF_ALU | BPF_ADD | BPF_K, value),                       // behind its header
        BPF_STMT(BPF_MISC | BPF_TAX, 0),                                  // X: the next tag
    };
    filter_add(filter, program);
}

size_t build_padi(std::span<uint8_t> buffer, const t_mac &mac, uint32_t host_uniq)
{
    t_padi_frame frame = {};
    if (buffer.size() < sizeof frame)
        return 0;
    frame.ethernet.destination = BROADCAST_MAC;
    frame.ethernet.source = mac;
    frame.ethernet.ether_type_be = htons(ETH_P_PPP_DISC);
    frame.pppoe.version_type = PPPOE_VERSION_TYPE;
    frame.pppoe.code = CODE_PADI;
    frame.pppoe.length_be = htons(sizeof frame - PPPOE_PAYLOAD_START);
    frame.service_name.type_be = htons(PPPOE_TAG_SERVICE_NAME); // empty: any service
    frame.host_uniq.type_be = htons(PPPOE_TAG_HOST_UNIQ);
    frame.host_uniq.length_be = htons(sizeof host_uniq);
    frame.host_uniq_value = host_uniq;
    memcpy(buffer.data(), &frame, sizeof frame);
    return sizeof frame;
}

t_pppoe_start read_pppoe_start(std::span<const uint8_t> frame)
{
    return read_record<t_pppoe_start>(frame, 0);
}

t_pado_flaw check_pado(std::span<const uint8_t> frame)
{
    const t_pppoe_start start = read_pppoe_start(frame);
    if (start.ethernet.source == BROADCAST_MAC)
        return t_pado_flaw::broadcast_source;
    if (start.ethernet.ether_type_be != htons(ETH_P_PPP_DISC))
        return t_pado_flaw::other_ether_type;
    if (start.pppoe.code != CODE_PADO)
        return t_pado_flaw::other_code;
    if (ntohs(start.pppoe.length_be) + PPPOE_PAYLOAD_START > frame.size())
        return t_pado_flaw::length;
    return t_pado_flaw::none;
}

t_frame_filter pado_filter(uint32_t host_uniq, int level)
{
    t_frame_filter filter = {};
    if (level >= LOG_LEVEL_Debug) // tells of every frame
        return filter;
    filter_refuse_mac(&filter, offsetof(t_pppoe_start, ethernet.source), BROADCAST_MAC);
    filter_require_half(&filter, offsetof(t_pppoe_start, ethernet.ether_type_be), ETH_P_PPP_DISC);
    filter_require_byte(&filter, offsetof(t_pppoe_start, pppoe.code), CODE_PADO);
    filter_length(&filter);
    if (level < LOG_LEVEL_Info) { // tells of every whole PADO
        filter_require_byte(&filter, offsetof(t_pppoe_start, pppoe.version_type), PPPOE_VERSION_TYPE);
        filter_payload(&filter);
        for (int i = 0; i < FILTERED_TAGS; i++)
            filter_tag(&filter, host_uniq);
    }
    filter_keep(&filter);
    return filter;
}

t_pppoe_tag_view read_pppoe_tag(std::span<const uint8_t> frame, size_t payload, size_t position)
{
    const t_pppoe_tag header = read_record<t_pppoe_tag>(frame, PPPOE_PAYLOAD_START + position);
    t_pppoe_tag_view tag = {
        .type = ntohs(header.type_be), .length = ntohs(header.length_be), .whole = false, .value = {}};
    const size_t value_start = position + sizeof header;
    const size_t end = value_start + tag.length;
    tag.whole = end <= payload && PPPOE_PAYLOAD_START + end <= frame.size();
    if (tag.whole)
        tag.value = frame.subspan(PPPOE_PAYLOAD_START + value_start, tag.length);
    return tag;
}
