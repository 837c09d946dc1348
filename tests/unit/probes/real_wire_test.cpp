// SPDX-License-Identifier: MIT
// The probes on real packet sockets and the real loop, with a peer at the far end of a cable.
#include <cstring>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "model/lists.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "tests/support/world.h"
#include "tests/unit/probes/veth_net.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr int ANSWER_LIMIT_MS = 5000;
constexpr int QUIET_TIME_MS = 300;
constexpr size_t DISCOVER_XID = 46;
constexpr size_t PADI_HOST_UNIQ = 28;

uint32_t native_at(const t_bytes &frame, size_t offset)
{
    uint32_t value;
    memcpy(&value, frame.data() + offset, sizeof value);
    return value;
}

// How often the loop called the first DHCP context.
int calls;
void count_and_receive(uloop_fd *watcher, unsigned int events)
{
    calls++;
    receive_on_port(watcher, events);
}

class real_wire : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(uloop_init(), 0);
        must_run("ip address add 192.168.1.1/24 dev br-lan");
        for (const char *name : {"dhcp", "pppoe"})
            add_protocol_to(model_, name);
        eth1_ = add_port_to(model_, "eth1", 1, true);
        eth2_ = add_port_to(model_, "eth2", 2, true);
        calls = 0;
    }

    void TearDown() override
    {
        if (dhcp_detect_handle.contexts)
            release_batch(dhcp_discovery);
        if (pppoe_detect_handle.contexts)
            release_batch(pppoe_discovery);
        log_set_level(level_before_);
        release_port_model(&model_);
        uloop_done();
    }

    int process_dhcp(bool final)
    {
        return collect_batch(dhcp_discovery, model_.dev_hashmap_head, model_.proto_hashmap_head, final);
    }

    static bool answered() { return dhcp_detect_handle.contexts[0].answered != 0; }

    t_cable lan_{"br-lan"}, cable1_{"eth1"}, cable2_{"eth2"};
    const int level_before_ = log_get_level();
    t_port_model model_ = {};
    t_bound_gate gate_;
    t_device *eth1_ = nullptr;
    t_device *eth2_ = nullptr;
};

t_bytes offer_for(const t_bytes &heard)
{
    return offer(native_at(heard, DISCOVER_XID), usual_options());
}

TEST_F(real_wire, a_dhcp_server_is_found_behind_its_port)
{
    t_loop_peer server(cable1_), nobody(cable2_);
    server.answer = offer_for;
    ASSERT_EQ(ask_linked_ports(dhcp_discovery, &model_), 0);
    ASSERT_TRUE(run_loop_until([&] { return answered() && !nobody.heard.empty(); }, ANSWER_LIMIT_MS));

    ASSERT_EQ(server.heard.size(), 1u);
    const t_mac mac = mac_at(cable1_.mac().data());
    EXPECT_EQ(server.heard[0], expected_discover(mac, dhcp_detect_handle.contexts[0].identifier));
    EXPECT_EQ(dhcp_detect_handle.contexts[1].answered, 0);
    EXPECT_EQ(process_dhcp(false), PROBE_WAITING);
    EXPECT_EQ(process_dhcp(true), PROBE_SOME_SILENT);
    EXPECT_STREQ(protocol_name(eth1_->proto), "dhcp");
    EXPECT_STREQ(protocol_name(eth2_->proto), "null");
    EXPECT_EQ(eth1_->result.address.ipv4_be, htonl(0x0a141e28));
    EXPECT_EQ(eth1_->result.gateway.ipv4_be, htonl(0x0a141e01));
    EXPECT_EQ(eth1_->result.dns_server.ipv4_be, htonl(0x0a141e35));
}

// holds: dhcp-other-identifier
TEST_F(real_wire, forged_offers_before_the_genuine_one_do_not_matter)
{
    t_loop_peer server(cable1_);
    server.answer = [&](const t_bytes &heard) {
        const t_bytes genuine = offer_for(heard);
        server.send(patched(genuine, DISCOVER_XID, native(native_at(heard, DISCOVER_XID) + 1)));
        server.send(patched(genuine, OFFER_DESTINATION_PORT, {0, 67}));
        server.send(t_bytes(genuine.begin(), genuine.begin() + 100));
        server.send(patched(genuine, 6, lan_.mac()));
        return genuine;
    };
    t_log_capture log;
    ASSERT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    ASSERT_TRUE(run_loop_until(answered, ANSWER_LIMIT_MS));
    EXPECT_EQ(process_dhcp(false), PROBE_ALL_ANSWERED);
    EXPECT_EQ(mac_at(eth1_->result.server_mac), SERVER_MAC);
    EXPECT_NE(log.text().find("meaning there is a cirecle in lan!!"), std::string::npos);
}

// More than a socket's queue holds.
constexpr int FLOOD_FRAMES = 3000;

TEST_F(real_wire, a_flood_of_near_misses_before_the_offer_does_not_drown_it)
{
    log_set_level(LOG_LEVEL_Critical);
    t_loop_peer server(cable1_);
    server.answer = [&](const t_bytes &heard) {
        const t_bytes genuine = offer_for(heard);
        for (int i = 0; i < FLOOD_FRAMES; i += 3) {
            server.send(patched(genuine, DISCOVER_XID, native(native_at(heard, DISCOVER_XID) + 1)));
            server.send(patched(genuine, OFFER_DESTINATION_PORT, {0, 67}));
            server.send(patched(genuine, 6, lan_.mac()));
        }
        return genuine;
    };
    ASSERT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    ASSERT_TRUE(run_loop_until(answered, ANSWER_LIMIT_MS));
    EXPECT_EQ(process_dhcp(false), PROBE_ALL_ANSWERED);
    EXPECT_EQ(mac_at(eth1_->result.server_mac), SERVER_MAC);
}

