// SPDX-License-Identifier: MIT
// The fake WAN port: a port that stands in as WAN until the real one is found. The model notes which it is; what giving
// it up takes is above. Loop thread only (start-up included).
#pragma once

#include "model/port_model.h"

constexpr const char *FAKE_WAN_KEY = "network.auto_wan_detect.fake_wan_port";
constexpr const char *FAKE_WAN_NONE = "-1";

// Reads the port from the configuration. 0; ERR_CONFIG_VALUE when it is no Ethernet port; the read's result when the
// setting is missing (it is then written as "-1").
int init_fake_wan_device(t_port_model *model);

// Forgets the port, in the configuration too.
void forget_fake_wan(t_port_model *model);

// The way up for a probe that finds the port silent: gives the fake WAN port up if it is `dev` (and, with `need_link`,
// has a link); true when it did. Start-up binds it; until then nothing is given up. Not while holding a lock.
extern bool (*remove_fake_wan_if_match)(const t_device *dev, bool need_link);
