// SPDX-License-Identifier: MIT
// Moving the WAN role to another port, and a combo port to its other side, with the router's own command.
#pragma once

#include <cstdint>

struct t_device;

constexpr uint32_t SWITCH_BLOCK_SECONDS = 20;
constexpr int REDETECT_AFTER_SWITCH_SECONDS = 21; // at least

// Changes the side that a combo port uses and lets both background threads pause once. Nothing happens when a switch
// was made or detection switched off while it waited for the locks.
void toggle_combo_state(t_device *dev);

// Makes `dev` the WAN port unless it is that already (`force` skips the question), lets both background threads pause
// once and asks for a new cycle over all ports. The command's exit status is only told: the new cycle is the recovery.
void switch_wan_to_dev(t_device *dev, int force);
