// SPDX-License-Identifier: MIT
// Moving the WAN role to another port, a combo port to its other side, and giving up the fake WAN port, with the
// router's own commands: not while holding a lock. All but the toggling on the loop thread only, start-up included.
#pragma once

#include <cstdint>

struct t_device;

constexpr const char *PORT_RELOAD_COMMAND = "/sbin/wanlan_port_reload";
constexpr uint32_t SWITCH_BLOCK_SECONDS = 20;
constexpr int REDETECT_AFTER_SWITCH_SECONDS = 21; // at least

// Changes the side that a combo port uses and lets both background threads pause once. Nothing happens when a switch
// was made or detection switched off while it waited for the locks.
void toggle_combo_state(t_device *dev);

// Makes `dev` the WAN port unless it is that already (`force` skips the question), lets both background threads pause
// once and asks for a new cycle over all ports. The command's exit status is only told: the new cycle is the recovery.
void switch_wan_to_dev(t_device *dev, int force);

// Forgets the fake WAN port in the model and the configuration and lets the router rebuild its ports. 0, or
// ERR_INVALID_INPUT when there is none.
int wan_detect_remove_fake_wan();

// Gives the fake WAN port up if it is `dev` (and, with `need_link`, has a link). True when it did.
bool give_up_fake_wan_if_match(const t_device *dev, bool need_link);
