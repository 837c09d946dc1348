// SPDX-License-Identifier: MIT
// What is told to those who subscribed to the state object, as it happens. Loop thread only; cheap while nobody
// listens.
#pragma once

#include <cstdint>

struct t_device;

// Its link changed, once or more often, since this was told last.
void announce_link(const t_device *dev);

// The newest cycle of the chronicle begins, or is over.
void announce_cycle(bool begins);

// The newest cycle of the chronicle has a verdict, which is carried out.
void announce_verdict();

// The swap command was run for this port: its exit status, -1 without one; and in how many seconds a cycle tests it.
void announce_swap(const t_device *dev, int status, int pause_s);

// The port is banned: seconds that are left, BAN_FOREVER, or 0 when it is free again.
void announce_ban(const t_device *dev, int32_t seconds);
