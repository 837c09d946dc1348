// SPDX-License-Identifier: MIT
// What the switch configuration says of each port: its number, its label and the sides of a combo port. Start-up only.
#pragma once

#include "model/device.h"

// Number of devices that got attributes, or ERR_CONFIG_PACKAGE when the package "switch" cannot be loaded.
int get_eth_atrribute(t_device *dev_hashmap_head);
