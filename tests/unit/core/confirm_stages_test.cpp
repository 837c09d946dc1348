// SPDX-License-Identifier: MIT
#include "core/confirm_stages.h"

#include <arpa/inet.h>

#include "model/tables.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *STATIC_OPTIONS =
    "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n\toption pri_dns '9.9.9.9'\n";
constexpr const char *STATIC_WITHOUT_DNS =
    "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n";

class confirm_stages : public t_engine_test {
protected:
    void offer(const char *types, const char *options) { set_connection(types, options); }
    static void candidates_are(std::initializer_list<const char *> ports)
    {
        for (const char *port : ports)
            engine.possible_wan_dev_list.add(dev(port));
    }
    static void run(uloop_timeout &timer)
    {
        be_in(&timer == &engine.using_arp ? t_cycle_state::asking_arp : t_cycle_state::asking_dns);
        uloop_timeout_set(&timer, 0);
        fire(timer);
    }
};

// holds: one-gateway
TEST_F(confirm_stages, the_one_port_with_the_gateway_behind_it_wins)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth2"};
    run(engine.using_arp);
    EXPECT_EQ(fake_probes.calls, (std::vector<std::string>{"arp 10.0.0.1"}));
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp",
                         "ARP shows Only one device:eth2 using protocol static(have gateway ip in arp "
                         "detect:10.0.0.1)! treat it as wan!"));
}

// holds: no-gateway
TEST_F(confirm_stages, a_gateway_behind_nobody_sends_the_cycle_back_after_a_second)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1"});
    run(engine.using_arp);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(armed(engine.end), NOT_ARMED);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp",
                         "Can't find gateway ip:10.0.0.1 in arp table, waiting for another device"));
}

// holds: search-fails
TEST_F(confirm_stages, a_failed_search_ends_the_cycle_without_a_result)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1"});
    fake_probes.bridge_readable = false;
    run(engine.using_arp);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_arp",
                         "find_target_ip_and_device_with_arp failed with ip:10.0.0.1, return null!"));
}

// holds: two-gateways-dns
TEST_F(confirm_stages, a_gateway_behind_two_ports_goes_on_to_dns)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth1", "eth2"};
    run(engine.using_arp);
    EXPECT_EQ(armed(engine.using_dns), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp",
                         "Found 2 devices provide static protocol(have gateway ip in arp detect:10.0.0.1)! Next try "
                         "dns detect!"));
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp", "Start to detect in 2 device(s) using dns"));
}

// holds: static-tunnel
TEST_F(confirm_stages, a_tunnel_over_a_static_address_takes_the_first_port_and_never_asks_dns)
{
    offer("pptp", "config proto 'pptp'\n\toption snd_conn 'static'\n\toption static_ip '10.0.0.2'\n"
                  "\toption static_gateway '10.0.0.1'\n");
    candidates_are({"eth3", "eth2"});
    fake_probes.gateway_ports = {"eth2", "eth3"};
    run(engine.using_arp);
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp",
                         "ARP shows server ip:10.0.0.1 in dev:eth2, wan detect Success!"));
}

TEST_F(confirm_stages, other_connection_types_cannot_be_found_by_arp)
{
    offer("ocn", "");
    candidates_are({"eth1"});
    fake_probes.gateway_ports = {"eth1"};
    run(engine.using_arp);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Warning", "uloop_wan_detect_using_arp",
                         "detecting protocol ocn(sed_conn:) using arp is not supported!, exit!"));
}

// holds: search-fails
TEST_F(confirm_stages, a_lost_first_candidate_means_no_result)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1"});
    fake_probes.gateway_ports = {"eth1"};
    fake_probes.lose_nodes = true;
    run(engine.using_arp);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_TRUE(
        log->has("Error", "uloop_wan_detect_using_arp", "That's impossible! device is lost? treat it as null!"));
}

// holds: two-gateways-dns
TEST_F(confirm_stages, dns_answered_only_through_the_port_of_lower_priority_lets_that_one_win)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1", "eth2"});
    fake_probes.dns_ports = {"eth2"};
    run(engine.using_dns);
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(
        log->has("Info", "uloop_wan_detect_using_dns", "DNS lookup shows dev:eth2 online, wan detect Success!"));
}

