// SPDX-License-Identifier: MIT
// A router with a LAN bridge and two ports on the fake wire, the same for every input: identifiers that the probes draw
// are known in advance, so that seeds can answer them.
#pragma once

#include "tests/fuzz/support/fuzz.h"
#include "tests/support/world.h"
#include "tests/unit/probes/fake_wire.h"

constexpr t_mac LAN_MAC = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x01}};
constexpr const char *LAN_ADDRESS = "192.168.1.1";
constexpr const char *LAN_NETMASK = "255.255.255.0";

// What two calls of rand() multiply to, first of all: 1, 2, 3, ... are drawn.
constexpr uint32_t FIRST_IDENTIFIER = 1 * 2;

struct t_probe_scene {
    t_probe_scene();
    ~t_probe_scene();
    t_probe_scene(const t_probe_scene &) = delete;
    t_probe_scene &operator=(const t_probe_scene &) = delete;

    t_bytes bytes(t_octets octets) { return {octets.begin(), octets.end()}; }

    t_port_model model = {};
    t_bound_gate gate;
    t_device_list_head list = {}; // holds `port`
    t_device *port;
    t_device *other_port;
};

// The log shows everything; for prepare().
void say_everything();
