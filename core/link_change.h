// SPDX-License-Identifier: MIT
// What the engine does when a port gains or loses its link. Any thread.
#pragma once

#include <cstdint>

struct t_device;

// From a port's link to its place among the parked ports, where the first pass after a cable moved finds it.
constexpr uint32_t PORT_SETTLE_MS = 9000;

// Stores the new state of a port of the device table and starts, delays or feeds a cycle; a link that returns lifts the
// port's ban. Always 0. Outside router mode nothing happens, not even the storing.
int wan_detect_process_link_change(t_device *dev, bool up);

// The loop is about to begin, and no other thread has: what start-up found was no change.
void count_link_changes_anew();

// Body of the detached thread of a port that came up: waits for the link to settle, then parks the port unless the link
// or the cycle is gone, or the process is about to end.
void delay_trigger_thread(t_device *dev, uint32_t settle_ms);