// holds: two-gateways-silent-dns
TEST_F(confirm_stages, without_a_dns_answer_a_static_connection_takes_the_port_of_higher_priority)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth2", "eth1"});
    run(engine.using_dns);
    EXPECT_EQ(engine.result_dev, dev("eth1"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(
        log->has("Info", "uloop_wan_detect_using_dns",
                 "Overall 2 device using protocol static(all have gateway ip in arp detect:10.0.0.1)! Use first "
                 "priority device:eth1 as wan!"));
}

// holds: two-gateways-silent-dns
TEST_F(confirm_stages, without_a_dns_answer_dhcp_takes_the_port_of_higher_priority)
{
    candidates_are({"eth2", "eth1"});
    run(engine.using_dns);
    EXPECT_EQ(engine.result_dev, dev("eth1"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_dns",
                         "Overall 2 device using protocol dhcp! Use first priority device:eth1 as wan!"));
}

TEST_F(confirm_stages, a_static_connection_asks_with_its_own_addresses_and_keeps_each_ports_next_hop)
{
    offer("static", STATIC_OPTIONS);
    candidates_are({"eth1", "eth2"});
    dev("eth1")->result.server_mac[5] = 0x11;
    dev("eth2")->result.server_mac[5] = 0x22;
    run(engine.using_dns);
    EXPECT_EQ(fake_probes.dns_entries,
              (std::vector<std::string>{"eth1 10.0.0.2 9.9.9.9 11", "eth2 10.0.0.2 9.9.9.9 22"}));
    EXPECT_EQ(fake_probes.count("special eth1 9.9.9.9"), 1);
    EXPECT_TRUE(log->has("Debug", "uloop_wan_detect_using_dns",
                         "Ready to dns detect for eth1, ip_addr:10.0.0.2, MAC=00-00-00-00-00-11"));
    EXPECT_TRUE(log->has("Debug", "uloop_wan_detect_using_dns", "Ready to dns detect for eth1, dns_server:9.9.9.9"));
}

// holds: no-name-server
TEST_F(confirm_stages, without_a_configured_name_server_the_gateway_is_asked)
{
    offer("static", STATIC_WITHOUT_DNS);
    candidates_are({"eth1"});
    run(engine.using_dns);
    EXPECT_EQ(fake_probes.dns_entries, (std::vector<std::string>{"eth1 10.0.0.2 10.0.0.1 00"}));
    EXPECT_EQ(fake_probes.count("special eth1 10.0.0.1"), 1);
}

TEST_F(confirm_stages, dhcp_asks_with_what_each_offer_said)
{
    candidates_are({"eth1", "eth2"});
    dev("eth1")->result = {{inet_addr("1.1.1.2"), {}}, {inet_addr("1.1.1.1"), {}}, {inet_addr("8.8.8.8"), {}}, {1}};
    dev("eth2")->result = {{inet_addr("2.2.2.2"), {}}, {inet_addr("2.2.2.1"), {}}, {}, {2}};
    run(engine.using_dns);
    EXPECT_EQ(fake_probes.dns_entries,
              (std::vector<std::string>{"eth1 1.1.1.2 8.8.8.8 00", "eth2 2.2.2.2 2.2.2.1 00"}));
}

// holds: first-16-asked
TEST_F(confirm_stages, of_17_candidates_only_the_first_16_are_asked)
{
    std::vector<t_device> ports(17);
    for (size_t i = 0; i < ports.size(); i++) {
        snprintf(ports[i].name, NAME_SIZE, "eth%zu", i);
        ports[i].priority = static_cast<int8_t>(i + 1);
        engine.possible_wan_dev_list.add(&ports[i]);
    }
    fake_probes.dns_ports = {"eth16"};
    run(engine.using_dns);
    EXPECT_EQ(fake_probes.dns_entries.size(), 16u);
    EXPECT_EQ(fake_probes.count("special eth15 0.0.0.0"), 1);
    EXPECT_EQ(fake_probes.count("special eth16 0.0.0.0"), 0);
    EXPECT_EQ(engine.dns_ctx.count, 16);
    EXPECT_EQ(engine.result_dev, &ports[0]);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_dns", "Count exceed maximum number of interfaces:16"));
    engine.possible_wan_dev_list.clear();
}

// holds: no-gateway
TEST_F(confirm_stages, without_candidates_the_cycle_goes_back)
{
    run(engine.using_dns);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(fake_probes.count("dns"), 0);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_dns",
                         "Shouldn't happen, no device need to query dns, wainting for other device connect!"));
}

TEST_F(confirm_stages, a_candidate_without_a_device_is_not_asked)
{
    offer("dhcp", "");
    candidates_are({"eth1", "eth2"});
    engine.possible_wan_dev_list.head.next->dev = nullptr;
    fake_probes.dns_ports = {"eth2"};
    run(engine.using_dns);
    EXPECT_EQ(engine.dns_ctx.count, 1);
    EXPECT_EQ(engine.result_dev, dev("eth2"));
}

TEST_F(confirm_stages, dns_cannot_judge_other_connection_types)
{
    offer("pppoe", "");
    candidates_are({"eth1"});
    engine.result_dev = dev("eth1");
    run(engine.using_dns);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_dns", "DNS lookup only support static/dhcp"));
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(armed(engine.end), 0);
}

} // namespace
