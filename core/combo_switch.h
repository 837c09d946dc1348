// SPDX-License-Identifier: MIT
// The background thread that keeps a combo WAN port on the preferred side that has a link.
#pragma once

#include <cstdint>

constexpr uint32_t COMBO_INTERVAL_SECONDS = 1;
constexpr unsigned PREFERENCE_EVERY_PASSES = 10;
constexpr unsigned DECISION_EVERY_PASSES = 2;
constexpr unsigned PASS_WRAP = 60;

// What the passes remember; zero at the start, which prefers copper.
struct t_combo_state {
    unsigned pass;
    bool sfp_first;
};

// One pass; returns how many seconds to sleep before the next one (longer once after a switch).
uint32_t wan_combo_auto_switch(t_combo_state *state);

// Thread body: passes until the process ends.
void *wan_combo_switch_thread(void *);
