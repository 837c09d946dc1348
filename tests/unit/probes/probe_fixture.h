// SPDX-License-Identifier: MIT
// A model with ports and protocols on a fake wire, and random values of the test's choice.
#pragma once

#include <deque>
#include <list>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/support/world.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/sample_frames.h"
#include "tests/unit/support/sandbox.h"

constexpr t_mac LAN_MAC = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x01}};

// What rand() returns next; 1, 2, 3, ... when it is empty.
extern std::deque<int> next_random;

class t_probe_test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A linked port of the model with an interface on the wire: index 11, 12, ... and MAC 02:00:00:00:01:01, ...
    t_device *add_port(const char *name, int8_t priority);
    // Appends it to the list that is probed.
    void list_port(t_device *dev);
    static uint32_t ipv4(const char *text) { return inet_addr(text); }
    static t_fake_socket &socket_of(const char *port) { return fake_wire.socket(fake_wire.socket_of(port)); }

    t_port_model model_ = {};
    t_bound_gate gate_;
    t_device_list_head list_ = {};
    t_protocol *dhcp_ = nullptr;
    t_protocol *pppoe_ = nullptr;

private:
    int ports_ = 0;
};
