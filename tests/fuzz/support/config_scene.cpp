// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/config_scene.h"

#include <cstring>
#include <unistd.h>

#include "adapters/network_status.h"
#include "adapters/wan_switch.h"
#include "core/combo_switch.h"
#include "model/current_wan.h"
#include "model/dumps.h"
#include "model/fake_wan.h"
#include "model/port_config.h"
#include "model/protocol_config.h"
#include "model/reserved_ports.h"
#include "platform/log.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/private_files.h"
#include "tests/support/world.h"
#include "tests/unit/support/fake_clock.h"

namespace {

bool is_text(const char (&field)[NAME_SIZE])
{
    return memchr(field, '\0', NAME_SIZE) != nullptr;
}

template <typename Record> unsigned check_names(const Record *table)
{
    unsigned count = 0;
    for (const Record *record = table; record; record = static_cast<const Record *>(record->hh.next), count++)
        REQUIRE(is_text(record->name) && record->name[0] != '\0');
    return count;
}

void check_ports(const t_port_model &model)
{
    REQUIRE(check_names(model.dev_hashmap_head) <= MAX_DEVICES);
    check_names(model.wan_port_pool);
    check_names(model.gaming);
    for (const t_device *table : model.lan_agg)
        check_names(table);
    for (const t_device *dev = model.dev_hashmap_head; dev; dev = static_cast<const t_device *>(dev->hh.next))
        REQUIRE(is_text(dev->label));
    for (const t_device *dev : model.priority_order)
        REQUIRE(!dev || find_device(model.dev_hashmap_head, dev->name) == dev);
    for (const t_device *dev : {model.wan_dev.load(), model.fake_wan})
        REQUIRE(!dev || find_device(model.dev_hashmap_head, dev->name) == dev);
}

void check_protocols(const t_port_model &model)
{
    check_names(model.proto_hashmap_head);
    for (const t_protocol *protocol = model.proto_hashmap_head; protocol;
         protocol = static_cast<const t_protocol *>(protocol->hh.next))
        REQUIRE(is_text(protocol->snd_conn));
    REQUIRE(!model.wan_proto || find_protocol(model.proto_hashmap_head, model.wan_proto->name) == model.wan_proto);
}

void load_ports_and_protocols(t_port_model *model)
{
    model->router_mode = get_is_router_mode();
    init_all_eth_device(model);
    init_all_protocols(model);
    init_fake_wan_device(model);
    update_lan_agg_port(model->dev_hashmap_head, &model->lan_agg[0]);
    update_lan_gaming_port(&model->gaming);
    update_wan_device(model);
    update_wan_ipv4_protocol(model);
}

// What the running daemon reads time and again.
void use_configuration(t_port_model *model)
{
    for (t_device *dev = model->dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        is_reserved_port(model, dev->name);
        set_dev_using_specific_proto(model->dev_hashmap_head, model->proto_hashmap_head, dev, model->wan_proto, nullptr,
                                     nullptr);
        switch_wan_to_dev(dev, 0);
    }
    model->enable = 1;
    model->router_mode = 1;
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    dump_all_protocols(model->proto_hashmap_head);
    clear_all_dev_proto(model);
    get_wan_detect_enable();
}

} // namespace

void prepare_config_scene()
{
    enter_private_files();
    log_set_level(LOG_LEVEL_Debug);
    static t_bound_gate gate;
    commands_print(R"({"phy":true,"sfp":true,"serdes":"phy"})"); // a combo port has the choice
}

void configure_package(const char *package, const std::string &text)
{
    unlink((std::string("/tmp/.uci/") + package).c_str());
    const std::string path = std::string("/etc/config/") + package;
    if (text.empty())
        unlink(path.c_str());
    else
        write_private_file(path, text);
}

void load_whole_configuration()
{
    fake_clock.reset();
    load_ports_and_protocols(&port_model);
    check_ports(port_model);
    check_protocols(port_model);
    use_configuration(&port_model);
    release_port_model(&port_model);
    port_model = {};
}
