// SPDX-License-Identifier: MIT
#include "model/port_config.h"

#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/port_names.h"
#include "model/tables.h"
#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class port_config : public t_model_test {
protected:
    // Ports eth0 .. eth<count - 1>, each named by switch section port<N>.
    void configure(int count, const std::string &priority, const std::string &pool)
    {
        write_config("network", devices(count) + section("wan_detect", "auto_wan_detect",
                                                         {{"wan_port_priority", priority}, {"wan_port_pool", pool}}));
        write_config("switch", switch_ports(count));
    }
    static std::string device(const std::string &name) { return section("device", "", {{"name", name}}); }
    static std::string devices(int count)
    {
        std::string text;
        for (int i = 0; i < count; i++)
            text += device("eth" + std::to_string(i));
        return text;
    }
    static std::string switch_ports(int count)
    {
        std::string text;
        for (int i = 0; i < count; i++) {
            const std::string number = std::to_string(i);
            text += section("switch_port", "port" + number, {{"ifname", "eth" + number}, {"port", number}});
        }
        return text;
    }
    t_device *port(const char *name) { return find_device(port_model.dev_hashmap_head, name); }
    t_names order()
    {
        t_names names;
        for (const t_device *device : port_model.priority_order) {
            if (device)
                names.push_back(device->name);
        }
        return names;
    }
    void refuses_everything_after_the_devices(t_log_capture &log)
    {
        EXPECT_EQ(order(), t_names{});
        EXPECT_EQ(port_model.wan_port_pool, nullptr);
        EXPECT_EQ(port_model.device_count, 0);
        for (const std::string &line : lines_of(log, "Info"))
            EXPECT_EQ(line.find("Parse network devices success"), std::string::npos);
    }
};

} // namespace

// holds: loader-codes
TEST_F(port_config, devices_order_and_pool_are_loaded)
{
    configure(4, "3 1", "0 3");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 4);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), (t_names{"eth0", "eth1", "eth2", "eth3"}));
    EXPECT_EQ(order(), (t_names{"eth3", "eth1"}));
    EXPECT_EQ(names_of(port_model.wan_port_pool), (t_names{"eth0", "eth3"}));
    EXPECT_EQ(port_model.device_count, 4);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "Entering function: generate_eth_device!"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "Parse network devices(1 totoal) name: eth0"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "Parse network devices(4 totoal) name: eth3"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "Parse devices priority order: 3 1"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "Parse wan dev pool: 0 3"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "device:eth3 (priority:1) parse success!"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "device:eth1 (priority:2) parse success!"));
    EXPECT_TRUE(log.has("Debug", "generate_eth_device", "allowed wan device:eth0 parse success!"));
    EXPECT_TRUE(log.has("Info", "generate_eth_device",
                        "Parse network devices success, count:4, lan_dev count:0, wan_port_pool count:2"));
}

// holds: priority-from-1
TEST_F(port_config, the_first_port_in_the_order_has_priority_1_and_unlisted_ports_0)
{
    configure(6, "4 2", "");
    generate_eth_device(&port_model);
    EXPECT_EQ(port("eth4")->priority, 1);
    EXPECT_EQ(port("eth2")->priority, 2);
    for (const char *unlisted : {"eth0", "eth1", "eth3", "eth5"})
        EXPECT_EQ(port(unlisted)->priority, 0) << unlisted;
}

TEST_F(port_config, records_of_the_main_table_start_at_0_and_those_of_the_pool_at_minus_1)
{
    configure(2, "", "1");
    generate_eth_device(&port_model);
    EXPECT_EQ(port("eth1")->port_num, 0);
    EXPECT_EQ(port("eth1")->priority, 0);
    EXPECT_NE(port_model.wan_port_pool, port("eth1"));
    EXPECT_EQ(port_model.wan_port_pool->port_num, -1);
    EXPECT_EQ(port_model.wan_port_pool->priority, -1);
}

