// SPDX-License-Identifier: MIT
// The router around the daemon: its commands and its network manager, without running anything.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

struct t_fake_router {
    std::map<std::string, bool> links;          // what the port-state script prints
    std::map<std::string, std::string> outputs; // other commands' output, by command
    std::string port_state_output;              // replaces the script's whole output unless empty
    bool commands_start = true;
    int network_state = -1; // what the network manager says of "internet" and "wan"
    int bus_result = 0;     // result of every bus call
    int online_test_status = 0;
    bool swap_works = true;
    std::vector<std::string> commands;  // run with run_command
    std::vector<std::string> bus_calls; // "network.interface status"
    std::function<void(const std::string &command)> on_command;
    std::function<void(const std::string &command)> on_capture;
    int count(const std::string &command) const;
};

extern t_fake_router fake_router;

// Writes the switch package: ports eth0..eth<count-1> as port0.., the WAN port and, unless it is -1, the one combo
// port.
void write_switch_config(int ports, int wan_port, const std::string &more = "", int combo_port = -1);
