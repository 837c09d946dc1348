// SPDX-License-Identifier: MIT
// Opening a batch: one socket and one frame per port, and what happens when one of them cannot.
#include <cerrno>

#include <net/ethernet.h>
#include <sys/socket.h>

#include "model/chronicle.h"
#include "tests/unit/probes/discovery_fixture.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class discovery_send : public t_both_protocols_test {};
FOR_BOTH_PROTOCOLS(discovery_send);

class dhcp_send : public t_discovery_test {
protected:
    dhcp_send() : t_discovery_test(DHCP) {}
};

class pppoe_send : public t_discovery_test {
protected:
    pppoe_send() : t_discovery_test(PPPOE) {}
};

// The kernel sorts out what nobody would be told of anyway.
TEST_P(discovery_send, a_socket_has_its_filter_before_it_hears_unless_every_frame_is_told_of)
{
    list_port(add_port("eth1", 1));
    for (int level = LOG_LEVEL_NONE; level <= LOG_LEVEL_Debug; level++) {
        t_log_capture log(level);
        ASSERT_EQ(send(), OK);
        EXPECT_EQ(socket_of("eth1").filtered_before_bound, level < LOG_LEVEL_Debug) << "level " << level;
        release_batch(protocol_.kind);
    }
}

TEST_P(discovery_send, a_kernel_that_refuses_the_filter_changes_nothing)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::FILTER, ENOMEM);
    t_log_capture log(LOG_LEVEL_Error);
    ASSERT_EQ(send(), OK);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
}

// holds: dhcp-batch-codes, pppoe-batch-codes
TEST_P(discovery_send, a_null_list_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(send_batch(protocol_.kind, nullptr), -99);
    EXPECT_TRUE(log.has("Debug", send_all(), "Entering function: " + send_all() + "!"));
    EXPECT_TRUE(log.has("Error", send_all(), protocol_.bad_list));
}

// holds: dhcp-batch-codes, pppoe-batch-codes
TEST_P(discovery_send, an_empty_list_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(send(), -99);
    EXPECT_TRUE(log.has("Error", send_all(), protocol_.bad_list));
    EXPECT_EQ(protocol_.batch->contexts, nullptr);
}

// holds: dhcp-256-ports
TEST_P(discovery_send, a_list_of_256_ports_counts_as_empty)
{
    for (int i = 0; i < 256; i++)
        list_port(add_port(("port" + std::to_string(i)).c_str(), 1));
    EXPECT_EQ(list_.count, 0);
    EXPECT_EQ(send(), ERR_INVALID_INPUT);
    EXPECT_EQ(protocol_.batch->device_num, 0);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: dhcp-256-ports
TEST_P(discovery_send, a_list_of_257_ports_probes_the_first)
{
    for (int i = 0; i < 257; i++)
        list_port(add_port(("port" + std::to_string(i)).c_str(), 1));
    EXPECT_EQ(send(), OK);
    EXPECT_EQ(protocol_.batch->device_num, 1);
    ASSERT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(fake_wire.sent()[0].port, "port0");
}

// holds: dhcp-batch-codes, pppoe-batch-codes
TEST_P(discovery_send, without_memory_nothing_is_sent)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    t_log_capture log;
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(send(), -98);
    }
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to malloc 2 " + word() + "_detect struct"));
    EXPECT_EQ(protocol_.batch->contexts, nullptr);
    EXPECT_TRUE(fake_wire.sockets().empty());
    EXPECT_EQ(process(true), PROBE_NO_BATCH);
}

// holds: dhcp-batch-sent, pppoe-batch-codes, chronicle-wire
TEST_P(discovery_send, one_frame_leaves_every_port)
{
    list_port(add_port("eth2", 2));
    t_device *eth1 = add_port("eth1", 1);
    list_port(eth1);
    next_random = {3, 5, 7, 11}; // in the list's order: eth1, eth2
    t_log_capture log;
    ASSERT_EQ(send(), OK);
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    EXPECT_EQ(fake_wire.sent()[0].port, "eth1");
    EXPECT_EQ(fake_wire.sent()[0].bytes, protocol_.question({{0x02, 0, 0, 0, 0x01, 0x02}}, 15));
    EXPECT_EQ(fake_wire.sent()[1].port, "eth2");
    EXPECT_EQ(fake_wire.sent()[1].bytes, protocol_.question({{0x02, 0, 0, 0, 0x01, 0x01}}, 77));
    EXPECT_EQ(fake_wire.watched_sockets(), 2);
    EXPECT_EQ(questions_last_hour(eth1), 1u);
    for (const std::string port : {"eth1", "eth2"}) {
        EXPECT_TRUE(log.has("Debug", send_all(), label() + " Discovery packet sockfd init success in dev:" + port));
        EXPECT_TRUE(log.has("Debug", send_all(), "Ready to send " + label() + " Discovery packet via dev:" + port));
        EXPECT_TRUE(log.has("Debug", send_all(), "Send " + label() + " Discovery packet success via dev:" + port));
    }
    EXPECT_EQ(log.count("Debug", send_packet(), "Entering function: " + send_packet() + "!"), 2);
    EXPECT_TRUE(log.has("Debug", send_packet(), "Get device:eth1 , index=12, hw_addr=02-00-00-00-01-02"));
}