// holds: device-16
TEST_F(port_config, the_sixteenth_device_is_kept_and_ends_the_parse)
{
    configure(16, "1 2", "1 2");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 16);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head).size(), 16u);
    EXPECT_TRUE(log.has("Error", "generate_eth_device", "Parse network, device number more than 16!"));
    refuses_everything_after_the_devices(log);
}

// holds: device-16
TEST_F(port_config, a_seventeenth_device_is_not_read)
{
    configure(17, "1 2", "1 2");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 16);
    EXPECT_EQ(port("eth16"), nullptr);
    refuses_everything_after_the_devices(log);
}

// holds: device-16
TEST_F(port_config, fifteen_devices_are_within_the_limit)
{
    configure(15, "14", "14");
    EXPECT_EQ(generate_eth_device(&port_model), 15);
    EXPECT_EQ(order(), t_names{"eth14"});
    EXPECT_EQ(port_model.device_count, 15);
}

// holds: device-16
TEST_F(port_config, devices_that_cannot_be_ports_do_not_count_when_there_are_too_many)
{
    write_config("network", device("br-lan") + devices(14) + device("eth0.2") + device("wlan0") + device("br-guest") +
                                section("wan_detect", "auto_wan_detect",
                                        {{"wan_port_priority", "13 1"}, {"wan_port_pool", "13 1"}}));
    write_config("switch", switch_ports(14));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 14);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head).size(), 14u);
    for (const char *name : {"br-lan", "eth0.2", "wlan0", "br-guest"})
        EXPECT_EQ(port(name), nullptr) << name;
    EXPECT_EQ(order(), (t_names{"eth13", "eth1"}));
    EXPECT_EQ(names_of(port_model.wan_port_pool), (t_names{"eth13", "eth1"}));
    EXPECT_EQ(port_model.device_count, 14);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_EQ(lines_of(log, "Warning"), t_names{"generate_eth_device: Parse network, 4 device(s) that cannot be ports "
                                                "left out: br-lan eth0.2 wlan0 br-guest"});
}

// holds: device-16
TEST_F(port_config, devices_that_cannot_be_ports_stay_while_there_is_room_for_all)
{
    write_config("network", device("br-lan") + devices(13) + device("eth0.2"));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 15);
    EXPECT_NE(port("br-lan"), nullptr);
    EXPECT_NE(port("eth0.2"), nullptr);
    EXPECT_EQ(lines_of(log, "Warning"), t_names{});
}

// holds: device-16
TEST_F(port_config, the_sixteenth_port_ends_the_parse_beside_devices_that_cannot_be_ports)
{
    std::string many;
    for (int i = 0; i < 100; i++)
        many += device("a-bridge-" + std::to_string(i));
    write_config("network", many + devices(17));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 16);
    EXPECT_EQ(port("eth16"), nullptr);
    EXPECT_EQ(lines_of(log, "Warning").size(), 1u);
    EXPECT_TRUE(log.has("Error", "generate_eth_device", "Parse network, device number more than 16!"));
    refuses_everything_after_the_devices(log);
}

// holds: port-prefix
TEST_F(port_config, the_prefixes_say_what_counts_when_there_are_too_many)
{
    std::string text = section("wan_detect", "auto_wan_detect", {{"port_prefix", "lan wan"}}) + device("wan");
    for (int i = 1; i <= 4; i++)
        text += device("lan" + std::to_string(i));
    write_config("network", text + devices(14));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 5);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), (t_names{"wan", "lan1", "lan2", "lan3", "lan4"}));
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: port-prefix
TEST_F(port_config, the_prefixes_say_which_names_are_ports)
{
    const auto ports_with = [](const std::string &prefixes) {
        write_config("network", section("wan_detect", "auto_wan_detect", {{"port_prefix", prefixes}}));
        generate_eth_device(&port_model);
        t_names ports;
        for (const char *name : {"eth0", "lan1", "wan", "sfp0", "br-lan", "wlan0"})
            if (is_port_name(name))
                ports.push_back(name);
        return ports;
    };
    EXPECT_EQ(ports_with(" lan  wan sfp "), (t_names{"lan1", "wan", "sfp0"}));
    EXPECT_EQ(ports_with("  "), t_names{"eth0"});
    EXPECT_EQ(ports_with("lan"), t_names{"lan1"});
    write_config("network", devices(1));
    generate_eth_device(&port_model);
    EXPECT_FALSE(is_port_name("lan1")) << "the prefixes went with their option";
    EXPECT_TRUE(is_port_name("eth0"));
}

