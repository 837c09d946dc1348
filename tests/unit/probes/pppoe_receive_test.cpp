// SPDX-License-Identifier: MIT
// What a PPPoE batch makes of the frames that arrive on its ports.
#include <cerrno>

#include "platform/result_codes.h"
#include "probes/pppoe_discovery.h"
#include "probes/probe_fixture.h"

namespace {

constexpr uint32_t HOST_UNIQ = 0x00abcdef;

class pppoe_receive : public t_probe_test {
protected:
    void SetUp() override
    {
        t_probe_test::SetUp();
        list_port(add_port("eth1", 1));
        next_random = {0x00abcdef, 1};
        ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    }

    void TearDown() override
    {
        if (pppoe_detect_handle.contexts)
            release_pppoe_detect_handle();
        t_probe_test::TearDown();
    }

    static t_discovery_port &ctx() { return pppoe_detect_handle.contexts[0]; }

    static void receive(const t_bytes &frame)
    {
        fake_wire.arrive("eth1", frame);
        ASSERT_EQ(fake_wire.run_loop(), 1);
    }

    // The frame is refused with this line, and the port goes on listening.
    static void expect_ignored(const t_bytes &frame, const char *level, const char *body)
    {
        t_log_capture log;
        receive(frame);
        EXPECT_TRUE(log.has(level, "recv_pppoe_discovery_packet", body)) << body << "\n" << log.text();
        EXPECT_EQ(ctx().answered, 0);
        EXPECT_EQ(ctx().socket.watcher.fd, fake_wire.socket_of("eth1"));
        EXPECT_EQ(fake_wire.watched_sockets(), 1);
    }
};

TEST_F(pppoe_receive, a_valid_pado_closes_the_socket)
{
    t_log_capture log;
    receive(pado(usual_tags(HOST_UNIQ)));
    EXPECT_EQ(ctx().answered, 1);
    EXPECT_EQ(ctx().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_TRUE(
        log.has("Debug", "recv_pppoe_discovery_packet", "recv pppoe discovery offer(PADO) packet from dev:eth1"));
    EXPECT_TRUE(
        log.has("Info", "recv_pppoe_discovery_packet", "Success parse pppoe discovery offer(PADO) packet in dev=eth1"));
}

// holds: pado-all-ones
TEST_F(pppoe_receive, a_pado_from_an_all_ones_source_is_ignored)
{
    expect_ignored(patched(pado(usual_tags(HOST_UNIQ)), PADO_SOURCE, t_bytes(6, 0xff)), "Debug",
                   "Ignoring PADO packet from broadcast MAC address");
}

TEST_F(pppoe_receive, other_traffic_of_the_port_is_ignored)
{
    expect_ignored(patched(pado(usual_tags(HOST_UNIQ)), PADO_ETHER_TYPE, {0x08, 0x00}), "Debug",
                   "Ignoring packet because it is not a pppoe disover packet!");
    expect_ignored({0x01}, "Debug", "Ignoring packet because it is not a pppoe disover packet!");
    expect_ignored(t_bytes(1520, 0), "Debug", "Ignoring packet because it is not a pppoe disover packet!");
}

// holds: padi-own
TEST_F(pppoe_receive, a_padi_of_this_router_on_another_port_is_ignored)
{
    expect_ignored(expected_padi({0x02, 0, 0, 0, 0x01, 0x02}, HOST_UNIQ), "Debug",
                   "Ignoring packet because it is not a PADO packet!");
}

TEST_F(pppoe_receive, a_cut_pado_is_ignored)
{
    const t_bytes whole = pado(usual_tags(HOST_UNIQ));
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
    expect_ignored(pado(join({usual_tags(HOST_UNIQ), t_bytes(1495 - 18, 1)})), "Info",
                   "read from socket parse error, try again! dev=eth1");
}

// holds: pado-end-of-list
TEST_F(pppoe_receive, a_pado_for_someone_else_is_ignored)
{
    expect_ignored(pado(usual_tags(HOST_UNIQ + 1)), "Info", "read from socket parse error, try again! dev=eth1");
    expect_ignored(pado(join({tag(0x0000, {}), usual_tags(HOST_UNIQ)})), "Info",
                   "read from socket parse error, try again! dev=eth1");
    receive(pado(usual_tags(HOST_UNIQ)));
    EXPECT_EQ(ctx().answered, 1);
}

// holds: pado-second-host-uniq
TEST_F(pppoe_receive, the_second_of_two_host_uniq_tags_may_be_ours)
{
    receive(pado(join({tag(0x0103, native(7)), tag(0x0103, native(HOST_UNIQ))})));
    EXPECT_EQ(ctx().answered, 1);
}

TEST_F(pppoe_receive, a_failed_read_leaves_the_port_listening)
{
    fake_wire.fail(t_wire_call::RECEIVE, ENETDOWN);
    expect_ignored({0}, "Error", "Cannot read from socket, try again! dev=eth1");
    expect_ignored({}, "Error", "Cannot read from socket, try again! dev=eth1");
}

TEST_F(pppoe_receive, an_event_without_the_read_bit_reads_nothing)
{
    fake_wire.arrive("eth1", pado(usual_tags(HOST_UNIQ)));
    socket_of("eth1").error_pending = true;
    t_log_capture log;
    recv_pppoe_discovery_packet(&ctx().socket.watcher, 0);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(ctx().answered, 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
}

TEST_F(pppoe_receive, an_error_that_cannot_be_cleared_leaves_the_loop)
{
    recv_pppoe_discovery_packet(&ctx().socket.watcher, 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 0);
    EXPECT_EQ(ctx().answered, 0);
}

} // namespace
