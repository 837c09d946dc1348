// SPDX-License-Identifier: MIT
#include "fuzz/support/probe_scene.h"

#include <arpa/inet.h>
#include <cstring>

#include "model/lists.h"
#include "model/tables.h"
#include "platform/log.h"
#include "support/fake_clock.h"

namespace {

int drawn = 0;

t_device *add_port(t_port_model &model, const char *name, uint8_t number)
{
    t_device *dev = create_new_device(name);
    dev->link_active = 1;
    dev->priority = static_cast<int8_t>(number);
    add_device(&model.dev_hashmap_head, dev);
    t_fake_interface interface = {.ifindex = 10 + number, .mac = {0x02, 0, 0, 0, 0x01, number}};
    interface.address_be = htonl(0x0a000000U | number);
    interface.netmask_be = htonl(0xffffff00U);
    fake_wire.add_interface(name, interface);
    return dev;
}

void add_protocol_named(t_port_model &model, const char *name, int8_t priority)
{
    t_protocol *protocol = create_new_protocol(name);
    protocol->priority = priority;
    add_protocol(&model.proto_hashmap_head, protocol);
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
    memcpy(lan.mac, LAN_MAC, MAC_SIZE);
    fake_wire.add_interface("br-lan", lan);
    init_engine_gate(&gate);
    engine_gate = &gate;
    add_protocol_named(model, "pppoe", 1);
    add_protocol_named(model, "dhcp", 2);
    port = add_port(model, "eth1", 1);
    other_port = add_port(model, "eth2", 2);
    REQUIRE(add_unique_device_inorder_to_list(&list.head, port) == 0);
    list.count = 1;
}

t_probe_scene::~t_probe_scene()
{
    free_device_list(&list.head);
    release_port_model(&model);
    destroy_engine_gate(&gate);
    engine_gate = nullptr;
    REQUIRE(fake_wire.open_sockets() == 0);
}

void say_everything()
{
    log_set_level(LOG_LEVEL_Debug);
}
