// SPDX-License-Identifier: MIT
#include <arpa/inet.h>

#include "model/static_config.h"
#include "tests/unit/model/model_test.h"

namespace {

class static_config : public t_model_test {
protected:
    static_config() { block.address.ipv4_be = block.gateway.ipv4_be = block.dns_server.ipv4_be = inet_addr("9.9.9.9"); }
    void read(const char *type, const char *secondary, std::initializer_list<t_option> options)
    {
        write_config("protocol", section("proto", type, options));
        update_static_protocol_ip_config(type, secondary, &block);
    }
    static std::string dotted(const t_address_slot &slot)
    {
        char text[INET_ADDRSTRLEN];
        return inet_ntop(AF_INET, &slot.ipv4_be, text, sizeof text);
    }
    // "address gateway dns"
    std::string addresses()
    {
        return dotted(block.address) + " " + dotted(block.gateway) + " " + dotted(block.dns_server);
    }

    t_detect_result block = {};
};

const char FUNCTION[] = "update_static_protocol_ip_config";

} // namespace

TEST_F(static_config, a_static_connection_has_address_gateway_and_dns)
{
    t_log_capture log;
    read("static", nullptr,
         {{"ipaddr", "192.168.9.7"}, {"gateway", "192.168.9.1"}, {"pri_dns", "1.1.1.1"}, {"x", "y"}});
    EXPECT_EQ(addresses(), "192.168.9.7 192.168.9.1 1.1.1.1");
    EXPECT_EQ(lines_of(log, "Debug"),
              (t_names{"update_static_protocol_ip_config: Entering function: update_static_protocol_ip_config!",
                       "update_static_protocol_ip_config: Parse static ip_addr: 192.168.9.7",
                       "update_static_protocol_ip_config: Parse static gateway addr: 192.168.9.1",
                       "update_static_protocol_ip_config: Parse static pri dns addr: 1.1.1.1",
                       "update_static_protocol_ip_config: get secondary static ip info for static, ip:192.168.9.7, "
                       "gateway:192.168.9.1, dns:1.1.1.1"}));
}

TEST_F(static_config, missing_options_are_0)
{
    read("static", nullptr, {{"gateway", "192.168.9.1"}});
    EXPECT_EQ(addresses(), "0.0.0.0 192.168.9.1 0.0.0.0");
}

TEST_F(static_config, a_missing_section_leaves_everything_0)
{
    write_config("protocol", "");
    t_log_capture log;
    update_static_protocol_ip_config("static", nullptr, &block);
    EXPECT_EQ(addresses(), "0.0.0.0 0.0.0.0 0.0.0.0");
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

TEST_F(static_config, a_missing_package_leaves_everything_0_and_is_reported)
{
    t_log_capture log;
    update_static_protocol_ip_config("static", nullptr, &block);
    EXPECT_EQ(addresses(), "0.0.0.0 0.0.0.0 0.0.0.0");
    EXPECT_TRUE(log.has("Error", FUNCTION, "Unable to load uci protocol!"));
}

// holds: load-reason-line
TEST_F(static_config, a_missing_package_is_told_without_the_librarys_reason)
{
    t_log_capture log(3);
    const t_joined_errors joined;
    update_static_protocol_ip_config("static", nullptr, &block);
    EXPECT_EQ(lines_and_errors_of(log), (t_names{"update_static_protocol_ip_config: Unable to load uci protocol!"}));
}

TEST_F(static_config, a_type_that_begins_with_static_has_a_section_of_its_own_name)
{
    read("static6", nullptr, {{"ipaddr", "10.0.0.1"}});
    EXPECT_EQ(addresses(), "10.0.0.1 0.0.0.0 0.0.0.0");
}

TEST_F(static_config, values_that_are_no_addresses_are_reported_and_stay_all_ones)
{
    for (const std::string &bad :
         {std::string("255.255.255.255"), std::string("10.0.0.256"), std::string("router"), std::string("1.2.3.4.5"),
          std::string("::1"), std::string(5000, '1'), std::string("\xff\x80")}) {
        t_log_capture log;
        read("static", nullptr, {{"ipaddr", "10.0.0.1"}, {"gateway", bad}});
        EXPECT_EQ(addresses(), "10.0.0.1 255.255.255.255 0.0.0.0") << bad;
        EXPECT_TRUE(log.has("Error", FUNCTION, "protocol.static.gateway=" + bad + ", not a valid ip address"));
    }
}

TEST_F(static_config, a_list_where_an_address_is_needed_ends_the_walk)
{
    write_config("protocol", section("proto", "static", {{"ipaddr", "10.0.0.1"}}) +
                                 list_option("gateway", {"10.0.0.2", "10.0.0.3"}) + "\toption pri_dns '10.0.0.4'\n");
    t_log_capture log;
    update_static_protocol_ip_config("static", nullptr, &block);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"update_static_protocol_ip_config: Unable to get uci protocol.static"});
    EXPECT_EQ(addresses(), "10.0.0.1 0.0.0.0 0.0.0.0");
    EXPECT_FALSE(log.has("Debug", FUNCTION,
                         "get secondary static ip info for static, ip:10.0.0.1, gateway:0.0.0.0, dns:0.0.0.0"));
}

