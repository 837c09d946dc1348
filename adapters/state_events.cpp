// SPDX-License-Identifier: MIT
#include "adapters/state_events.h"

void announce_link(const t_device *) {}

void announce_cycle(bool) {}

void announce_verdict() {}

void announce_swap(const t_device *, int, int) {}

void announce_ban(const t_device *, int32_t) {}
