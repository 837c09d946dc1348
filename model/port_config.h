// SPDX-License-Identifier: MIT
// Loading the ports: which exist, their order, the pool, their switch attributes, the enable switch. Start-up only.
#pragma once

#include "model/port_model.h"

// Number of devices that got attributes, or a negative code of one of the two loaders.
int init_all_eth_device(t_port_model *model);

// Devices, priority order and pool of the package "network". The device count, or ERR_CONFIG_PACKAGE.
int generate_eth_device(t_port_model *model);

// Whether detection is switched on. Where it is off, the caller gives up the fake WAN port.
bool get_wan_detect_enable();
