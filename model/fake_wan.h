// SPDX-License-Identifier: MIT
// The fake WAN port: a port that stands in as WAN until the real one is found. Loop thread only (start-up included).
#pragma once

#include "model/port_model.h"

constexpr const char *FAKE_WAN_KEY = "network.auto_wan_detect.fake_wan_port";
constexpr const char *FAKE_WAN_NONE = "-1";
constexpr const char *PORT_RELOAD_COMMAND = "/sbin/wanlan_port_reload";

// Reads the port from the configuration. 0; ERR_CONFIG_VALUE when it is no Ethernet port; the read's result when the
// setting is missing (it is then written as "-1").
int init_fake_wan_device(t_port_model *model);

// Forgets the fake WAN port in the model and the configuration and lets the router rebuild its ports. 0, or
// ERR_INVALID_INPUT when there is none. Runs a command: not while holding a lock.
int wan_detect_remove_fake_wan();

// Removes the fake WAN port if it is `dev` (and, with `need_link`, has a link). True when it was removed. Not while
// holding a lock.
bool remove_fake_wan_if_match(const t_device *dev, bool need_link);
