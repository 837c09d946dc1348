// SPDX-License-Identifier: MIT
#include "model/switch_attributes.h"

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"

namespace {

class switch_attributes : public t_model_test {
protected:
    switch_attributes() : device(add_port("eth4")) { device->port_num = 0; }

    // Loads one section "port4" of these options.
    int load(std::initializer_list<t_option> options)
    {
        write_config("switch", section("switch_port", "port4", options));
        return get_eth_atrribute(port_model.dev_hashmap_head);
    }

    t_device *device;
};

} // namespace

// holds: loader-codes
TEST_F(switch_attributes, a_plain_port_gets_its_number_and_label)
{
    t_log_capture log;
    EXPECT_EQ(load({{"port", "4"}, {"ifname", "eth4"}, {"label", "LAN4"}}), 1);
    EXPECT_EQ(device->port_num, 4);
    EXPECT_STREQ(device->label, "LAN4");
    EXPECT_EQ(device->is_combo, 0);
    EXPECT_EQ(device->sub_port, SUB_PORT_PHY);
    EXPECT_EQ(device->port_addr, -1);
    EXPECT_EQ(lines_of(log, "Debug"), t_names{"get_eth_atrribute: Entering function: get_eth_atrribute!"});
    EXPECT_TRUE(log.has("Info", "get_eth_atrribute", "Parse network devices atrribute success, count:1"));
}

TEST_F(switch_attributes, a_combo_port_gets_its_side_and_address)
{
    t_log_capture log;
    EXPECT_EQ(load({{"port", "5"}, {"ifname", "eth4"}, {"type", "combo"}, {"wan_port", "sfp"}, {"addr", "7"}}), 1);
    EXPECT_EQ(device->is_combo, 1);
    EXPECT_EQ(device->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(device->port_addr, 7);
    EXPECT_TRUE(log.has("Debug", "get_eth_atrribute", "Success get device:eth4,Port:5,sub_port:sfp,port_addr=7"));
}

TEST_F(switch_attributes, a_combo_port_on_its_copper_side_is_phy)
{
    t_log_capture log;
    load({{"port", "5"}, {"ifname", "eth4"}, {"type", "combo"}, {"wan_port", "phy"}, {"addr", "0"}});
    EXPECT_EQ(device->sub_port, SUB_PORT_PHY);
    EXPECT_EQ(device->port_addr, 0);
    EXPECT_TRUE(log.has("Debug", "get_eth_atrribute", "Success get device:eth4,Port:5,sub_port:phy,port_addr=0"));
}

// holds: no-combo-is-phy
TEST_F(switch_attributes, a_port_with_a_fibre_side_that_is_no_combo_port_is_phy)
{
    load({{"port", "4"}, {"ifname", "eth4"}, {"wan_port", "sfp"}, {"addr", "3"}});
    EXPECT_EQ(device->is_combo, 0);
    EXPECT_EQ(device->sub_port, SUB_PORT_PHY);
    EXPECT_EQ(device->port_addr, -1);
}

// holds: combo-without-address
TEST_F(switch_attributes, a_combo_port_without_address_has_minus_1)
{
    load({{"port", "4"}, {"ifname", "eth4"}, {"type", "combo"}, {"wan_port", "sfp"}});
    EXPECT_EQ(device->port_addr, -1);
    EXPECT_EQ(device->is_combo, 1);
}

TEST_F(switch_attributes, an_unknown_side_is_reported_and_means_phy)
{
    t_log_capture log;
    load({{"port", "4"}, {"ifname", "eth4"}, {"type", "combo"}, {"wan_port", "SFP"}});
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "config switch.portx.wan_port only support sfp&phy!"));
    EXPECT_EQ(device->sub_port, SUB_PORT_PHY);
}

TEST_F(switch_attributes, other_types_than_combo_change_nothing)
{
    for (const char *type : {"copper", "Combo", "combo2", "x"}) {
        load({{"port", "4"}, {"ifname", "eth4"}, {"type", type}});
        EXPECT_EQ(device->is_combo, 0) << type;
    }
}

