// SPDX-License-Identifier: MIT
// Giving up the fake WAN port: the router rebuilds its ports without it. Runs a command, so not while holding a lock.
// Loop thread only (start-up included).
#pragma once

#include "model/port_model.h"

constexpr const char *PORT_RELOAD_COMMAND = "/sbin/wanlan_port_reload";

// Forgets the port in the model and the configuration and lets the router rebuild its ports. 0, or ERR_INVALID_INPUT
// when there is none.
int wan_detect_remove_fake_wan();

// Gives the port up if it is `dev` (and, with `need_link`, has a link). True when it did.
bool give_up_fake_wan_if_match(const t_device *dev, bool need_link);
