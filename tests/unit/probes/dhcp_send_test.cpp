// SPDX-License-Identifier: MIT
// Opening a DHCP batch: one socket and one DISCOVER per port, and what happens when one of them cannot.
#include <cerrno>

#include <net/ethernet.h>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_discovery.h"
#include "probes/packet_socket.h"
#include "probes/probe_fixture.h"
#include "support/failing_memory.h"

namespace {

class dhcp_send : public t_probe_test {
protected:
    void TearDown() override
    {
        if (dhcp_detect_handle.contexts)
            release_dhcp_detect_handle();
        t_probe_test::TearDown();
    }
};

// The kernel sorts out what nobody would be told of anyway.
TEST_F(dhcp_send, a_socket_has_its_filter_before_it_hears_unless_every_frame_is_told_of)
{
    list_port(add_port("eth1", 1));
    for (int level = LOG_LEVEL_NONE; level <= LOG_LEVEL_Debug; level++) {
        t_log_capture log(level);
        ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
        EXPECT_EQ(socket_of("eth1").filtered_before_bound, level < LOG_LEVEL_Debug) << "level " << level;
        release_dhcp_detect_handle();
    }
}

TEST_F(dhcp_send, a_kernel_that_refuses_the_filter_changes_nothing)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::FILTER, ENOMEM);
    t_log_capture log(LOG_LEVEL_Error);
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
}

// holds: dhcp-batch-codes
TEST_F(dhcp_send, a_null_list_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(nullptr), ERR_INVALID_INPUT);
    EXPECT_TRUE(log.has("Debug", "send_dhcp_discovery_all", "Entering function: send_dhcp_discovery_all!"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "invalid parameters! Send failed!"));
}

// holds: dhcp-batch-codes
TEST_F(dhcp_send, an_empty_list_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), ERR_INVALID_INPUT);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "invalid parameters! Send failed!"));
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
}

// holds: dhcp-256-ports
TEST_F(dhcp_send, a_list_of_256_ports_counts_as_empty)
{
    for (int i = 0; i < 256; i++)
        list_port(add_port(("port" + std::to_string(i)).c_str(), 1));
    EXPECT_EQ(list_.count, 0);
    EXPECT_EQ(send_dhcp_discovery_all(&list_), ERR_INVALID_INPUT);
    EXPECT_EQ(dhcp_detect_handle.device_num, 0);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: dhcp-256-ports
TEST_F(dhcp_send, a_list_of_257_ports_probes_the_first)
{
    for (int i = 0; i < 257; i++)
        list_port(add_port(("port" + std::to_string(i)).c_str(), 1));
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(dhcp_detect_handle.device_num, 1);
    ASSERT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(fake_wire.sent()[0].port, "port0");
}

// holds: dhcp-batch-codes
TEST_F(dhcp_send, without_a_readable_lan_bridge_nothing_is_sent)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, EADDRNOTAVAIL, 0, 1, "br-lan");
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), -87);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Couldn't get br-lan ip, netmask, mac!"));
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: dhcp-batch-codes
TEST_F(dhcp_send, without_memory_nothing_is_sent)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    t_log_capture log;
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(send_dhcp_discovery_all(&list_), -98);
    }
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to malloc 2 dhcp_detect struct"));
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    EXPECT_EQ(process_dhcp_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, true), PROBE_NO_BATCH);
}

