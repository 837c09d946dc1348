// SPDX-License-Identifier: MIT
#include "model/current_wan.h"

#include <cstring>

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"

namespace {

class current_wan : public t_model_test {
protected:
    void wan_section(const std::string &name)
    {
        write_config("switch", section("wan", "wan", {{"switch_port", name}}) +
                                   section("switch_port", "port4", {{"ifname", "eth4"}}) +
                                   section("switch_port", "bridge", {{"ifname", "br-lan"}}) +
                                   section("switch_port", "long", {{"ifname", "eth" + std::string(40, '1')}}) +
                                   section("switch_port", "bare", {{"port", "1"}}));
    }
    void wan(std::initializer_list<t_option> options) { write_config("network", section("interface", "wan", options)); }
    // The connection type after an update, "null" when unknown.
    std::string type_after_update()
    {
        update_wan_ipv4_protocol(&port_model);
        return protocol_name(port_model.wan_proto);
    }
};

} // namespace

// holds: wan-port-codes
TEST_F(current_wan, the_interface_of_the_wan_section_is_the_wan_port)
{
    wan_section("port4");
    t_device *device = add_port("eth4");
    t_log_capture log;
    EXPECT_EQ(update_wan_device(&port_model), OK);
    EXPECT_EQ(port_model.wan_dev.load(), device);
    EXPECT_TRUE(log.has("Debug", "update_wan_device", "Entering function: update_wan_device!"));
    EXPECT_TRUE(log.has("Debug", "get_wan_device_name", "Successful get wan device:eth4"));
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: bridge-wan, wan-port-codes
TEST_F(current_wan, a_section_of_a_bridge_is_rejected)
{
    wan_section("bridge");
    t_device *former = add_port("eth4");
    port_model.wan_dev = former;
    t_log_capture log;
    EXPECT_EQ(update_wan_device(&port_model), ERR_CONFIG_VALUE);
    EXPECT_EQ(lines_of(log, "Error"),
              (t_names{"get_wan_device_name: switch.bridge.ifname=br-lan, or not begin with \"eth\"",
                       "update_wan_device: get_wan_device_name failed!"}));
    EXPECT_EQ(port_model.wan_dev.load(), former);
}

// holds: wan-port-codes
TEST_F(current_wan, a_missing_section_name_is_reported_with_the_code_of_the_read)
{
    char name[NAME_SIZE] = "before";
    t_log_capture log;
    EXPECT_EQ(get_wan_device_name(name, sizeof name), -1);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(lines_of(log, "Error"), t_names{"get_wan_device_name: switch.wan.switch_port="});
    EXPECT_EQ(update_wan_device(&port_model), ERR_CONFIG_VALUE);
}

// holds: wan-port-codes
TEST_F(current_wan, a_section_that_leads_nowhere_is_rejected)
{
    char name[NAME_SIZE];
    for (const std::string &bad : {std::string("bare"), std::string("nosuch"), std::string(64, 'p'),
                                   std::string(4000, 'p'), std::string("port4.ifname"), std::string("\xff\x01")}) {
        wan_section(bad);
        t_log_capture log;
        EXPECT_EQ(get_wan_device_name(name, sizeof name), ERR_CONFIG_VALUE);
        EXPECT_STREQ(name, "");
        EXPECT_TRUE(log.has("Error", "get_wan_device_name",
                            "switch." + bad.substr(0, 64) + ".ifname=, or not begin with \"eth\""));
    }
}

TEST_F(current_wan, a_name_is_cut_to_the_buffer_and_terminated)
{
    wan_section("long");
    char name[NAME_SIZE];
    EXPECT_EQ(get_wan_device_name(name, sizeof name), OK);
    EXPECT_EQ(name, "eth" + std::string(28, '1'));
    char tiny[1] = {'x'};
    EXPECT_EQ(get_wan_device_name(tiny, sizeof tiny), OK);
    EXPECT_EQ(tiny[0], '\0');
    EXPECT_EQ(get_wan_device_name(name, 0), ERR_INVALID_INPUT);
    EXPECT_EQ(get_wan_device_name(nullptr, 10), ERR_INVALID_INPUT);
}

// holds: wan-port-codes
TEST_F(current_wan, a_port_that_is_no_device_leaves_the_former_one)
{
    wan_section("port4");
    t_device *former = add_port("eth0");
    port_model.wan_dev = former;
    t_log_capture log;
    EXPECT_EQ(update_wan_device(&port_model), ERR_NOTHING_DONE);
    EXPECT_TRUE(log.has("Error", "update_wan_device", "Can't find the device:eth4 in hash list!"));
    EXPECT_EQ(port_model.wan_dev.load(), former);
}

// holds: pppoeshare
TEST_F(current_wan, pppoeshare_is_pppoe)
{
    add_proto("pppoe");
    wan({{"wan_type", "pppoeshare"}, {"proto", "dhcp"}});
    EXPECT_EQ(type_after_update(), "pppoe");
}

// holds: type-unknown
TEST_F(current_wan, without_a_wan_type_the_protocol_counts)
{
    t_protocol *dhcp = add_proto("dhcp");
    wan({{"proto", "dhcp"}});
    t_log_capture log;
    EXPECT_EQ(type_after_update(), "dhcp");
    EXPECT_EQ(port_model.wan_proto, dhcp);
    EXPECT_EQ(lines_of(log, "Debug"), (t_names{"update_wan_ipv4_protocol: Entering function: update_wan_ipv4_protocol!",
                                               "get_ipv4_conntype: Entering function: get_ipv4_conntype!",
                                               "update_wan_ipv4_protocol: get wan device: null using conntype: dhcp"}));
}

// holds: type-unknown
TEST_F(current_wan, an_empty_wan_type_counts_as_missing)
{
    add_proto("dhcp");
    wan({{"wan_type", ""}, {"proto", "dhcp"}});
    EXPECT_EQ(type_after_update(), "dhcp");
}

// holds: type-unknown
TEST_F(current_wan, without_both_nothing_changes)
{
    t_protocol *former = add_proto("dhcp");
    port_model.wan_proto = former;
    wan({{"device", "eth0"}});
    t_log_capture log;
    update_wan_ipv4_protocol(&port_model);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"update_wan_ipv4_protocol: get_ipv4_conntype failed!"});
    EXPECT_EQ(port_model.wan_proto, former);
    remove_config("network");
    EXPECT_EQ(type_after_update(), "dhcp");
}