// holds: router-commands-prefix-told
TEST_F(port_config, commands_find_the_prefixes_in_their_environment)
{
    write_config("network", section("wan_detect", "auto_wan_detect", {{"port_prefix", "lan  wan"}}));
    generate_eth_device(&port_model);
    EXPECT_STREQ(getenv("WAN_DETECT_PORT_PREFIX"), "lan  wan");
    for (const char *none : {" ", "eth"}) {
        write_config("network", section("wan_detect", "auto_wan_detect", {{"port_prefix", none}}));
        generate_eth_device(&port_model);
        EXPECT_STREQ(getenv("WAN_DETECT_PORT_PREFIX"), none[0] == ' ' ? "" : "eth");
    }
    write_config("network", devices(1));
    generate_eth_device(&port_model);
    EXPECT_STREQ(getenv("WAN_DETECT_PORT_PREFIX"), "") << "eth and a number, not whatever begins with it";
}

// holds: port-prefix
TEST_F(port_config, ports_of_another_name_get_attributes_the_wan_role_and_the_place_of_the_fake_wan_port)
{
    write_config("network",
                 device("lan1") + device("wan") +
                     section("wan_detect", "auto_wan_detect",
                             {{"port_prefix", "lan wan"}, {"fake_wan_port", "2"}, {"wan_port_pool", "1 2"}}));
    write_config("switch", section("switch_port", "port1", {{"ifname", "wan"}, {"port", "1"}}) +
                               section("switch_port", "port2", {{"ifname", "lan1"}, {"port", "2"}}) +
                               section("switch_port", "port3", {{"ifname", "eth0"}, {"port", "3"}}) +
                               section("wan", "wan", {{"switch_port", "port1"}}));
    t_log_capture log;
    EXPECT_EQ(init_all_eth_device(&port_model), 2);
    EXPECT_EQ(port("wan")->port_num, 1);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"get_eth_atrribute: eth0 not begin with \"eth\""});
    EXPECT_EQ(names_of(port_model.wan_port_pool), (t_names{"wan", "lan1"}));
    EXPECT_EQ(update_wan_device(&port_model), OK);
    EXPECT_EQ(port_model.wan_dev, port("wan"));
    EXPECT_EQ(init_fake_wan_device(&port_model), OK);
    EXPECT_EQ(port_model.fake_wan, port("lan1"));
}

// holds: loader-codes
TEST_F(port_config, a_missing_network_package_is_reported)
{
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), ERR_CONFIG_PACKAGE);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"generate_eth_device: Unable to load uci network!"});
    EXPECT_EQ(init_all_eth_device(&port_model), ERR_CONFIG_PACKAGE);
    EXPECT_TRUE(log.has("Error", "init_all_eth_device", "Parse network devices fail!"));
}

// holds: load-reason-line
TEST_F(port_config, the_librarys_reason_for_a_missing_package_follows_the_line_about_it)
{
    t_log_capture log(3);
    const t_joined_errors joined;
    generate_eth_device(&port_model);
    EXPECT_EQ(lines_and_errors_of(log),
              (t_names{"generate_eth_device: Unable to load uci network!", "network: Entry not found"}));
}

