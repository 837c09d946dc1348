// SPDX-License-Identifier: MIT
// The building blocks of frame filters.
#include "probes/wire/frame_filter.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>

constexpr uint32_t WHOLE_FRAME = UINT32_MAX;
constexpr uint32_t PACKET_TYPE = static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);

constexpr sock_filter DROP = BPF_STMT(BPF_RET | BPF_K, 0);
constexpr sock_filter KEEP = BPF_STMT(BPF_RET | BPF_K, WHOLE_FRAME);

namespace {

// A MAC as the kernel compares it: four bytes, then two.
struct t_split_mac {
    uint32_t first;
    uint16_t last;

    explicit t_split_mac(const t_mac &mac)
    {
        uint32_t first_be;
        uint16_t last_be;
        memcpy(&first_be, mac.bytes, sizeof first_be);
        memcpy(&last_be, mac.bytes + sizeof first_be, sizeof last_be);
        first = ntohl(first_be);
        last = ntohs(last_be);
    }
};

} // namespace

static void require(t_frame_filter *filter, uint16_t size, size_t offset, uint32_t value)
{
    const sock_filter load = BPF_STMT(static_cast<uint16_t>(BPF_LD | BPF_ABS | size), static_cast<uint32_t>(offset));
    const std::initializer_list<sock_filter> program = {
        load,                                             // the field
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0), // has the value: over the next one
        DROP,
    };
    filter_add(filter, program);
}

void filter_add(t_frame_filter *filter, std::initializer_list<sock_filter> instructions)
{
    for (const sock_filter &instruction : instructions)
        if (filter->length < FRAME_FILTER_SIZE)
            filter->code[filter->length++] = instruction;
}

void filter_require_byte(t_frame_filter *filter, size_t offset, uint8_t value)
{
    require(filter, BPF_B, offset, value);
}

void filter_require_half(t_frame_filter *filter, size_t offset, uint16_t value)
{
    require(filter, BPF_H, offset, value);
}

void filter_require_word(t_frame_filter *filter, size_t offset, uint32_t value)
{
    require(filter, BPF_W, offset, value);
}

void filter_require_mac(t_frame_filter *filter, size_t offset, const t_mac &mac)
{
    const t_split_mac wanted(mac);
    filter_require_word(filter, offset, wanted.first);
    filter_require_half(filter, offset + sizeof wanted.first, wanted.last);
}

void filter_refuse_mac(t_frame_filter *filter, size_t offset, const t_mac &mac)
{
    const t_split_mac refused(mac);
    const auto first = static_cast<uint32_t>(offset), last = static_cast<uint32_t>(offset + sizeof refused.first);
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, first),                // its first four bytes
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, refused.first, 0, 3), // others: over all of this
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, last),                 // its last two
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, refused.last, 0, 1),  // others: over the next one
        DROP,
    };
    filter_add(filter, program);
}

void filter_refuse_own(t_frame_filter *filter)
{
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, PACKET_TYPE),            // how the frame got here
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, 0, 1), // not by leaving: over the next one
        DROP,
    };
    filter_add(filter, program);
}

void filter_keep(t_frame_filter *filter)
{
    filter_add(filter, {KEEP});
}

void filter_drop(t_frame_filter *filter)
{
    filter_add(filter, {DROP});
}
