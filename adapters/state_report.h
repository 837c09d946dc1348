// SPDX-License-Identifier: MIT
// The answers of the state object, and the notifications that repeat parts of them, as fields of a message. Loop
// thread.
#pragma once

#include <cstdint>

#include "adapters/bus_reply.h"
#include "adapters/engine_handlers.h"
#include "model/chronicle.h"

void report_status(t_bus_reply &reply);
void report_history(t_bus_reply &reply);
void report_cycle(t_bus_reply &reply, const t_cycle_note &cycle); // an entry of the history

// As log lines write it, for use inside one expression; empty while it is not known.
struct t_mac_text {
    char text[3 * MAC_SIZE];

    explicit t_mac_text(const uint8_t (&mac)[MAC_SIZE]);
};

// What the engine says of itself; nothing before there is one.
t_progress engine_progress();

// The port at a place of the main table, or null.
const t_device *port_at(int place);

// The WAN port; null while that is unknown, or none of the table.
const t_device *wan_port();

// What became of the port in that cycle.
t_fate fate_in(const t_cycle_note *cycle, const t_device &dev);

// The newest cycle in which something became of it, or null.
const t_cycle_note *last_look_at(const t_device &dev);

bool is_in_pool(const t_device &dev);

// "aggregation", "gaming" or null.
const char *reserved_as(const t_device &dev);

// Seconds since `then` on the clock of monotonic_s.
uint32_t seconds_since(uint32_t then_s);
