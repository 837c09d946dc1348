// SPDX-License-Identifier: MIT
// What the batches of the DHCP and the PPPoE probe have in common: one context per port, each with a socket of its own.
#pragma once

#include <cstdint>
#include <span>

#include "platform/result_codes.h"
#include "probes/packet_socket.h"

// The identifier a probe carries, from two random values: their product in 32 bits. All ones becomes 0.
constexpr uint32_t probe_identifier(int first, int second)
{
    const uint32_t product = static_cast<uint32_t>(first) * static_cast<uint32_t>(second);
    return product == UINT32_MAX ? 0 : product;
}

// PROBE_WAITING while a port is silent and there is time, PROBE_SOME_SILENT when the time is over, PROBE_ALL_ANSWERED.
template <typename Context> int probe_batch_result(std::span<Context> contexts, uint8_t Context::*answered, bool final)
{
    for (const Context &ctx : contexts)
        if (!(ctx.*answered))
            return final ? PROBE_SOME_SILENT : PROBE_WAITING;
    return PROBE_ALL_ANSWERED;
}

// Closes what is open; contexts whose socket was never made carry -1 or 0.
template <typename Context> void close_probe_sockets(std::span<Context> contexts)
{
    for (Context &ctx : contexts)
        packet_socket_close(&ctx.watcher);
}