// holds: dhcp-batch-sent
TEST_F(dhcp_send, one_discover_leaves_every_port)
{
    list_port(add_port("eth2", 2));
    list_port(add_port("eth1", 1));
    next_random = {3, 5, 7, 11}; // in the list's order: eth1, eth2
    t_log_capture log;
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    EXPECT_EQ(fake_wire.sent()[0].port, "eth1");
    EXPECT_EQ(fake_wire.sent()[0].bytes, expected_discover({0x02, 0, 0, 0, 0x01, 0x02}, 15));
    EXPECT_EQ(fake_wire.sent()[1].port, "eth2");
    EXPECT_EQ(fake_wire.sent()[1].bytes, expected_discover({0x02, 0, 0, 0, 0x01, 0x01}, 77));
    EXPECT_EQ(fake_wire.watched_sockets(), 2);
    for (const char *port : {"eth1", "eth2"}) {
        EXPECT_TRUE(log.has("Debug", "send_dhcp_discovery_all",
                            std::string("DHCP Discovery packet sockfd init success in dev:") + port));
        EXPECT_TRUE(log.has("Debug", "send_dhcp_discovery_all",
                            std::string("Ready to send DHCP Discovery packet via dev:") + port));
        EXPECT_TRUE(log.has("Debug", "send_dhcp_discovery_all",
                            std::string("Send DHCP Discovery packet success via dev:") + port));
    }
    EXPECT_EQ(log.count("Debug", "send_dhcp_discovery_packet", "Entering function: send_dhcp_discovery_packet!"), 2);
    EXPECT_TRUE(
        log.has("Debug", "send_dhcp_discovery_packet", "Get device:eth1 , index=12, hw_addr=02-00-00-00-01-02"));
}

TEST_F(dhcp_send, the_batch_is_recorded)
{
    t_device *eth1 = add_port("eth1", 1);
    list_port(eth1);
    next_random = {1000, 2000};
    dhcp_detect_handle.finished = 1;
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(dhcp_detect_handle.finished, 0);
    EXPECT_EQ(dhcp_detect_handle.device_num, 1);
    EXPECT_EQ(dhcp_detect_handle.lan_mac, LAN_MAC);
    const t_discovery_port &ctx = dhcp_detect_handle.contexts[0];
    EXPECT_EQ(ctx.dev, eth1);
    EXPECT_EQ(ctx.answered, 0);
    EXPECT_EQ(ctx.identifier, 2'000'000u);
    EXPECT_EQ(ctx.socket.watcher.fd, fake_wire.socket_of("eth1"));
}

TEST_F(dhcp_send, a_socket_hears_every_frame_of_its_port_and_sends_to_everyone)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    const t_fake_socket &socket = socket_of("eth1");
    EXPECT_EQ(socket.ether_type, ETH_P_ALL);
    ASSERT_TRUE(socket.bound);
    for (const sockaddr_ll &address : {socket.address, fake_wire.sent()[0].address}) {
        EXPECT_EQ(address.sll_family, AF_PACKET);
        EXPECT_EQ(address.sll_protocol, htons(ETH_P_ALL));
        EXPECT_EQ(address.sll_ifindex, 11);
        EXPECT_EQ(address.sll_hatype, 0);
        EXPECT_EQ(address.sll_pkttype, 0);
        EXPECT_EQ(address.sll_halen, 6);
        EXPECT_EQ(t_bytes(address.sll_addr, address.sll_addr + 8), t_bytes(8, 0xff));
    }
}

// holds: dhcp-all-ones
TEST_F(dhcp_send, a_product_of_all_ones_sends_identifier_zero)
{
    list_port(add_port("eth1", 1));
    next_random = {65535, 65537};
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(dhcp_detect_handle.contexts[0].identifier, 0u);
    EXPECT_EQ(fake_wire.sent()[0].bytes, expected_discover({0x02, 0, 0, 0, 0x01, 0x01}, 0));
}

