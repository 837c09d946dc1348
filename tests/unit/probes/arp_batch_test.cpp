// SPDX-License-Identifier: MIT
// What the single steps of an ARP exchange return, on a wire of byte arrays.
#include <cerrno>

#include "probes/arp/arp_batch.h"
#include "probes/wire/packet_socket.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/lan_scene.h"
#include "tests/unit/support/sandbox.h"

namespace {

class arp_codes : public testing::Test {
protected:
    arp_codes()
    {
        fake_wire.reset();
        fake_wire.add_interface("eth1", {.ifindex = 11, .mac = {{2, 0, 0, 0, 0, 11}}});
    }
    ~arp_codes() override
    {
        ctx.socket.close();
        EXPECT_EQ(fake_wire.open_sockets(), 0);
    }
    int open(t_device *dev) { return init_arp_sockfd(&ctx, dev, mac("aa:bb:cc:00:00:32"), ip("10.0.0.1")); }

    t_device eth1 = make_port("eth1");
    t_arp_detect ctx = {};
    t_log_capture log;
};

// holds: arp-socket-codes
TEST_F(arp_codes, a_socket_that_opens_is_0_with_and_without_a_port)
{
    EXPECT_EQ(open(&eth1), 0);
    EXPECT_EQ(ctx.dev, &eth1);
    ctx.socket.close();
    EXPECT_EQ(open(nullptr), 0);
    EXPECT_EQ(ctx.dev, nullptr);
    EXPECT_EQ(ctx.target_ip_be, ip("10.0.0.1"));
    EXPECT_EQ(ctx.target_mac, mac("aa:bb:cc:00:00:32"));
}

// holds: arp-socket-codes
TEST_F(arp_codes, a_socket_that_cannot_be_made_is_minus_92)
{
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    EXPECT_EQ(open(&eth1), -92);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);
}

// holds: arp-socket-codes
TEST_F(arp_codes, a_socket_that_cannot_be_bound_to_its_port_is_minus_90_and_closed)
{
    for (t_wire_call call : {t_wire_call::QUERY_PORT, t_wire_call::BIND_TO_DEVICE, t_wire_call::BIND}) {
        fake_wire.fail(call, ENODEV, 0, 1, "eth1");
        EXPECT_EQ(open(&eth1), -90);
        EXPECT_EQ(ctx.socket.watcher.fd, -1);
        EXPECT_EQ(ctx.dev, nullptr);
    }
}

// holds: arp-wait-codes
TEST_F(arp_codes, a_wait_that_ends_without_a_frame_is_0_and_leaves_the_socket_nonblocking)
{
    ASSERT_EQ(open(&eth1), 0);
    EXPECT_EQ(setTimeOut(ctx.socket.watcher.fd, 300), 0);
    EXPECT_TRUE(fake_wire.socket(ctx.socket.watcher.fd).nonblocking);
}

// holds: arp-wait-codes
TEST_F(arp_codes, a_wait_that_fails_is_minus_87)
{
    ASSERT_EQ(open(&eth1), 0);
    fake_wire.fail(t_wire_call::WAIT, EBADF);
    EXPECT_EQ(setTimeOut(ctx.socket.watcher.fd, 300), -87);
    EXPECT_TRUE(log.has("Error", "setTimeOut", "select error!"));
}

// holds: arp-request-codes
TEST_F(arp_codes, a_request_that_leaves_is_0)
{
    ASSERT_EQ(open(&eth1), 0);
    EXPECT_EQ(send_arp_unicast_packet_blocked(&ctx), 0);
    EXPECT_EQ(fake_wire.sent_on("eth1").size(), 1u);
}

// holds: arp-request-codes
TEST_F(arp_codes, a_request_without_a_socket_is_minus_91)
{
    EXPECT_EQ(send_arp_unicast_packet_blocked(&ctx), -91);
    EXPECT_TRUE(fake_wire.sent().empty());
}

// holds: arp-request-codes
TEST_F(arp_codes, a_request_whose_wait_or_sending_fails_is_minus_88)
{
    ASSERT_EQ(open(&eth1), 0);
    fake_wire.fail(t_wire_call::WAIT, EBADF);
    EXPECT_EQ(send_arp_unicast_packet_blocked(&ctx), -88);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 1, "eth1");
    EXPECT_EQ(send_arp_unicast_packet_blocked(&ctx), -88);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);
}

} // namespace
