// SPDX-License-Identifier: MIT
// The background thread that looks at the links of all ports once a second.
#pragma once

#include <cstdint>

constexpr uint32_t SCAN_INTERVAL_SECONDS = 1;

// One pass; returns how many seconds to sleep before the next one (longer once after a switch of the WAN port).
uint32_t update_eth_link_status_trigger();

// Thread body: passes until the process ends.
void *link_scan_thread(void *);
