// SPDX-License-Identifier: MIT
#include "tests/unit/probes/probe_fixture.h"

#include <cstring>

#include "model/lists.h"

std::deque<int> next_random;

static int unchosen_random = 0;

extern "C" int rand() noexcept
{
    if (next_random.empty())
        return ++unchosen_random;
    const int chosen = next_random.front();
    next_random.pop_front();
    return chosen;
}

void t_probe_test::SetUp()
{
    next_random.clear();
    unchosen_random = 0;
    fake_wire.reset();
    t_fake_interface lan = {
        .ifindex = 1, .mac = {}, .address_be = ipv4("192.168.1.1"), .netmask_be = ipv4("255.255.255.0")};
    lan.mac = LAN_MAC;
    fake_wire.add_interface("br-lan", lan);
    dhcp_ = add_protocol_to(model_, "dhcp", 2);
    pppoe_ = add_protocol_to(model_, "pppoe", 1);
}

void t_probe_test::TearDown()
{
    list_.clear();
    release_port_model(&model_);
    EXPECT_EQ(fake_wire.open_sockets(), 0) << "a probe left a socket open";
}

t_device *t_probe_test::add_port(const char *name, int8_t priority)
{
    ports_++;
    t_device *dev = add_port_to(model_, name, priority, true);
    t_fake_interface interface = {.ifindex = 10 + ports_, .mac = {{0x02, 0, 0, 0, 0x01, static_cast<uint8_t>(ports_)}}};
    fake_wire.add_interface(name, interface);
    return dev;
}

void t_probe_test::list_port(t_device *dev)
{
    list_.add(dev);
}
