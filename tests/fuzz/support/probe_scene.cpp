// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/probe_scene.h"

#include <arpa/inet.h>
#include <cstring>

#include "model/lists.h"
#include "platform/log.h"
#include "tests/unit/support/fake_clock.h"

namespace {

int drawn = 0;

t_device *add_port(t_port_model &model, const char *name, uint8_t number)
{
    t_device *dev = add_port_to(model, name, number, true);
    t_fake_interface interface = {.ifindex = 10 + number, .mac = {{0x02, 0, 0, 0, 0x01, number}}};
    interface.address_be = htonl(0x0a000000U | number);
    interface.netmask_be = htonl(0xffffff00U);
    fake_wire.add_interface(name, interface);
    return dev;
}

} // namespace

extern "C" int rand() noexcept
{
    return ++drawn;
}

t_probe_scene::t_probe_scene()
{
    drawn = 0;
    fake_clock.reset();
    fake_wire.reset();
    t_fake_interface lan = {.ifindex = 1, .mac = {}, .address_be = inet_addr(LAN_ADDRESS)};
    lan.netmask_be = inet_addr(LAN_NETMASK);
    lan.mac = LAN_MAC;
    fake_wire.add_interface("br-lan", lan);
    add_protocol_to(model, "pppoe", 1);
    add_protocol_to(model, "dhcp", 2);
    port = add_port(model, "eth1", 1);
    other_port = add_port(model, "eth2", 2);
    REQUIRE(add_unique_device_inorder_to_list(&list.head, port) == 0);
    list.count = 1;
}

t_probe_scene::~t_probe_scene()
{
    free_device_list(&list.head);
    release_port_model(&model);
    REQUIRE(fake_wire.open_sockets() == 0);
}

void say_everything()
{
    log_set_level(LOG_LEVEL_Debug);
}
