// SPDX-License-Identifier: MIT
// Link states of the two sides of a combo port, as the router's script prints them.
#pragma once

#include <cstddef>

struct t_device;

constexpr size_t COMBO_STATE_SIZE = 128; // bytes of output that are read

// Refreshes phy_link, sfp_link and sub_port of a combo port. 1 when one of the two links changed, else 0.
int update_combo_device_status(t_device *dev);