TEST_F(port_config, a_malformed_network_package_is_reported)
{
    for (const std::string &garbage : {std::string("config device\n\toption name 'eth0"),
                                       std::string("\x7f"
                                                   "ELF\x01\x02"),
                                       std::string("option name eth0\n"), std::string(100'000, 'x')}) {
        write_config("network", garbage);
        EXPECT_EQ(generate_eth_device(&port_model), ERR_CONFIG_PACKAGE);
        EXPECT_EQ(port_model.dev_hashmap_head, nullptr);
    }
}

TEST_F(port_config, an_empty_network_package_has_no_devices)
{
    write_config("network", "");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 0);
    EXPECT_TRUE(log.has("Info", "generate_eth_device",
                        "Parse network devices success, count:0, lan_dev count:0, wan_port_pool count:0"));
}

TEST_F(port_config, a_device_section_without_name_is_skipped)
{
    write_config("network", section("device", "", {{"type", "bridge"}}) + section("device", "", {{"name", ""}}) +
                                section("interface", "lan", {{"name", "eth7"}}) + devices(1));
    EXPECT_EQ(generate_eth_device(&port_model), 1);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), t_names{"eth0"});
}

TEST_F(port_config, lists_beside_the_name_do_not_disturb_a_device)
{
    write_config("network",
                 section("device", "", {{"name", "br-lan"}}) + list_option("ports", {"eth1", "eth2"}) + devices(1));
    EXPECT_EQ(generate_eth_device(&port_model), 2);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), (t_names{"br-lan", "eth0"}));
}

TEST_F(port_config, a_list_as_device_name_ends_the_parse_with_what_was_read)
{
    configure(1, "0", "0");
    write_config("network", devices(1) + section("device", "", {}) + list_option("name", {"eth1", "eth2"}) +
                                section("device", "", {{"name", "eth3"}}));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 1);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"generate_eth_device: Unable to get uci network , type=device"});
    EXPECT_EQ(port("eth3"), nullptr);
    refuses_everything_after_the_devices(log);
}

TEST_F(port_config, a_list_as_priority_order_is_reported_and_the_walk_goes_on)
{
    configure(3, "", "");
    write_config("network", section("wan_detect", "auto_wan_detect", {{"wan_port_pool", "2"}}) +
                                list_option("wan_port_priority", {"1", "2"}) + devices(3));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 3);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"generate_eth_device: Unable to get uci network.auto_wan_detect"});
    EXPECT_EQ(order(), t_names{});
    EXPECT_EQ(names_of(port_model.wan_port_pool), t_names{"eth2"});
}

TEST_F(port_config, the_two_lists_are_read_in_the_order_of_the_section)
{
    configure(2, "", "");
    write_config("network", devices(2) + section("wan_detect", "auto_wan_detect",
                                                 {{"wan_port_pool", "1"}, {"wan_port_priority", "0"}}));
    t_log_capture log;
    generate_eth_device(&port_model);
    const t_names said = lines_of(log, "Debug");
    ASSERT_GT(said.size(), 4u);
    EXPECT_EQ(said[3], "generate_eth_device: Parse wan dev pool: 1");
    EXPECT_EQ(said[4], "generate_eth_device: Parse devices priority order: 0");
}

TEST_F(port_config, each_list_that_cannot_be_read_is_reported)
{
    configure(1, "", "");
    write_config("network", devices(1) + section("wan_detect", "auto_wan_detect", {}) +
                                list_option("wan_port_priority", {"0", "1"}) +
                                list_option("wan_port_pool", {"0", "1"}));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 1);
    EXPECT_EQ(log.count("Error", "generate_eth_device", "Unable to get uci network.auto_wan_detect"), 2);
}

TEST_F(port_config, a_device_named_twice_is_added_once)
{
    write_config("network", devices(1) + devices(2));
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 3);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), (t_names{"eth0", "eth1"}));
    EXPECT_TRUE(log.has("Error", "add_device", "Device already existed!"));
}

