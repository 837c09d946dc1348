// SPDX-License-Identifier: MIT
#include "model/protocol_config.h"

#include "model/tables.h"
#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class protocol_config : public t_model_test {
protected:
    void configure(std::initializer_list<std::string> ipv4, std::initializer_list<std::string> ipv6)
    {
        write_config("protocol", section("family", "ipv4", {}) + list_option("protos", ipv4) +
                                     section("family", "ipv6", {}) + list_option("protos", ipv6));
    }
    void prefer(const std::string &order)
    {
        write_config("network", section("wan_detect", "auto_wan_detect", {{"proto_priority", order}}));
    }
    int load() { return init_all_protocols(&port_model); }
    t_protocol *proto(const char *name) { return find_protocol(port_model.proto_hashmap_head, name); }
};

} // namespace

// holds: loader-codes
TEST_F(protocol_config, the_protocols_of_both_families_are_created_in_order)
{
    configure({"dhcp", "pppoe", "static"}, {"dhcpv6", "slaac"});
    prefer("pppoe dhcp static");
    t_log_capture log;
    EXPECT_EQ(load(), 5);
    EXPECT_EQ(names_of(port_model.proto_hashmap_head), (t_names{"dhcp", "pppoe", "static", "dhcpv6", "slaac"}));
    EXPECT_EQ(proto("dhcp")->is_ipv4, 1);
    EXPECT_EQ(proto("slaac")->is_ipv4, 0);
    EXPECT_EQ(port_model.protocol_count, 5);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_EQ(lines_of(log, "Debug"), (t_names{"init_all_protocols: Parse ipv4 protocol(1 totoal): dhcp",
                                               "init_all_protocols: Parse ipv4 protocol(2 totoal): pppoe",
                                               "init_all_protocols: Parse ipv4 protocol(3 totoal): static",
                                               "init_all_protocols: Parse ipv6 protocol(4 totoal): dhcpv6",
                                               "init_all_protocols: Parse ipv6 protocol(5 totoal): slaac",
                                               "init_all_protocols: Parse pppoe protocol priority=1",
                                               "init_all_protocols: Parse dhcp protocol priority=2",
                                               "init_all_protocols: Parse static protocol priority=3"}));
    EXPECT_TRUE(log.has("Info", "init_all_protocols", "Parse protocol success, count:5"));
}

TEST_F(protocol_config, the_count_does_not_depend_on_the_log_level)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    t_log_capture log(0);
    EXPECT_EQ(load(), 3);
    EXPECT_EQ(proto("dhcp")->priority, 2);
}

// holds: unknown-protocol-name
TEST_F(protocol_config, an_unknown_name_in_the_order_is_reported_and_uses_no_number)
{
    configure({"dhcp", "pppoe", "static"}, {"slaac"});
    prefer("dhcp nonsense pppoe");
    t_log_capture log;
    load();
    EXPECT_EQ(proto("dhcp")->priority, 1);
    EXPECT_EQ(proto("pppoe")->priority, 2);
    EXPECT_EQ(proto("static")->priority, 0);
    EXPECT_EQ(lines_of(log, "Error"),
              t_names{"init_all_protocols: Unable to find nonsense, network.auto_wan_detect.proto_priority=dhcp "
                      "nonsense pppoe!"});
}

TEST_F(protocol_config, a_missing_order_is_pppoe_dhcp_static)
{
    configure({"dhcp", "pppoe", "static"}, {"slaac"});
    t_log_capture log;
    load();
    EXPECT_EQ(lines_of(log, "Error"),
              t_names{"init_all_protocols: Unable to get network.auto_wan_detect.proto_priority, treat it as \"pppoe "
                      "dhcp static\"!"});
    EXPECT_EQ(proto("pppoe")->priority, 1);
    EXPECT_EQ(proto("dhcp")->priority, 2);
    EXPECT_EQ(proto("static")->priority, 3);
}

// holds: protocol-order-whole
TEST_F(protocol_config, an_order_longer_than_31_characters_is_read_whole)
{
    configure({"dhcp", "pppoe", "static", "l2tp", "pptp", "v6plus", "ocn"}, {"slaac"});
    const std::string order = "static v6plus ocn l2tp pptp pppoe dhcp";
    prefer(order);
    t_log_capture log;
    load();
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_EQ(proto("static")->priority, 1);
    EXPECT_EQ(proto("pppoe")->priority, 6);
    EXPECT_EQ(proto("dhcp")->priority, 7);
}

// holds: protocol-order-whole
TEST_F(protocol_config, an_order_of_64_characters_is_read_to_its_last_word)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    prefer("dhcp " + std::string(53, 'x') + " pppoe");
    load();
    EXPECT_EQ(proto("pppoe")->priority, 2);
    prefer("dhcp " + std::string(53, 'x') + " pppoe static");
    load();
    EXPECT_EQ(proto("pppoe")->priority, 2) << "what is cut off are whole words";
}

// holds: protocol-order-whole
TEST_F(protocol_config, a_longer_order_is_not_cut_within_a_word)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    const std::string first = "dhcp " + std::string(53, 'x');
    prefer(first + " pppoeshare");
    t_log_capture log;
    load();
    EXPECT_EQ(proto("dhcp")->priority, 1);
    EXPECT_EQ(proto("pppoe")->priority, 0) << "the beginning of another name";
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to find " + std::string(53, 'x') +
                                              ", network.auto_wan_detect.proto_priority=" + first + "!"});
}

