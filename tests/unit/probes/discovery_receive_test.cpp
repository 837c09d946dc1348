// SPDX-License-Identifier: MIT
// What a batch makes of the frames that arrive on its ports.
#include <cerrno>

#include "tests/unit/probes/discovery_fixture.h"

extern "C" {
#include <libubox/uloop.h>
}

namespace {

constexpr uint32_t IDENTIFIER = 0x00abcdef;

// One port, asked with IDENTIFIER.
template <typename Base> class t_asked_port : public Base {
protected:
    using Base::Base;

    void SetUp() override
    {
        Base::SetUp();
        this->list_port(this->add_port("eth1", 1));
        next_random = {0x00abcdef, 1};
        ASSERT_EQ(this->send(), OK);
    }
};

class discovery_receive : public t_asked_port<t_both_protocols_test> {
protected:
    t_bytes right_answer() const { return protocol_.answer(IDENTIFIER); }
};
FOR_BOTH_PROTOCOLS(discovery_receive);

class dhcp_receive : public t_asked_port<t_discovery_test> {
protected:
    dhcp_receive() : t_asked_port(DHCP) {}
};

class pppoe_receive : public t_asked_port<t_discovery_test> {
protected:
    pppoe_receive() : t_asked_port(PPPOE) {}

    // The frame is refused with this line, and the port goes on listening.
    void expect_ignored(const t_bytes &frame, const char *level, const char *body)
    {
        t_log_capture log;
        receive(frame);
        EXPECT_TRUE(log.has(level, "recv_pppoe_discovery_packet", body)) << body << "\n" << log.text();
        expect_still_listening();
    }
};

TEST_P(discovery_receive, a_right_answer_closes_the_socket)
{
    t_log_capture log;
    receive(right_answer());
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    const std::string packet = std::string(protocol_.answer_word);
    EXPECT_TRUE(log.has("Debug", receiving(), "recv " + word() + " " + packet + " from dev:eth1"));
    EXPECT_TRUE(log.has("Info", receiving(), "Success parse " + word() + " " + packet + " in dev=eth1"));
}

TEST_P(discovery_receive, an_answer_for_another_identifier_is_ignored_and_ours_still_counts)
{
    receive(protocol_.answer(IDENTIFIER + 1));
    expect_still_listening();
    receive(right_answer());
    EXPECT_EQ(context().answered, 1);
}

TEST_P(discovery_receive, our_own_question_heard_back_is_no_answer)
{
    receive(fake_wire.sent()[0].bytes);
    expect_still_listening();
}

TEST_P(discovery_receive, a_failed_read_leaves_the_port_listening)
{
    fake_wire.fail(t_wire_call::RECEIVE, ENETDOWN);
    t_log_capture log;
    receive({0});
    EXPECT_TRUE(log.has("Error", receiving(), "Cannot read from socket, try again! dev=eth1"));
    expect_still_listening();
}

TEST_P(discovery_receive, an_empty_read_leaves_the_port_listening)
{
    t_log_capture log;
    receive({});
    EXPECT_TRUE(log.has("Error", receiving(), "Cannot read from socket, try again! dev=eth1"));
    expect_still_listening();
}

TEST_P(discovery_receive, an_event_without_the_read_bit_reads_nothing)
{
    fake_wire.arrive("eth1", right_answer());
    socket_of("eth1").error_pending = true;
    t_log_capture log;
    receive_on_port(&context().socket.watcher, 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(socket_of("eth1").error_pending);
    expect_still_listening();
}

TEST_P(discovery_receive, an_error_that_cannot_be_cleared_leaves_the_loop)
{
    receive_on_port(&context().socket.watcher, 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 0);
    EXPECT_EQ(context().answered, 0);
    EXPECT_EQ(process(false), PROBE_WAITING);
}

TEST_F(dhcp_receive, a_valid_offer_is_recorded_and_closes_the_socket)
{
    t_log_capture log;
    receive(usual_offer(IDENTIFIER));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().result.address.ipv4_be, ipv4("10.20.30.40"));
    EXPECT_EQ(context().result.gateway.ipv4_be, ipv4("10.20.30.1"));
    EXPECT_EQ(context().result.dns_server.ipv4_be, ipv4("10.20.30.53"));
    EXPECT_EQ(mac_at(context().result.server_mac), SERVER_MAC);
    EXPECT_EQ(context().socket.watcher.fd, -1);
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
    receive(usual_offer(IDENTIFIER));
    t_bytes expected = zeros(56);
    expected = patched(expected, 0, {10, 20, 30, 40});
    expected = patched(expected, 16, {10, 20, 30, 1});
    expected = patched(expected, 32, {10, 20, 30, 53});
    expected = patched(expected, 48, mac_bytes(SERVER_MAC));
    const auto *bytes = reinterpret_cast<const uint8_t *>(&context().result);
    EXPECT_EQ(t_bytes(bytes, bytes + sizeof context().result), expected);
}

// holds: dhcp-other-identifier
TEST_F(dhcp_receive, an_offer_for_another_identifier_is_logged_and_ignored)
{
    t_log_capture log;
    receive(offer(0x12345678, usual_options()));
    EXPECT_TRUE(log.has("Info", "recv_dhcp_discovery_packet",
                        "Not match: rdhcp->xid=0x12345678, dhcp_detect_ctx->random_xid=0x00abcdef"));
    EXPECT_EQ(context().result.address.ipv4_be, 0u);
    expect_still_listening();
    receive(usual_offer(IDENTIFIER));
    EXPECT_EQ(context().answered, 1);
}

// holds: dhcp-own-bridge
TEST_F(dhcp_receive, an_offer_from_our_own_bridge_never_marks_the_port)
{
    t_log_capture log;
    receive(patched(usual_offer(IDENTIFIER), 6, mac_bytes(LAN_MAC)));
    EXPECT_TRUE(log.has("Warning", "recv_dhcp_discovery_packet",
                        "Detecing dhcp offer from own mac:02-00-00-00-00-01, meaning there is a cirecle in lan!!"));
    EXPECT_TRUE(log.has("Debug", "recv_dhcp_discovery_packet", "dev:eth1, IPADDR=10.20.30.40, MAC=02-00-00-00-00-01"));
    expect_still_listening();
    EXPECT_EQ(process(true), PROBE_SOME_SILENT);
    EXPECT_EQ(dhcp_->devices.count, 0);
}

// holds: dhcp-own-bridge
TEST_F(dhcp_receive, a_genuine_offer_counts_after_one_from_our_own_bridge)
{
    receive(patched(offer(IDENTIFIER, {0xff}), 6, mac_bytes(LAN_MAC)));
    receive(usual_offer(IDENTIFIER));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(mac_at(context().result.server_mac), SERVER_MAC);
}

// holds: dhcp-gateways
TEST_F(dhcp_receive, two_gateways_are_no_gateway_and_two_dns_servers_are_the_first)
{
    t_log_capture log;
    receive(offer(IDENTIFIER, {0x03, 0x08, 10, 0, 0, 1, 10, 0, 0, 2, 0x06, 0x08, 10, 0, 0, 3, 10, 0, 0, 4, 0xff}));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().result.gateway.ipv4_be, 0u);
    EXPECT_EQ(context().result.dns_server.ipv4_be, ipv4("10.0.0.3"));
    EXPECT_FALSE(log.text().find("GATEWAY") != std::string::npos);
}