TEST_F(port_config, names_are_cut_to_31_characters)
{
    std::string text;
    for (size_t length : {31, 32, 33, 4000})
        text += section("device", "", {{"name", std::string(length, static_cast<char>('a' + length % 20))}});
    write_config("network", text);
    EXPECT_EQ(generate_eth_device(&port_model), 4);
    for (const std::string &name : names_of(port_model.dev_hashmap_head))
        EXPECT_EQ(name, std::string(31, name[0]));
    EXPECT_EQ(names_of(port_model.dev_hashmap_head).size(), 4u);
}

TEST_F(port_config, names_of_arbitrary_bytes_are_kept)
{
    write_config("network", section("device", "", {{"name", "\xff\x80%n%s"}}));
    EXPECT_EQ(generate_eth_device(&port_model), 1);
    EXPECT_STREQ(port_model.dev_hashmap_head->name, "\xff\x80%n%s");
}

// holds: port-without-interface
TEST_F(port_config, a_port_number_without_interface_is_skipped_and_uses_no_priority)
{
    configure(3, "9 2 8 1", "9 2");
    t_log_capture log;
    generate_eth_device(&port_model);
    EXPECT_EQ(order(), (t_names{"eth2", "eth1"}));
    EXPECT_EQ(port("eth2")->priority, 1);
    EXPECT_EQ(port("eth1")->priority, 2);
    EXPECT_EQ(log.count("Error", "generate_eth_device", "Unable to get switch.port9.ifname, skip it!!"), 2);
    EXPECT_EQ(log.count("Error", "generate_eth_device", "Unable to get switch.port8.ifname, skip it!!"), 1);
    EXPECT_TRUE(log.has("Info", "generate_eth_device",
                        "Parse network devices success, count:3, lan_dev count:0, wan_port_pool count:1"));
    EXPECT_EQ(names_of(port_model.wan_port_pool), t_names{"eth2"});
}

TEST_F(port_config, an_interface_that_is_no_device_is_reported_in_both_lists)
{
    configure(2, "0 7 1", "7 0");
    write_config("switch", switch_ports(2) + section("switch_port", "port7", {{"ifname", "br-lan"}}));
    t_log_capture log;
    generate_eth_device(&port_model);
    EXPECT_TRUE(
        log.has("Error", "generate_eth_device", "device:br-lan in network.dev_priority.ifname:0 7 1 not found!"));
    EXPECT_TRUE(log.has("Error", "generate_eth_device",
                        "device:br-lan in network.auto_wan_detect.wan_port_pool:7 0 not found!"));
    EXPECT_EQ(order(), (t_names{"eth0", "eth1"}));
    EXPECT_EQ(port("eth1")->priority, 2);
    EXPECT_EQ(names_of(port_model.wan_port_pool), t_names{"eth0"});
}

TEST_F(port_config, a_port_listed_twice_takes_two_positions_and_keeps_the_later_number)
{
    configure(2, "1 0 1", "1 1");
    generate_eth_device(&port_model);
    EXPECT_EQ(order(), (t_names{"eth1", "eth0", "eth1"}));
    EXPECT_EQ(port("eth1")->priority, 3);
    EXPECT_EQ(names_of(port_model.wan_port_pool), t_names{"eth1"});
}

TEST_F(port_config, sixteen_positions_end_the_parse)
{
    const std::string order_text = "0 1 2 0 1 2 0 1 2 0 1 2 0 1 2 0 1 2";
    configure(3, order_text, "0");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 3);
    EXPECT_EQ(order().size(), 16u);
    EXPECT_TRUE(log.has("Error", "generate_eth_device",
                        "Parse network.dev_priority.ifname:" + order_text + " device number more than 16!"));
    EXPECT_EQ(port_model.wan_port_pool, nullptr);
    EXPECT_EQ(port_model.device_count, 0);
    EXPECT_EQ(port("eth0")->priority, 16);
}

