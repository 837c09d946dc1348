// SPDX-License-Identifier: MIT
// Opening a PPPoE batch: one socket and one PADI per port, and what happens when one of them cannot.
#include <cerrno>

#include <net/ethernet.h>
#include <sys/socket.h>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/packet_socket.h"
#include "probes/pppoe_discovery.h"
#include "probes/probe_fixture.h"
#include "support/failing_memory.h"

namespace {

class pppoe_send : public t_probe_test {
protected:
    void TearDown() override
    {
        if (pppoe_detect_handle.contexts)
            release_pppoe_detect_handle();
        t_probe_test::TearDown();
    }
};

// The kernel sorts out what nobody would be told of anyway.
TEST_F(pppoe_send, a_socket_has_its_filter_before_it_hears_unless_every_frame_is_told_of)
{
    list_port(add_port("eth1", 1));
    for (int level = LOG_LEVEL_NONE; level <= LOG_LEVEL_Debug; level++) {
        t_log_capture log(level);
        ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
        EXPECT_EQ(socket_of("eth1").filtered_before_bound, level < LOG_LEVEL_Debug) << "level " << level;
        release_pppoe_detect_handle();
    }
}

TEST_F(pppoe_send, a_kernel_that_refuses_the_filter_changes_nothing)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::FILTER, ENOMEM);
    t_log_capture log(LOG_LEVEL_Error);
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
}

// holds: pppoe-batch-codes
TEST_F(pppoe_send, a_null_list_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(nullptr), -99);
    EXPECT_TRUE(log.has("Debug", "send_pppoe_discovery_all", "Entering function: send_pppoe_discovery_all!"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Invalid parameters! Send failed!"));
}

// holds: pppoe-batch-codes
TEST_F(pppoe_send, an_empty_list_is_refused)
{
    EXPECT_EQ(send_pppoe_discovery_all(&list_), -99);
    EXPECT_EQ(pppoe_detect_handle.contexts, nullptr);
}

TEST_F(pppoe_send, a_list_of_256_ports_counts_as_empty)
{
    for (int i = 0; i < 256; i++)
        list_port(add_port(("port" + std::to_string(i)).c_str(), 1));
    EXPECT_EQ(send_pppoe_discovery_all(&list_), ERR_INVALID_INPUT);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: pppoe-batch-codes
TEST_F(pppoe_send, without_memory_nothing_is_sent)
{
    list_port(add_port("eth1", 1));
    t_log_capture log;
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(send_pppoe_discovery_all(&list_), -98);
    }
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to malloc 1 pppoe_detect struct"));
    EXPECT_TRUE(fake_wire.sockets().empty());
}

TEST_F(pppoe_send, the_lan_bridge_is_not_needed)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV);
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

// holds: pppoe-batch-codes
TEST_F(pppoe_send, one_padi_leaves_every_port)
{
    t_device *eth1 = add_port("eth1", 1);
    list_port(eth1);
    list_port(add_port("eth2", 2));
    next_random = {3, 5, 7, 11};
    pppoe_detect_handle.finished = 1;
    t_log_capture log;
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_EQ(pppoe_detect_handle.finished, 0);
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    EXPECT_EQ(fake_wire.sent()[0].port, "eth1");
    EXPECT_EQ(fake_wire.sent()[0].bytes, expected_padi({0x02, 0, 0, 0, 0x01, 0x01}, 15));
    EXPECT_EQ(fake_wire.sent()[1].port, "eth2");
    EXPECT_EQ(fake_wire.sent()[1].bytes, expected_padi({0x02, 0, 0, 0, 0x01, 0x02}, 77));
    EXPECT_EQ(fake_wire.watched_sockets(), 2);
    EXPECT_EQ(pppoe_detect_handle.device_num, 2);
    EXPECT_EQ(pppoe_detect_handle.contexts[0].dev, eth1);
    EXPECT_EQ(pppoe_detect_handle.contexts[0].identifier, 15u);
    for (const char *port : {"eth1", "eth2"}) {
        EXPECT_TRUE(log.has("Debug", "send_pppoe_discovery_all",
                            std::string("pppoe Discovery packet sockfd init success in dev:") + port));
        EXPECT_TRUE(log.has("Debug", "send_pppoe_discovery_all",
                            std::string("Ready to send pppoe Discovery packet via dev:") + port));
        EXPECT_TRUE(log.has("Debug", "send_pppoe_discovery_all",
                            std::string("Send pppoe Discovery packet success via dev:") + port));
    }
    EXPECT_EQ(log.count("Debug", "send_pppoe_discovery_packet", "Entering function: send_pppoe_discovery_packet!"), 2);
    EXPECT_TRUE(
        log.has("Debug", "send_pppoe_discovery_packet", "Get device:eth1 , index=11, hw_addr=02-00-00-00-01-01"));
}