// holds: dhcp-pad-first
TEST_F(dhcp_receive, options_that_start_with_a_pad_byte_tell_nothing_but_the_offer_counts)
{
    receive(offer(IDENTIFIER, join({{0x00}, usual_options()})));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().result.gateway.ipv4_be, 0u);
    EXPECT_EQ(context().result.dns_server.ipv4_be, 0u);
}

TEST_F(dhcp_receive, options_are_not_read_beyond_what_arrived)
{
    t_log_capture log;
    receive(offer(IDENTIFIER, {0x03, 0x04, 10, 0}));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().result.gateway.ipv4_be, 0u);
}

TEST_F(dhcp_receive, a_frame_longer_than_the_buffer_is_cut_to_it)
{
    t_bytes options;
    while (options.size() < 1400)
        options = join({options, {0x0c, 0xff}, t_bytes(255, 'x')}); // host names, past 1024 bytes of frame
    receive(offer(IDENTIFIER, join({options, usual_options()})));
    EXPECT_EQ(context().answered, 1);
    EXPECT_EQ(context().result.gateway.ipv4_be, 0u);
}

TEST_F(dhcp_receive, frames_that_are_no_offer_are_parse_errors)
{
    const t_bytes good = usual_offer(IDENTIFIER);
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

// holds: pado-all-ones
TEST_F(pppoe_receive, a_pado_from_an_all_ones_source_is_ignored)
{
    expect_ignored(patched(usual_pado(IDENTIFIER), PADO_SOURCE, t_bytes(6, 0xff)), "Debug",
                   "Ignoring PADO packet from broadcast MAC address");
}

TEST_F(pppoe_receive, other_traffic_of_the_port_is_ignored)
{
    expect_ignored(patched(usual_pado(IDENTIFIER), PADO_ETHER_TYPE, {0x08, 0x00}), "Debug",
                   "Ignoring packet because it is not a pppoe disover packet!");
    expect_ignored({0x01}, "Debug", "Ignoring packet because it is not a pppoe disover packet!");
    expect_ignored(t_bytes(1520, 0), "Debug", "Ignoring packet because it is not a pppoe disover packet!");
}

// holds: padi-own
TEST_F(pppoe_receive, a_padi_of_this_router_on_another_port_is_ignored)
{
    expect_ignored(expected_padi({0x02, 0, 0, 0, 0x01, 0x02}, IDENTIFIER), "Debug",
                   "Ignoring packet because it is not a PADO packet!");
}

TEST_F(pppoe_receive, a_cut_pado_is_ignored)
{
    const t_bytes whole = usual_pado(IDENTIFIER);
    expect_ignored(t_bytes(whole.begin(), whole.end() - 1), "Debug", "Bogus PPPoE length field (18) dev=eth1");
    expect_ignored(t_bytes(whole.begin(), whole.begin() + 17), "Debug", "Bogus PPPoE length field (0) dev=eth1");
}

TEST_F(pppoe_receive, a_payload_longer_than_the_buffer_is_ignored)
{
    // 1520 bytes are read, so a payload of 1501 cannot be whole.
    expect_ignored(pado(t_bytes(1501, 1)), "Debug", "Bogus PPPoE length field (1501) dev=eth1");
}

// holds: pado-length
TEST_F(pppoe_receive, a_payload_of_1495_bytes_is_refused)
{
    expect_ignored(pado(join({usual_tags(IDENTIFIER), t_bytes(1495 - 18, 1)})), "Info",
                   "read from socket parse error, try again! dev=eth1");
}

// holds: pado-end-of-list
TEST_F(pppoe_receive, a_pado_for_someone_else_is_ignored)
{
    expect_ignored(pado(usual_tags(IDENTIFIER + 1)), "Info", "read from socket parse error, try again! dev=eth1");
    expect_ignored(pado(join({tag(0x0000, {}), usual_tags(IDENTIFIER)})), "Info",
                   "read from socket parse error, try again! dev=eth1");
    receive(usual_pado(IDENTIFIER));
    EXPECT_EQ(context().answered, 1);
}

// holds: pado-second-host-uniq
TEST_F(pppoe_receive, the_second_of_two_host_uniq_tags_may_be_ours)
{
    receive(pado(join({tag(0x0103, native(7)), tag(0x0103, native(IDENTIFIER))})));
    EXPECT_EQ(context().answered, 1);
}

} // namespace