// holds: protocol-order-whole
TEST_F(protocol_config, an_order_of_one_word_that_is_too_long_orders_nothing)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    prefer(std::string(100, 'x'));
    t_log_capture log;
    load();
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_EQ(proto("dhcp")->priority, 0);
}

TEST_F(protocol_config, a_protocol_preferred_twice_keeps_the_later_number)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    prefer("dhcp pppoe dhcp");
    load();
    EXPECT_EQ(proto("dhcp")->priority, 3);
    EXPECT_EQ(proto("pppoe")->priority, 2);
}

// holds: loader-codes
TEST_F(protocol_config, a_missing_package_is_reported)
{
    t_log_capture log;
    EXPECT_EQ(load(), ERR_CONFIG_PACKAGE);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to load uci protocol!"});
}

// holds: load-reason-line
TEST_F(protocol_config, the_librarys_reason_for_a_missing_package_follows_the_line_about_it)
{
    t_log_capture log(3);
    const t_joined_errors joined;
    load();
    EXPECT_EQ(lines_and_errors_of(log),
              (t_names{"init_all_protocols: Unable to load uci protocol!", "protocol: Entry not found"}));
}

TEST_F(protocol_config, a_missing_ipv4_section_stops_at_once)
{
    write_config("protocol", section("family", "ipv6", {}) + list_option("protos", {"slaac"}));
    t_log_capture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to get uci protocol.ipv4"});
    EXPECT_EQ(port_model.proto_hashmap_head, nullptr);
}

TEST_F(protocol_config, an_ipv4_section_without_names_stops_at_once)
{
    configure({}, {"slaac"});
    t_log_capture log;
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to get uci protocol.ipv4.protos"});
}

TEST_F(protocol_config, a_missing_ipv6_section_stops_with_the_count_so_far)
{
    write_config("protocol", section("family", "ipv4", {}) + list_option("protos", {"dhcp", "pppoe"}));
    t_log_capture log;
    EXPECT_EQ(load(), 2);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to get uci protocol.ipv6"});
    EXPECT_EQ(port_model.protocol_count, 0);
    EXPECT_EQ(proto("pppoe")->priority, 0);
}

TEST_F(protocol_config, an_ipv6_section_without_names_stops_with_the_count_so_far)
{
    configure({"dhcp"}, {});
    t_log_capture log;
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"init_all_protocols: Unable to get uci protocol.ipv6.protos"});
}

TEST_F(protocol_config, a_plain_text_names_no_protocols)
{
    write_config("protocol", section("family", "ipv4", {{"protos", "dhcp pppoe"}}) + section("family", "ipv6", {}) +
                                 list_option("protos", {"slaac"}));
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(names_of(port_model.proto_hashmap_head), t_names{"slaac"});
}

TEST_F(protocol_config, a_name_given_twice_is_created_once)
{
    configure({"dhcp", "static"}, {"static"});
    t_log_capture log;
    load();
    EXPECT_EQ(names_of(port_model.proto_hashmap_head), (t_names{"dhcp", "static"}));
    EXPECT_EQ(proto("static")->is_ipv4, 1);
    EXPECT_TRUE(log.has("Error", "add_protocol", "Protocol already existed!"));
}

TEST_F(protocol_config, empty_and_over_long_names_do_no_harm)
{
    configure({"", "dhcp", std::string(31, 'a'), std::string(32, 'b'), std::string(33, 'c'), std::string(9000, 'd'),
               "\xff%s"},
              {"slaac"});
    t_log_capture log;
    load();
    EXPECT_EQ(names_of(port_model.proto_hashmap_head),
              (t_names{"dhcp", std::string(31, 'a'), std::string(31, 'b'), std::string(31, 'c'), std::string(31, 'd'),
                       "\xff%s", "slaac"}));
    EXPECT_TRUE(log.has("Error", "add_protocol", "Invalid proto_name!"));
}

TEST_F(protocol_config, more_protocols_than_the_counter_holds_are_still_loaded)
{
    std::string text = section("family", "ipv4", {});
    for (int i = 0; i < 300; i++)
        text += "\tlist protos 'p" + std::to_string(i) + "'\n";
    write_config("protocol", text + section("family", "ipv6", {}) + list_option("protos", {"slaac"}));
    EXPECT_EQ(load(), 301);
    EXPECT_EQ(port_model.protocol_count, 255);
    EXPECT_NE(proto("p299"), nullptr);
}

TEST_F(protocol_config, a_protocol_that_cannot_be_allocated_stops_the_load)
{
    configure({"dhcp", "pppoe"}, {"slaac"});
    t_log_capture log;
    {
        t_memory_shortage shortage(1, sizeof(t_protocol));
        EXPECT_EQ(load(), 1);
    }
    EXPECT_EQ(lines_of(log, "Error"), t_names{"create_new_protocol: Create new protocol failed!"});
    EXPECT_EQ(names_of(port_model.proto_hashmap_head), t_names{"dhcp"});
    release_port_model(&port_model);
    t_memory_shortage shortage(2, sizeof(t_protocol));
    EXPECT_EQ(load(), 2);
}
