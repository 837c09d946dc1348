// SPDX-License-Identifier: MIT
// What the engine does when a port gains or loses its link. Any thread.
#pragma once

#include <cstdint>

struct t_device;

constexpr int WAN_DOWN_DELAY_MS = 10000;  // from the WAN port's loss of link to the cycle
constexpr int MAX_POSTPONED_MS = 60000;   // so much longer at most, when the port flaps meanwhile
constexpr int WAN_DOWN_RETRY_MS = 1000;   // the same, while a cycle runs
constexpr uint32_t PORT_SETTLE_MS = 9000; // from a port's link to its place among the parked ports

// Stores the new state of a port of the device table and starts, delays or feeds a cycle; a link that returns lifts the
// port's ban. Always 0. Outside router mode nothing happens, not even the storing.
int wan_detect_process_link_change(t_device *dev, bool up);

// The WAN port went down too late for the cycle that just ended: the next one opens as after any loss. Nothing happens
// when the port that is the WAN port now has a link. Loop thread.
void reopen_after_wan_loss();

// Body of the detached thread of a port that came up: waits for the link to settle, then parks the port unless the link
// or the cycle is gone, or the process is about to end.
void delay_trigger_thread(t_device *dev, uint32_t settle_ms);
