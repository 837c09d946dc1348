// SPDX-License-Identifier: MIT
// What a DHCP batch makes of the frames that arrive on its ports.
#include <cerrno>

#include "platform/result_codes.h"
#include "probes/dhcp_discovery.h"
#include "probes/probe_fixture.h"

extern "C" {
#include <libubox/uloop.h>
}

namespace {

constexpr uint32_t XID = 0x00abcdef;

class dhcp_receive : public t_probe_test {
protected:
    void SetUp() override
    {
        t_probe_test::SetUp();
        list_port(add_port("eth1", 1));
        next_random = {0x00abcdef, 1};
        ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    }

    void TearDown() override
    {
        if (dhcp_detect_handle.contexts)
            release_dhcp_detect_handle();
        t_probe_test::TearDown();
    }

    static t_discovery_port &ctx() { return dhcp_detect_handle.contexts[0]; }

    static void receive(const t_bytes &frame)
    {
        fake_wire.arrive("eth1", frame);
        ASSERT_EQ(fake_wire.run_loop(), 1);
    }

    static void expect_still_listening()
    {
        EXPECT_EQ(ctx().answered, 0);
        EXPECT_EQ(ctx().socket.watcher.fd, fake_wire.socket_of("eth1"));
        EXPECT_EQ(fake_wire.watched_sockets(), 1);
    }
};

TEST_F(dhcp_receive, a_valid_offer_is_recorded_and_closes_the_socket)
{
    t_log_capture log;
    receive(offer(XID, usual_options()));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().result.address.ipv4_be, ipv4("10.20.30.40"));
    EXPECT_EQ(ctx().result.gateway.ipv4_be, ipv4("10.20.30.1"));
    EXPECT_EQ(ctx().result.dns_server.ipv4_be, ipv4("10.20.30.53"));
    EXPECT_EQ(mac_at(ctx().result.server_mac), SERVER_MAC);
    EXPECT_EQ(ctx().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 0);

    std::vector<std::string> said;
    for (const t_log_line &line : log.lines())
        said.push_back(line.level + " " + line.function + " " + line.body);
    EXPECT_EQ(said, (std::vector<std::string>{
                        "Debug recv_dhcp_discovery_packet recv dhcp discovery packet from dev:eth1",
                        "Debug recv_dhcp_discovery_packet dev:eth1, IPADDR=10.20.30.40, MAC=02-5E-00-00-00-99",
                        "Debug recv_dhcp_discovery_packet dev:eth1, GATEWAY=10.20.30.1",
                        "Debug recv_dhcp_discovery_packet dev:eth1, DNS_SERVER=10.20.30.53",
                        "Info recv_dhcp_discovery_packet Success parse dhcp discovery packet in dev=eth1",
                    }));
}

TEST_F(dhcp_receive, only_the_described_bytes_of_the_result_are_set)
{
    receive(offer(XID, usual_options()));
    t_bytes expected = zeros(56);
    expected = patched(expected, 0, {10, 20, 30, 40});
    expected = patched(expected, 16, {10, 20, 30, 1});
    expected = patched(expected, 32, {10, 20, 30, 53});
    expected = patched(expected, 48, mac_bytes(SERVER_MAC));
    const auto *bytes = reinterpret_cast<const uint8_t *>(&ctx().result);
    EXPECT_EQ(t_bytes(bytes, bytes + sizeof ctx().result), expected);
}

// holds: dhcp-other-identifier
TEST_F(dhcp_receive, an_offer_for_another_identifier_is_logged_and_ignored)
{
    t_log_capture log;
    receive(offer(0x12345678, usual_options()));
    EXPECT_TRUE(log.has("Info", "recv_dhcp_discovery_packet",
                        "Not match: rdhcp->xid=0x12345678, dhcp_detect_ctx->random_xid=0x00abcdef"));
    EXPECT_EQ(ctx().result.address.ipv4_be, 0u);
    expect_still_listening();
    receive(offer(XID, usual_options()));
    EXPECT_EQ(ctx().answered, 1);
}

// holds: dhcp-own-bridge
TEST_F(dhcp_receive, an_offer_from_our_own_bridge_never_marks_the_port)
{
    t_log_capture log;
    receive(patched(offer(XID, usual_options()), 6, mac_bytes(LAN_MAC)));
    EXPECT_TRUE(log.has("Warning", "recv_dhcp_discovery_packet",
                        "Detecing dhcp offer from own mac:02-00-00-00-00-01, meaning there is a cirecle in lan!!"));
    EXPECT_TRUE(log.has("Debug", "recv_dhcp_discovery_packet", "dev:eth1, IPADDR=10.20.30.40, MAC=02-00-00-00-00-01"));
    expect_still_listening();
    EXPECT_EQ(process_dhcp_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, true), PROBE_SOME_SILENT);
    EXPECT_EQ(dhcp_->devices.count, 0);
}

