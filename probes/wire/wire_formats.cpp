// SPDX-License-Identifier: MIT
// The Internet checksum.
#include "probes/wire/wire_formats.h"

#include <cstring>

constexpr unsigned HALF_BITS = 16;
constexpr uint32_t HALF_MASK = 0xffff;

// Adding the carries back keeps the sum equal under one's complement arithmetic (RFC 1071).
static uint32_t fold(uint32_t sum)
{
    return (sum & HALF_MASK) + (sum >> HALF_BITS);
}

uint32_t checksum_add(uint32_t sum, const void *bytes, size_t size)
{
    const auto *next = static_cast<const uint8_t *>(bytes);
    while (size > 0) {
        uint16_t word = 0;
        const size_t taken = size < sizeof word ? size : sizeof word;
        memcpy(&word, next, taken);
        // Folded before each addition, so that no size overflows the sum.
        sum = fold(sum) + word;
        next += taken;
        size -= taken;
    }
    return sum;
}

uint16_t checksum_finish(uint32_t sum)
{
    return static_cast<uint16_t>(~fold(fold(sum)) & HALF_MASK);
}