// holds: dhcp-batch-sent
TEST_F(dhcp_send, a_port_without_socket_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "init_dhcp_sockfd", "Create DHCP request socket failed!"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to init DHCP socket in dev:eth1"));
    EXPECT_TRUE(log.has("Debug", "send_dhcp_discovery_all", "Ready to send DHCP Discovery packet via dev:null"));
    EXPECT_TRUE(
        log.has("Error", "send_dhcp_discovery_packet", "Skip sending dhcp discoery packet due to socket error!"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to send DHCP socket via dev:null"));
    EXPECT_EQ(dhcp_detect_handle.contexts[0].dev, nullptr);
    EXPECT_EQ(dhcp_detect_handle.contexts[0].socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.sent_on("eth1").size(), 0u);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

// holds: dhcp-batch-sent
TEST_F(dhcp_send, a_port_that_cannot_be_bound_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::BIND, ENODEV, 0, 1, "eth1");
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_packet", "Error binding socket!"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to send DHCP socket via dev:eth1"));
    EXPECT_EQ(dhcp_detect_handle.contexts[0].socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

// holds: dhcp-batch-sent
TEST_F(dhcp_send, a_port_that_cannot_send_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 1, "eth1");
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_packet",
                        "Error while writing to dhcp request socket, using device:eth1"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to send DHCP socket via dev:eth1"));
    EXPECT_EQ(dhcp_detect_handle.contexts[0].socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

TEST_F(dhcp_send, a_list_node_without_a_port_is_skipped)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    list_.head.next->dev = nullptr;
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to load dhcp device!"));
    EXPECT_TRUE(log.has("Error", "send_dhcp_discovery_all", "Failed to send DHCP socket via dev:null"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(dhcp_send, a_list_shorter_than_its_count_leaves_empty_contexts)
{
    list_port(add_port("eth1", 1));
    list_.count = 3;
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(log.count("Error", "send_dhcp_discovery_all", "Failed to load dhcp device!"), 2);
    ASSERT_EQ(dhcp_detect_handle.device_num, 3);
    EXPECT_EQ(dhcp_detect_handle.contexts[2].dev, nullptr);
    EXPECT_EQ(dhcp_detect_handle.contexts[2].socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(dhcp_send, a_batch_left_over_is_released_first)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    const int first_socket = fake_wire.socket_of("eth1");
    t_log_capture log;
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(
        log.has("Notice", "send_dhcp_discovery_all", "Last time handle not release, release it before resend!"));
    EXPECT_TRUE(log.has("Debug", "release_dhcp_detect_handle", "release dhcp_detect_handler success!"));
    EXPECT_NE(fake_wire.socket_of("eth1"), first_socket);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
}

TEST_F(dhcp_send, a_port_that_vanished_is_not_sent_to)
{
    t_device gone = {};
    copy_name(gone.name, "gone0");
    list_port(&gone);
    fake_wire.fail(t_wire_call::SEND, ENXIO);
    t_log_capture log;
    EXPECT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_TRUE(
        log.has("Debug", "send_dhcp_discovery_packet", "Get device:gone0 , index=0, hw_addr=00-00-00-00-00-00"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
}

// holds: dhcp-port-codes
TEST_F(dhcp_send, result_codes_of_one_port)
{
    t_device *eth1 = add_port("eth1", 1);
    t_discovery_port ctx;
    memset(static_cast<void *>(&ctx), 0xaa, sizeof ctx);
    fake_wire.fail(t_wire_call::OPEN, EPERM);
    EXPECT_EQ(init_dhcp_sockfd(&ctx), -92);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);
    EXPECT_EQ(ctx.answered, 0);
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), -91);

    EXPECT_EQ(init_dhcp_sockfd(&ctx), 0);
    EXPECT_EQ(ctx.socket.watcher.cb, recv_dhcp_discovery_packet);
    ctx.dev = eth1;
    fake_wire.fail(t_wire_call::BIND, ENODEV);
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), -89);
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), -91);

    EXPECT_EQ(init_dhcp_sockfd(&ctx), 0);
    ctx.dev = eth1;
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), -88);
    EXPECT_EQ(ctx.socket.watcher.fd, -1);

    EXPECT_EQ(init_dhcp_sockfd(&ctx), 0);
    ctx.dev = eth1;
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), 0);
    ctx.socket.close();
}

// holds: dhcp-port-codes
TEST_F(dhcp_send, a_zeroed_context_is_closed)
{
    t_discovery_port ctx = {};
    EXPECT_EQ(send_dhcp_discovery_packet(&ctx), -91);
}

} // namespace