TEST_F(port_config, values_of_absurd_length_are_cut_and_their_words_skipped)
{
    configure(2, std::string(5000, '1'), std::string(5000, ' ') + "1");
    t_log_capture log;
    EXPECT_EQ(generate_eth_device(&port_model), 2);
    EXPECT_TRUE(log.has("Error", "generate_eth_device",
                        "Unable to get switch.port" + std::string(256, '1') + ".ifname, skip it!!"));
    EXPECT_EQ(port_model.wan_port_pool, nullptr);
    EXPECT_EQ(port_model.device_count, 2);
}

TEST_F(port_config, an_order_of_garbage_names_no_port)
{
    configure(2, "-1 @[ 0.ifname \xff\x01 % 0=x", "\t $(reboot)");
    EXPECT_EQ(generate_eth_device(&port_model), 2);
    EXPECT_EQ(order(), t_names{});
    EXPECT_EQ(port_model.wan_port_pool, nullptr);
}

TEST_F(port_config, without_a_switch_package_the_lists_are_skipped)
{
    configure(2, "0 1", "0");
    remove_config("switch");
    EXPECT_EQ(generate_eth_device(&port_model), 2);
    EXPECT_EQ(order(), t_names{});
    EXPECT_EQ(port_model.wan_port_pool, nullptr);
}

TEST_F(port_config, a_device_that_cannot_be_allocated_ends_the_parse)
{
    configure(3, "0", "0");
    t_log_capture log;
    t_memory_shortage shortage(1, sizeof(t_device));
    EXPECT_EQ(generate_eth_device(&port_model), 1);
    EXPECT_TRUE(log.has("Error", "generate_eth_device", "Malloc new device failed!"));
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), t_names{"eth0"});
    refuses_everything_after_the_devices(log);
}

TEST_F(port_config, a_pool_record_that_cannot_be_allocated_ends_the_parse)
{
    configure(3, "0", "0 1");
    t_log_capture log;
    t_memory_shortage shortage(4, sizeof(t_device));
    EXPECT_EQ(generate_eth_device(&port_model), 3);
    EXPECT_TRUE(log.has("Error", "generate_eth_device", "Create new device failed!"));
    EXPECT_EQ(names_of(port_model.wan_port_pool), t_names{"eth0"});
    EXPECT_EQ(port_model.device_count, 0);
}

// holds: loader-codes
TEST_F(port_config, ports_and_attributes_are_loaded_together)
{
    configure(3, "1", "1");
    t_log_capture log;
    EXPECT_EQ(init_all_eth_device(&port_model), 3);
    EXPECT_EQ(port("eth2")->port_num, 2);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: loader-codes
TEST_F(port_config, one_port_with_attributes_is_enough)
{
    configure(1, "", "");
    write_config("switch", section("switch_port", "port0", {{"port", "0"}, {"ifname", "eth0"}}));
    t_log_capture log;
    EXPECT_EQ(init_all_eth_device(&port_model), 1);
    EXPECT_FALSE(
        log.has("Error", "init_all_eth_device", "get_eth_atrribute failed, or no attribute successfully parse!"));
}

// holds: loader-codes
TEST_F(port_config, ports_without_any_attribute_are_reported)
{
    configure(1, "", "");
    write_config("switch", "");
    t_log_capture log;
    EXPECT_EQ(init_all_eth_device(&port_model), 0);
    EXPECT_TRUE(
        log.has("Error", "init_all_eth_device", "get_eth_atrribute failed, or no attribute successfully parse!"));
    remove_config("switch");
    port_model.dev_hashmap_head ? release_all_device(&port_model.dev_hashmap_head) : void();
    EXPECT_EQ(init_all_eth_device(&port_model), ERR_CONFIG_PACKAGE);
    EXPECT_EQ(
        log.count("Error", "init_all_eth_device", "get_eth_atrribute failed, or no attribute successfully parse!"), 2);
}
