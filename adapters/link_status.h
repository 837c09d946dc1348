// SPDX-License-Identifier: MIT
// Link states of ports and of the two sides of a combo port, as the router's scripts print them.
#pragma once

#include <cstddef>

struct t_device;

constexpr const char *PORT_STATE_COMMAND = "/etc/wan_detect/get_all_port_state.sh";
constexpr size_t PORT_STATE_SIZE = 512; // bytes of output that are read
constexpr size_t COMBO_STATE_SIZE = 128;

// Runs the port-state script and reports every changed port to the engine, which stores the new state. 1 when a link
// changed, else 0. Takes no lock.
int update_eth_link_status_using_script(t_device *dev_hashmap_head);

// The same with a trace line; always 0.
int update_eth_link_status(t_device *dev_hashmap_head);

// Refreshes phy_link, sfp_link and sub_port of a combo port. 1 when one of the two links changed, else 0.
int update_combo_device_status(t_device *dev);