// holds: dhcp-own-bridge
TEST_F(dhcp_receive, a_genuine_offer_counts_after_one_from_our_own_bridge)
{
    receive(patched(offer(XID, {0xff}), 6, mac_bytes(LAN_MAC)));
    receive(offer(XID, usual_options()));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(mac_at(ctx().result.server_mac), SERVER_MAC);
}

// holds: dhcp-gateways
TEST_F(dhcp_receive, two_gateways_are_no_gateway_and_two_dns_servers_are_the_first)
{
    t_log_capture log;
    receive(offer(XID, {0x03, 0x08, 10, 0, 0, 1, 10, 0, 0, 2, 0x06, 0x08, 10, 0, 0, 3, 10, 0, 0, 4, 0xff}));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().result.gateway.ipv4_be, 0u);
    EXPECT_EQ(ctx().result.dns_server.ipv4_be, ipv4("10.0.0.3"));
    EXPECT_FALSE(log.text().find("GATEWAY") != std::string::npos);
}

// holds: dhcp-pad-first
TEST_F(dhcp_receive, options_that_start_with_a_pad_byte_tell_nothing_but_the_offer_counts)
{
    receive(offer(XID, join({{0x00}, usual_options()})));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().result.gateway.ipv4_be, 0u);
    EXPECT_EQ(ctx().result.dns_server.ipv4_be, 0u);
}

TEST_F(dhcp_receive, options_are_not_read_beyond_what_arrived)
{
    t_log_capture log;
    receive(offer(XID, {0x03, 0x04, 10, 0}));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().result.gateway.ipv4_be, 0u);
}

TEST_F(dhcp_receive, a_frame_longer_than_the_buffer_is_cut_to_it)
{
    t_bytes options;
    while (options.size() < 1400)
        options = join({options, {0x0c, 0xff}, t_bytes(255, 'x')}); // host names, past 1024 bytes of frame
    receive(offer(XID, join({options, usual_options()})));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().result.gateway.ipv4_be, 0u);
}

TEST_F(dhcp_receive, frames_that_are_no_offer_are_parse_errors)
{
    const t_bytes good = offer(XID, usual_options());
    const std::vector<t_bytes> forged = {
        {0x42},
        t_bytes(good.begin(), good.begin() + OFFER_OPTIONS - 1),
        patched(good, OFFER_IP_PROTOCOL, {1}),
        patched(good, OFFER_DESTINATION_PORT, {0, 67}),
        patched(good, OFFER_COOKIE, {0}),
        patched(good, OFFER_OP, {1}),
        t_bytes(1024, 0x00),
        t_bytes(1024, 0xff),
    };
    for (const t_bytes &frame : forged) {
        t_log_capture log;
        receive(frame);
        EXPECT_TRUE(
            log.has("Debug", "recv_dhcp_discovery_packet", "read from socket parse error, try again! dev=eth1"));
        expect_still_listening();
    }
}

TEST_F(dhcp_receive, our_own_discover_heard_back_is_no_offer)
{
    receive(fake_wire.sent()[0].bytes);
    expect_still_listening();
}

TEST_F(dhcp_receive, a_failed_read_leaves_the_port_listening)
{
    fake_wire.fail(t_wire_call::RECEIVE, ENETDOWN);
    t_log_capture log;
    receive({0});
    EXPECT_TRUE(log.has("Error", "recv_dhcp_discovery_packet", "Cannot read from socket, try again! dev=eth1"));
    expect_still_listening();
}

TEST_F(dhcp_receive, an_empty_read_leaves_the_port_listening)
{
    t_log_capture log;
    receive({});
    EXPECT_TRUE(log.has("Error", "recv_dhcp_discovery_packet", "Cannot read from socket, try again! dev=eth1"));
    expect_still_listening();
}

TEST_F(dhcp_receive, an_event_without_the_read_bit_reads_nothing)
{
    fake_wire.arrive("eth1", offer(XID, usual_options()));
    socket_of("eth1").error_pending = true;
    t_log_capture log;
    recv_dhcp_discovery_packet(&ctx().socket.watcher, 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(socket_of("eth1").error_pending);
    expect_still_listening();
}

TEST_F(dhcp_receive, an_error_that_cannot_be_cleared_leaves_the_loop)
{
    recv_dhcp_discovery_packet(&ctx().socket.watcher, 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 0);
    EXPECT_EQ(ctx().answered, 0);
    EXPECT_EQ(process_dhcp_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, false), PROBE_WAITING);
}

} // namespace