// holds: pppoe-batch-codes
TEST_P(discovery_send, the_batch_is_recorded)
{
    t_device *eth1 = add_port("eth1", 1);
    list_port(eth1);
    next_random = {1000, 2000};
    protocol_.batch->finished = 1;
    ASSERT_EQ(send(), OK);
    EXPECT_EQ(protocol_.batch->finished, 0);
    EXPECT_EQ(protocol_.batch->device_num, 1);
    EXPECT_EQ(context().dev, eth1);
    EXPECT_EQ(context().answered, 0);
    EXPECT_EQ(context().identifier, 2'000'000u);
    EXPECT_EQ(context().socket.watcher.fd, fake_wire.socket_of("eth1"));
}

TEST_P(discovery_send, a_socket_hears_every_frame_of_its_port_and_sends_to_everyone)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send(), OK);
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
TEST_P(discovery_send, a_product_of_all_ones_sends_identifier_zero)
{
    list_port(add_port("eth1", 1));
    next_random = {65535, 65537};
    ASSERT_EQ(send(), OK);
    EXPECT_EQ(context().identifier, 0u);
    EXPECT_EQ(fake_wire.sent()[0].bytes, protocol_.question({{0x02, 0, 0, 0, 0x01, 0x01}}, 0));
}

// holds: dhcp-batch-sent
TEST_P(discovery_send, a_port_without_socket_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", "init_" + word() + "_sockfd", "Create " + label() + " request socket failed!"));
    EXPECT_FALSE(log.has_body("Cannot create raw socket -- pppoe must be run as root."));
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to init " + label() + " socket in dev:eth1"));
    EXPECT_TRUE(log.has("Debug", send_all(), "Ready to send " + label() + " Discovery packet via dev:null"));
    EXPECT_TRUE(log.has("Error", send_packet(), "Skip sending " + word() + " discoery packet due to socket error!"));
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to send " + label() + " socket via dev:null"));
    EXPECT_EQ(context().dev, nullptr);
    EXPECT_EQ(context().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.sent_on("eth1").size(), 0u);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

// holds: dhcp-batch-sent
TEST_P(discovery_send, a_port_that_cannot_be_bound_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::BIND, ENODEV, 0, 1, "eth1");
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", send_packet(), "Error binding socket!"));
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to send " + label() + " socket via dev:eth1"));
    EXPECT_EQ(context().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

// holds: dhcp-batch-sent
TEST_P(discovery_send, a_port_that_cannot_send_does_not_stop_the_others)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 1, "eth1");
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", send_packet(),
                        std::string("Error while writing to ") + protocol_.socket + ", using device:eth1"));
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to send " + label() + " socket via dev:eth1"));
    EXPECT_EQ(context().socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 1u);
}