TEST_F(static_config, a_list_of_no_interest_is_passed_over)
{
    write_config("protocol", section("proto", "static", {}) + list_option("ip6addr", {"::1", "::2"}) +
                                 "\toption ipaddr '10.0.0.1'\n");
    update_static_protocol_ip_config("static", nullptr, &block);
    EXPECT_EQ(addresses(), "10.0.0.1 0.0.0.0 0.0.0.0");
}

TEST_F(static_config, a_type_that_is_not_static_needs_a_secondary_type)
{
    t_log_capture log;
    read("pppoe", nullptr, {{"static_ip", "10.0.0.1"}});
    EXPECT_TRUE(log.has("Error", FUNCTION, "conn_proto_IPV4=pppoe, not static, however snd_conn_proto=NULL"));
    EXPECT_EQ(addresses(), "0.0.0.0 0.0.0.0 0.0.0.0");
}

TEST_F(static_config, other_combinations_are_reported)
{
    t_log_capture log;
    read("pppoe", "dynamic", {});
    EXPECT_TRUE(log.has("Error", FUNCTION, "Trying to get secondary for pppoe, secondary connetction type: dynamic"));
    read("dhcp", "static", {});
    EXPECT_TRUE(log.has("Error", FUNCTION, "Trying to get secondary for dhcp, secondary connetction type: static"));
    EXPECT_EQ(addresses(), "0.0.0.0 0.0.0.0 0.0.0.0");
}

TEST_F(static_config, pppoe_has_address_and_dns_but_no_gateway)
{
    t_log_capture log;
    read("pppoe", "static",
         {{"static_ip", "10.1.0.2"},
          {"static_gateway", "10.1.0.1"},
          {"static_pridns", "10.1.0.3"},
          {"ipaddr", "1.1.1.1"}});
    EXPECT_EQ(addresses(), "10.1.0.2 0.0.0.0 10.1.0.3");
    EXPECT_TRUE(log.has("Debug", FUNCTION, "Parse pppoe sndconn: static ip_addr: 10.1.0.2"));
    EXPECT_TRUE(log.has("Debug", FUNCTION, "Parse pppoe sndconn: static pri dns addr: 10.1.0.3"));
    EXPECT_TRUE(log.has("Debug", FUNCTION,
                        "get secondary static ip info for pppoe, ip:10.1.0.2, gateway:0.0.0.0, dns:10.1.0.3"));
}

// holds: pppoe-dns-mode
TEST_F(static_config, the_dns_mode_of_pppoe_ends_its_dns_before_and_after)
{
    t_log_capture log;
    read("pppoe", "static", {{"static_ip", "10.1.0.2"}, {"static_pridns", "10.1.0.3"}, {"dns_mode", "0"}});
    EXPECT_EQ(addresses(), "10.1.0.2 0.0.0.0 0.0.0.0");
    EXPECT_EQ(log.count("Debug", FUNCTION, "PPPOE using dynamic dns address!"), 1);
    EXPECT_TRUE(log.has("Debug", FUNCTION, "Parse pppoe sndconn: static pri dns addr: 10.1.0.3"));
}

// holds: pppoe-dns-mode
TEST_F(static_config, a_dns_mode_first_makes_pppoe_ignore_its_dns)
{
    t_log_capture log;
    read("pppoe", "static", {{"dns_mode", "1"}, {"static_pridns", "10.1.0.3"}, {"static_ip", "10.1.0.2"}});
    EXPECT_EQ(addresses(), "10.1.0.2 0.0.0.0 0.0.0.0");
    EXPECT_FALSE(log.has("Debug", FUNCTION, "Parse pppoe sndconn: static pri dns addr: 10.1.0.3"));
}

TEST_F(static_config, tunnels_have_address_gateway_and_dns_and_no_dns_mode)
{
    for (const char *type : {"l2tp", "pptp"}) {
        t_log_capture log;
        read(type, "static ip",
             {{"dns_mode", "1"},
              {"static_ip", "10.2.0.2"},
              {"static_gateway", "10.2.0.1"},
              {"static_pridns", "10.2.0.3"}});
        EXPECT_EQ(addresses(), "10.2.0.2 10.2.0.1 10.2.0.3");
        EXPECT_TRUE(log.has("Debug", FUNCTION, "Parse static gateway addr: 10.2.0.1"));
        EXPECT_TRUE(log.has("Debug", FUNCTION, std::string("Parse ") + type + " sndconn: static ip_addr: 10.2.0.2"));
        EXPECT_FALSE(log.has_body("PPPOE using dynamic dns address!"));
    }
}
