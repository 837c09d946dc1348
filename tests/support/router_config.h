// SPDX-License-Identifier: MIT
// The configuration of a router whose ports are eth0, eth1, ...: what stands in its packages, as text.
#pragma once

#include <string>

constexpr int NO_COMBO_PORT = -1;

struct t_router_config {
    std::string wan_type = "dhcp";
    std::string priority = "0 1 2 3 4";
    std::string pool = "0 1 2 3 4";
    std::string fake_wan = "-1";
    std::string preferred_side = "phy";
    std::string protocol_sections = ""; // more of the package "protocol"

    std::string network() const; // five ports, detection switched on
    std::string protocol() const;
};

// port0, port1, ... for eth0, eth1, ..., one of them a combo port or none, and the WAN port.
std::string switch_config(int ports, const std::string &wan_port, int combo_port = NO_COMBO_PORT);

// A line of a section, whatever the value holds.
std::string option_line(const std::string &name, const std::string &value);