TEST_F(current_wan, a_list_as_wan_type_falls_back_to_the_protocol)
{
    add_proto("dhcp");
    write_config("network", section("interface", "wan", {{"proto", "dhcp"}}) + list_option("wan_type", {"a", "b"}));
    EXPECT_EQ(type_after_update(), "dhcp");
}

// holds: v6plus-carrier
TEST_F(current_wan, v6plus_over_carrier_4_is_ocn)
{
    add_proto("v6plus");
    add_proto("ocn");
    wan({{"wan_type", "v6plus"}, {"carrier", "4"}});
    EXPECT_EQ(type_after_update(), "ocn");
    wan({{"wan_type", "v6plus"}, {"carrier", "3"}});
    EXPECT_EQ(type_after_update(), "v6plus");
    wan({{"wan_type", "v6plus"}, {"carrier", "44"}});
    EXPECT_EQ(type_after_update(), "v6plus");
    wan({{"wan_type", "v6plus"}});
    EXPECT_EQ(type_after_update(), "v6plus");
    wan({{"proto", "v6plus"}, {"carrier", "4"}});
    EXPECT_EQ(type_after_update(), "ocn");
}

TEST_F(current_wan, an_unknown_type_leaves_the_former_one)
{
    t_protocol *former = add_proto("dhcp");
    port_model.wan_proto = former;
    wan({{"wan_type", "carrier-pigeon"}});
    t_log_capture log;
    EXPECT_EQ(type_after_update(), "dhcp");
    EXPECT_TRUE(log.has("Error", "update_wan_ipv4_protocol", "Can't find the protocol:carrier-pigeon in /etc/config!"));
    wan({{"wan_type", std::string(5000, 'w')}});
    EXPECT_EQ(type_after_update(), "dhcp");
    EXPECT_TRUE(log.has("Error", "update_wan_ipv4_protocol",
                        "Can't find the protocol:" + std::string(31, 'w') + " in /etc/config!"));
}