TEST_P(discovery_send, a_list_node_without_a_port_is_skipped)
{
    list_port(add_port("eth1", 1));
    list_port(add_port("eth2", 2));
    list_.head.next->dev = nullptr;
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to load " + word() + " device!"));
    EXPECT_TRUE(log.has("Error", send_all(), "Failed to send " + label() + " socket via dev:null"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_P(discovery_send, a_list_shorter_than_its_count_leaves_empty_contexts)
{
    list_port(add_port("eth1", 1));
    list_.count = 3;
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_EQ(log.count("Error", send_all(), "Failed to load " + word() + " device!"), 2);
    EXPECT_TRUE(log.has("Debug", send_all(), "Ready to send " + label() + " Discovery packet via dev:null"));
    ASSERT_EQ(protocol_.batch->device_num, 3);
    EXPECT_EQ(context(2).dev, nullptr);
    EXPECT_EQ(context(2).socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_P(discovery_send, a_batch_left_over_is_released_first)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send(), OK);
    const int first_socket = fake_wire.socket_of("eth1");
    t_log_capture log;
    ASSERT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Notice", send_all(), "Last time handle not release, release it before resend!"));
    EXPECT_TRUE(log.has("Debug", releasing(), "release " + word() + "_detect_handler success!"));
    EXPECT_NE(fake_wire.socket_of("eth1"), first_socket);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
}

TEST_P(discovery_send, a_port_that_vanished_is_not_sent_to)
{
    t_device gone = {};
    copy_name(gone.name, "gone0");
    list_port(&gone);
    fake_wire.fail(t_wire_call::SEND, ENXIO);
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Debug", send_packet(), "Get device:gone0 , index=0, hw_addr=00-00-00-00-00-00"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
}

// holds: dhcp-port-codes, pppoe-port-codes
TEST_P(discovery_send, result_codes_of_one_port)
{
    t_device *eth1 = add_port("eth1", 1);
    t_discovery_port port;
    memset(static_cast<void *>(&port), 0xaa, sizeof port);
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    EXPECT_EQ(open_on_port(protocol_.kind, &port), protocol_.code_without_socket);
    EXPECT_EQ(port.socket.watcher.fd, -1);
    EXPECT_EQ(port.answered, 0);
    EXPECT_EQ(send_on_port(protocol_.kind, &port), -91);

    EXPECT_EQ(open_on_port(protocol_.kind, &port), 0);
    EXPECT_EQ(port.socket.watcher.cb, receive_on_port);
    port.dev = eth1;
    fake_wire.fail(t_wire_call::BIND, ENODEV);
    EXPECT_EQ(send_on_port(protocol_.kind, &port), -89);
    EXPECT_EQ(send_on_port(protocol_.kind, &port), -91);

    EXPECT_EQ(open_on_port(protocol_.kind, &port), 0);
    port.dev = eth1;
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(send_on_port(protocol_.kind, &port), -88);
    EXPECT_EQ(port.socket.watcher.fd, -1);

    EXPECT_EQ(open_on_port(protocol_.kind, &port), 0);
    port.dev = eth1;
    EXPECT_EQ(send_on_port(protocol_.kind, &port), 0);
    port.socket.close();
}

// holds: dhcp-port-codes
TEST_P(discovery_send, a_new_context_is_closed)
{
    t_discovery_port port = {};
    EXPECT_EQ(port.socket.watcher.fd, -1);
    EXPECT_EQ(send_on_port(protocol_.kind, &port), -91);
}

// holds: dhcp-batch-codes
TEST_F(dhcp_send, without_a_readable_lan_bridge_nothing_is_sent)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, EADDRNOTAVAIL, 0, 1, "br-lan");
    t_log_capture log;
    EXPECT_EQ(send(), -87);
    EXPECT_TRUE(log.has("Error", send_all(), "Couldn't get br-lan ip, netmask, mac!"));
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

TEST_F(dhcp_send, the_lan_bridges_mac_is_remembered)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send(), OK);
    EXPECT_EQ(dhcp_detect_handle.lan_mac, LAN_MAC);
}

TEST_F(pppoe_send, the_lan_bridge_is_not_needed)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV);
    EXPECT_EQ(send(), OK);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(pppoe_send, a_socket_may_broadcast)
{
    list_port(add_port("eth1", 1));
    ASSERT_EQ(send(), OK);
    const t_fake_socket &socket = socket_of("eth1");
    ASSERT_EQ(socket.options.size(), 1u);
    EXPECT_EQ(socket.options[0].option, SO_BROADCAST);
    EXPECT_EQ(socket.options[0].value, native(1));
}

TEST_F(pppoe_send, a_refused_broadcast_option_is_only_logged)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::SET_OPTION, ENOPROTOOPT);
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "setsockopt 'SO_BROADCAST' error!"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(pppoe_send, missing_rights_are_named)
{
    list_port(add_port("eth1", 1));
    fake_wire.fail(t_wire_call::OPEN, EPERM);
    t_log_capture log;
    EXPECT_EQ(send(), OK);
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "Cannot create raw socket -- pppoe must be run as root."));
    EXPECT_TRUE(log.has("Error", "init_pppoe_sockfd", "Create pppoe request socket failed!"));
}

} // namespace