TEST_F(pppoe_send, a_socket_hears_every_frame_of_its_port_and_may_broadcast)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    const t_fake_socket &socket = socket_of("eth1");
    EXPECT_EQ(socket.ether_type, ETH_P_ALL);
    EXPECT_EQ(socket.address.sll_protocol, htons(ETH_P_ALL));
    EXPECT_EQ(socket.address.sll_ifindex, 11);
    EXPECT_EQ(socket.address.sll_halen, 6);
    EXPECT_EQ(t_bytes(socket.address.sll_addr, socket.address.sll_addr + 8), t_bytes(8, 0xff));
    ASSERT_EQ(socket.options.size(), 1u);
    EXPECT_EQ(socket.options[0].option, SO_BROADCAST);
    EXPECT_EQ(socket.options[0].value, native(1));
}

TEST_F(pppoe_send, a_product_of_all_ones_sends_host_uniq_zero)
{
    list_port(add_port("eth1", 1));
    next_random = {65537, 65535};
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_EQ(fake_wire.sent()[0].bytes, expected_padi({0x02, 0, 0, 0, 0x01, 0x01}, 0));
}

TEST_F(pppoe_send, a_refused_broadcast_option_is_only_logged)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::SET_OPTION, ENOPROTOOPT);
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "setsockopt 'SO_BROADCAST' error!"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(pppoe_send, a_port_without_socket_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "Create pppoe request socket failed!"));
    EXPECT_FALSE(log.has_body("Cannot create raw socket -- pppoe must be run as root."));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to init pppoe socket in dev:eth1"));
    EXPECT_TRUE(
        log.has("Error", "send_pppoe_discovery_packet", "Skip sending pppoe discoery packet due to socket error!"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to send pppoe socket via dev:null"));
    EXPECT_EQ(pppoe_detect_handle.contexts[0].dev, nullptr);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

TEST_F(pppoe_send, missing_rights_are_named)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::OPEN, EPERM);
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "Cannot create raw socket -- pppoe must be run as root."));
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "Create pppoe request socket failed!"));
}

TEST_F(pppoe_send, a_port_that_cannot_be_bound_or_written_to_does_not_stop_the_others)
{
    for (const char *port : {"eth1", "eth2", "eth3"})
        list_port(add_port(port, 1));
    fake_wire.fail(t_wire_call::BIND, ENODEV, 0, 1, "eth1");
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 1, "eth2");
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_packet", "Error binding socket!"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to send pppoe socket via dev:eth1"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_packet",
                        "Error while writing to pppoe discovery socket, using device:eth2"));
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to send pppoe socket via dev:eth2"));
    EXPECT_EQ(fake_wire.open_sockets(), 1);
    EXPECT_EQ(fake_wire.sent_on("eth3").size(), 1u);
}

TEST_F(pppoe_send, a_list_node_without_a_port_is_skipped)
{
    list_port(add_port("eth1", 1));
    list_.count = 2;
    t_log_capture log;
    EXPECT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "send_pppoe_discovery_all", "Failed to load pppoe device!"));
    EXPECT_EQ(pppoe_detect_handle.contexts[1].dev, nullptr);
    EXPECT_EQ(pppoe_detect_handle.contexts[1].socket.watcher.fd, -1);
    EXPECT_TRUE(log.has("Debug", "send_pppoe_discovery_all", "Ready to send pppoe Discovery packet via dev:null"));
}

TEST_F(pppoe_send, a_batch_left_over_is_released_first)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    t_log_capture log;
    ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    EXPECT_TRUE(
        log.has("Notice", "send_pppoe_discovery_all", "Last time handle not release, release it before resend!"));
    EXPECT_EQ(fake_wire.open_sockets(), 1);
}

// holds: pppoe-port-codes
TEST_F(pppoe_send, result_codes_of_one_port)
{
    t_device *eth1 = add_port("eth1", 1);
    t_discovery_port ctx;
    memset(static_cast<void *>(&ctx), 0xaa, sizeof ctx);
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    EXPECT_EQ(init_pppoe_sockfd(&ctx), -91);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);
    EXPECT_EQ(send_pppoe_discovery_packet(&ctx), -91);

    EXPECT_EQ(init_pppoe_sockfd(&ctx), 0);
    EXPECT_EQ(ctx.socket.watcher.cb, recv_pppoe_discovery_packet);
    ctx.dev = eth1;
    fake_wire.fail(t_wire_call::BIND, ENODEV);
    EXPECT_EQ(send_pppoe_discovery_packet(&ctx), -89);

    EXPECT_EQ(init_pppoe_sockfd(&ctx), 0);
    ctx.dev = eth1;
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(send_pppoe_discovery_packet(&ctx), -88);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);

    EXPECT_EQ(init_pppoe_sockfd(&ctx), 0);
    ctx.dev = eth1;
    EXPECT_EQ(send_pppoe_discovery_packet(&ctx), 0);
    ctx.socket.close();
}

} // namespace