TEST_F(real_wire, a_flood_of_near_misses_before_the_pado_does_not_drown_it)
{
    log_set_level(LOG_LEVEL_Critical);
    t_loop_peer concentrator(cable2_);
    concentrator.answer = [&](const t_bytes &heard) {
        const uint32_t host_uniq = native_at(heard, PADI_HOST_UNIQ);
        for (int i = 0; i < FLOOD_FRAMES; i += 2) {
            concentrator.send(pado(usual_tags(host_uniq + 1)));
            concentrator.send(patched(pado(usual_tags(host_uniq)), PADO_CODE, {0x65}));
        }
        return pado(usual_tags(host_uniq));
    };
    ASSERT_EQ(ask_one_port(pppoe_discovery, eth2_), 0);
    EXPECT_TRUE(run_loop_until([] { return pppoe_detect_handle.contexts[0].answered != 0; }, ANSWER_LIMIT_MS));
}

TEST_F(real_wire, a_pppoe_concentrator_is_found_behind_its_port)
{
    t_loop_peer nobody(cable1_), concentrator(cable2_);
    concentrator.answer = [](const t_bytes &heard) { return pado(usual_tags(native_at(heard, PADI_HOST_UNIQ))); };
    ASSERT_EQ(ask_linked_ports(pppoe_discovery, &model_), 0);
    ASSERT_TRUE(run_loop_until([&] { return pppoe_detect_handle.contexts[1].answered && !nobody.heard.empty(); },
                               ANSWER_LIMIT_MS));

    ASSERT_EQ(concentrator.heard.size(), 1u);
    const t_mac mac = mac_at(cable2_.mac().data());
    EXPECT_EQ(concentrator.heard[0], expected_padi(mac, pppoe_detect_handle.contexts[1].identifier));
    EXPECT_EQ(collect_batch(pppoe_discovery, model_.dev_hashmap_head, model_.proto_hashmap_head, true),
              PROBE_SOME_SILENT);
    EXPECT_STREQ(protocol_name(eth1_->proto), "null");
    EXPECT_STREQ(protocol_name(eth2_->proto), "pppoe");
}

TEST_F(real_wire, both_probes_run_beside_each_other_on_one_port)
{
    t_loop_peer both(cable1_);
    both.answer = [](const t_bytes &heard) {
        return heard.size() == 410 ? offer_for(heard) : pado(usual_tags(native_at(heard, PADI_HOST_UNIQ)));
    };
    ASSERT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    ASSERT_EQ(ask_one_port(pppoe_discovery, eth1_), 0);
    EXPECT_TRUE(run_loop_until([] { return answered() && pppoe_detect_handle.contexts[0].answered; }, ANSWER_LIMIT_MS));
}

TEST_F(real_wire, a_port_that_goes_down_does_not_spin_the_loop_and_is_heard_again)
{
    t_loop_peer server(cable1_);
    uint32_t xid = 0;
    server.answer = [&](const t_bytes &heard) {
        xid = native_at(heard, DISCOVER_XID);
        return t_bytes();
    };
    ASSERT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    ASSERT_TRUE(run_loop_until([&] { return !server.heard.empty(); }, ANSWER_LIMIT_MS));
    dhcp_detect_handle.contexts[0].socket.watcher.cb = count_and_receive;

    must_run("ip link set eth1 down");
    EXPECT_FALSE(run_loop_until(answered, QUIET_TIME_MS));
    EXPECT_GE(calls, 1) << "the kernel reported no error, so nothing was tested";
    EXPECT_LE(calls, 3);
    EXPECT_EQ(process_dhcp(false), PROBE_WAITING);

    must_run("ip link set eth1 up");
    wait_until_running(cable1_.far_name);
    server.send(offer(xid, usual_options()));
    EXPECT_TRUE(run_loop_until(answered, ANSWER_LIMIT_MS));
}

TEST_F(real_wire, a_port_that_vanishes_does_not_spin_the_loop)
{
    ASSERT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    dhcp_detect_handle.contexts[0].socket.watcher.cb = count_and_receive;
    must_run("ip link del eth1");
    EXPECT_FALSE(run_loop_until(answered, QUIET_TIME_MS));
    EXPECT_GE(calls, 1) << "the kernel reported no error, so nothing was tested";
    EXPECT_LE(calls, 3);
    EXPECT_EQ(process_dhcp(true), PROBE_SOME_SILENT);
}

TEST_F(real_wire, a_port_that_does_not_exist_is_not_probed)
{
    must_run("ip link del eth1");
    t_log_capture log;
    EXPECT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    EXPECT_EQ(ask_one_port(pppoe_discovery, eth1_), 0);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to send DHCP socket via dev:eth1"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to send pppoe socket via dev:eth1"));
    EXPECT_EQ(dhcp_detect_handle.contexts[0].socket.watcher.fd, -1);
    EXPECT_EQ(pppoe_detect_handle.contexts[0].socket.watcher.fd, -1);
}

TEST_F(real_wire, without_an_address_on_the_bridge_no_discover_is_sent)
{
    must_run("ip address flush dev br-lan");
    EXPECT_EQ(ask_one_port(dhcp_discovery, eth1_), 0);
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
}

} // namespace
