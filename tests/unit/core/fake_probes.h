// SPDX-License-Identifier: MIT
// The probes as the engine sees them, without a wire: a test says which port answers what, and looks at what was asked.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/records.h"

struct t_fake_probes {
    // What is out there.
    std::set<std::string> dhcp_ports;           // ports that answer a DISCOVER
    std::set<std::string> pppoe_ports;          // ports that answer a PADI
    std::set<std::string> silent_ports;         // ports that keep a batch waiting until its time is over
    std::set<std::string> gateway_ports;        // ports behind which the target answers ARP
    std::set<std::string> lan_ports;            // ports with LAN hosts behind them
    std::vector<std::string> dns_ports;         // ports through which a name server answers
    std::map<std::string, uint8_t> gateway_mac; // last byte of the MAC that ARP learns on a port
    bool bridge_readable = true;
    bool lose_nodes = false; // the ARP search loses its ports but not their count
    int dhcp_result = 0;     // any but 0 replaces the result of the DHCP batch
    int pppoe_result = 0;
    int send_result = 0; // of sending on every port

    // What was done.
    std::vector<std::string> calls; // "dhcp all", "pppoe eth1", "arp 10.0.0.1", "arp 10.0.0.1 as 10.0.0.2", "special
                                    // eth1 8.8.8.8", "dns", "release dhcp"
    std::vector<std::string>
        dns_entries; // "eth1 10.0.0.2 8.8.8.8 07": port, own address, server, last byte of the next hop
    int count(const std::string &call) const;
};

extern t_fake_probes fake_probes;