TEST_F(switch_attributes, a_section_without_interface_or_number_is_skipped)
{
    t_log_capture log;
    EXPECT_EQ(load({{"port", "4"}}), 0);
    EXPECT_EQ(load({{"ifname", "eth4"}}), 0);
    for (const char *number : {"-1", "four", "4x", "999", "99999999999999999999", "\xff"})
        EXPECT_EQ(load({{"ifname", "eth4"}, {"port", number}}), 0) << number;
    EXPECT_EQ(log.count("Info", "get_eth_atrribute", "Failed to get device by config switch.port4"), 8);
    EXPECT_EQ(device->port_num, 0);
}

TEST_F(switch_attributes, an_interface_that_is_no_ethernet_port_is_reported)
{
    t_log_capture log;
    EXPECT_EQ(load({{"port", "4"}, {"ifname", "br-lan"}}), 0);
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "br-lan not begin with \"eth\""));
    EXPECT_EQ(load({{"port", "4"}, {"ifname", "x"}}), 0);
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "x not begin with \"eth\""));
}

TEST_F(switch_attributes, an_interface_that_is_no_device_is_reported)
{
    t_log_capture log;
    EXPECT_EQ(load({{"port", "4"}, {"ifname", "eth9"}}), 0);
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "Can't find device eth9"));
    const std::string huge = "eth" + std::string(3000, '1');
    EXPECT_EQ(load({{"port", "4"}, {"ifname", huge}}), 0);
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "Can't find device " + huge.substr(0, 256)));
}

TEST_F(switch_attributes, a_list_where_a_text_is_needed_ends_the_walk_with_what_was_counted)
{
    add_port("eth5");
    for (const char *name : {"port", "ifname", "label", "wan_port", "type", "addr"}) {
        write_config("switch", section("switch_port", "port4", {{"port", "4"}, {"ifname", "eth4"}}) +
                                   section("switch_port", "port5", {}) + list_option(name, {"1", "2"}) +
                                   section("switch_port", "port6", {{"port", "6"}, {"ifname", "eth5"}}));
        t_log_capture log;
        EXPECT_EQ(get_eth_atrribute(port_model.dev_hashmap_head), 1) << name;
        EXPECT_EQ(lines_of(log, "Error"), t_names{"get_eth_atrribute: Unable to get uci network , type=switch_port"});
        EXPECT_EQ(lines_of(log, "Info"), t_names{});
    }
}

TEST_F(switch_attributes, other_lists_and_other_sections_are_no_concern)
{
    write_config("switch", section("switch_port", "port4", {{"port", "4"}, {"ifname", "eth4"}}) +
                               list_option("vlans", {"1", "2"}) + section("switch", "sw", {{"ifname", "eth9"}}));
    t_log_capture log;
    EXPECT_EQ(get_eth_atrribute(port_model.dev_hashmap_head), 1);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

TEST_F(switch_attributes, labels_are_cut_to_31_characters)
{
    for (size_t length : {31, 32, 33, 3000}) {
        load({{"port", "4"}, {"ifname", "eth4"}, {"label", std::string(length, 'L')}});
        EXPECT_EQ(device->label, std::string(31, 'L'));
    }
}

TEST_F(switch_attributes, an_address_that_is_no_small_number_is_none)
{
    for (const char *addr : {"x", "0x3", "500", "-999999999999999999999"}) {
        load({{"port", "4"}, {"ifname", "eth4"}, {"type", "combo"}, {"addr", addr}});
        EXPECT_EQ(device->port_addr, -1) << addr;
    }
}

// holds: loader-codes
TEST_F(switch_attributes, a_missing_switch_package_is_reported)
{
    t_log_capture log;
    EXPECT_EQ(get_eth_atrribute(port_model.dev_hashmap_head), ERR_CONFIG_PACKAGE);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"get_eth_atrribute: Unable to load uci switch!"});
}

// holds: load-reason-line
TEST_F(switch_attributes, a_missing_package_is_told_without_the_librarys_reason)
{
    t_log_capture log(3);
    const t_joined_errors joined;
    get_eth_atrribute(port_model.dev_hashmap_head);
    EXPECT_EQ(lines_and_errors_of(log), (t_names{"get_eth_atrribute: Unable to load uci switch!"}));
}

TEST_F(switch_attributes, an_empty_device_table_gets_none)
{
    write_config("switch", section("switch_port", "port4", {{"port", "4"}, {"ifname", "eth4"}}));
    t_log_capture log;
    EXPECT_EQ(get_eth_atrribute(nullptr), 0);
    EXPECT_TRUE(log.has("Error", "get_eth_atrribute", "Can't find device eth4"));
}
