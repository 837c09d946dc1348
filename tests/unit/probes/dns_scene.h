// SPDX-License-Identifier: MIT
// DNS answers as a server sends them.
#pragma once

#include "probes/dns/dns_probe.h"
#include "tests/unit/probes/bytes.h"
#include "tests/unit/probes/lan_scene.h"

struct t_dns_reply {
    uint16_t identification = 0;
    uint8_t protocol = 17;
    uint32_t source_be = 0;
    uint32_t destination_be = 0;
    uint16_t source_port = 53;
    uint16_t id = 0;
    uint16_t answers = 1;

    t_bytes bytes() const
    {
        t_bytes frame(86, 0);
        put(frame, 18, identification);
        frame[23] = protocol;
        memcpy(&frame[26], &source_be, sizeof source_be);
        memcpy(&frame[30], &destination_be, sizeof destination_be);
        put(frame, 34, source_port);
        put(frame, 42, id);
        put(frame, 48, answers);
        return frame;
    }

private:
    static void put(t_bytes &frame, size_t offset, uint16_t value)
    {
        frame[offset] = static_cast<uint8_t>(value >> 8);
        frame[offset + 1] = static_cast<uint8_t>(value);
    }
};

// The answer that an entry waits for.
inline t_dns_reply answer_to(const t_dns_entry &entry)
{
    return {.identification = static_cast<uint16_t>(entry.query_id >> 4),
            .source_be = entry.dns_server_be,
            .destination_be = entry.dev_ip_be,
            .id = entry.query_id};
}
