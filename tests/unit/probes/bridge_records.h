// SPDX-License-Identifier: MIT
// A forwarding file as the kernel writes it.
#pragma once

#include <string>

#include "probes/lan/bridge_table.h"
#include "tests/unit/probes/lan_scene.h"

inline std::string forwarding_record(const t_mac &mac, uint8_t port)
{
    t_bridge_record record = {};
    record.mac = mac;
    record.port = port;
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

// `count` records with MACs 02:00:00:00:hi:lo on port 1.
inline std::string forwarding_records(int count)
{
    std::string bytes;
    for (int i = 0; i < count; i++)
        bytes += forwarding_record({2, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}, 1);
    return bytes;
}
