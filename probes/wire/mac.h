// SPDX-License-Identifier: MIT
// A hardware address as it stands in frames and tables. Any thread.
#pragma once

#include <cstring>

#include "model/records.h"

struct t_mac {
    uint8_t bytes[MAC_SIZE];

    bool operator==(const t_mac &) const = default;
    constexpr uint8_t operator[](size_t place) const { return bytes[place]; } // for MAC_ARGS
};
static_assert(sizeof(t_mac) == MAC_SIZE && alignof(t_mac) == 1);

constexpr t_mac BROADCAST_MAC = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
constexpr t_mac UNKNOWN_MAC = {};

// The address that begins at `bytes`, MAC_SIZE of them.
inline t_mac mac_at(const void *bytes)
{
    t_mac mac;
    memcpy(mac.bytes, bytes, MAC_SIZE);
    return mac;
}