TEST_F(current_wan, an_over_long_type_meets_its_protocol_at_the_cut)
{
    add_proto(std::string(33, 'w'));
    wan({{"wan_type", std::string(33, 'w')}});
    EXPECT_EQ(type_after_update(), std::string(31, 'w'));
}

TEST_F(current_wan, a_secondary_type_is_taken_from_the_protocols_section)
{
    for (const char *type : {"pppoe", "l2tp", "pptp"}) {
        t_protocol *protocol = add_proto(type);
        wan({{"wan_type", type}});
        write_config("protocol", section("proto", type, {{"snd_conn", "none of these, but a rather long text"}}));
        t_log_capture log;
        update_wan_ipv4_protocol(&port_model);
        EXPECT_STREQ(protocol->snd_conn, "none of these, but a rather lon");
        EXPECT_TRUE(log.has("Debug", "get_ipv4_secondary_conntype", "Entering function: get_ipv4_secondary_conntype!"));
    }
}

// holds: secondary-type
TEST_F(current_wan, without_a_secondary_type_pppoe_has_none_and_the_tunnels_are_dynamic)
{
    const struct {
        const char *type, *expected;
    } cases[] = {{"pppoe", "none"}, {"l2tp", "dynamic"}, {"pptp", "dynamic"}};
    for (const auto &each : cases) {
        t_protocol *protocol = add_proto(each.type);
        copy_name(protocol->snd_conn, "a former and much longer one");
        wan({{"wan_type", each.type}});
        write_config("protocol", section("proto", each.type, {{"other", "1"}}));
        update_wan_ipv4_protocol(&port_model);
        EXPECT_STREQ(protocol->snd_conn, each.expected);
        EXPECT_EQ(protocol->snd_conn[NAME_SIZE - 20], '\0');
    }
}

TEST_F(current_wan, a_static_connection_reads_its_addresses)
{
    t_protocol *protocol = add_proto("static");
    wan({{"wan_type", "static"}});
    write_config("protocol", section("proto", "static", {{"ipaddr", "10.0.0.2"}, {"gateway", "10.0.0.1"}}));
    t_log_capture log;
    EXPECT_EQ(type_after_update(), "static");
    EXPECT_EQ(memcmp(&protocol->static_config.address, "\x0a\0\0\x02", 4), 0);
    EXPECT_TRUE(log.has("Debug", "update_static_protocol_ip_config",
                        "get secondary static ip info for static, ip:10.0.0.2, gateway:10.0.0.1, dns:0.0.0.0"));
}

TEST_F(current_wan, a_static_secondary_connection_reads_its_addresses)
{
    t_protocol *protocol = add_proto("l2tp");
    wan({{"wan_type", "l2tp"}});
    write_config("protocol", section("proto", "l2tp", {{"snd_conn", "static"}, {"static_ip", "10.0.0.3"}}));
    update_wan_ipv4_protocol(&port_model);
    EXPECT_STREQ(protocol->snd_conn, "static");
    EXPECT_EQ(memcmp(&protocol->static_config.address, "\x0a\0\0\x03", 4), 0);
}

TEST_F(current_wan, the_line_at_the_end_names_the_current_port)
{
    add_proto("dhcp");
    port_model.wan_dev = add_port("eth4");
    wan({{"wan_type", "dhcp"}});
    t_log_capture log;
    update_wan_ipv4_protocol(&port_model);
    EXPECT_TRUE(log.has("Debug", "update_wan_ipv4_protocol", "get wan device: eth4 using conntype: dhcp"));
}
