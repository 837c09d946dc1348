// SPDX-License-Identifier: MIT
// DNS frames in memory: building the query and judging a received frame.
#pragma once

#include <span>

#include "probes/dns/dns_entry.h"
#include "probes/wire/frame_filter.h"
#include "probes/wire/wire_formats.h"

constexpr uint16_t DNS_SERVER_PORT = 53;

// The identification in the query's IP header follows from its id.
constexpr uint16_t dns_ip_identification(uint16_t query_id)
{
    return static_cast<uint16_t>(query_id >> 4);
}

void build_dns_query(t_dns_query_frame *frame, const t_dns_entry &entry, uint32_t source_be, const t_mac &source_mac);

// What stands at the fixed offsets of a received frame; what was not received is 0.
struct t_dns_answer {
    uint8_t protocol;
    uint16_t identification;
    uint32_t source_be;
    uint32_t destination_be;
    uint16_t source_port;
    uint16_t id;
    uint16_t answers;
};
t_dns_answer parse_dns_answer(std::span<const uint8_t> bytes);

// Lets through what may be the answer to an entry's query. What is told of in the log at `level` passes as well.
t_frame_filter dns_answer_filter(const t_dns_entry &entry, int level);

// The first check that a frame fails, in the order of the checks.
enum class t_dns_flaw {
    none,
    protocol,
    identification,
    addresses,
    port,
    id,
    no_answers,
};
t_dns_flaw find_dns_flaw(const t_dns_answer &answer, const t_dns_entry &entry, bool check_identification);
