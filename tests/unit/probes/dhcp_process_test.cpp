// SPDX-License-Identifier: MIT
// Collecting a DHCP batch and releasing it.
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_discovery.h"
#include "probes/probe_fixture.h"

namespace {

class dhcp_process : public t_probe_test {
protected:
    void SetUp() override
    {
        t_probe_test::SetUp();
        eth1_ = add_port("eth1", 1);
        eth2_ = add_port("eth2", 2);
        list_port(eth1_);
        list_port(eth2_);
    }

    void TearDown() override
    {
        if (dhcp_detect_handle.contexts)
            release_dhcp_detect_handle();
        t_probe_test::TearDown();
    }

    void send()
    {
        next_random = {1, 101, 1, 102}; // the identifiers of eth1 and eth2
        ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    }

    static void answer(const char *port, uint32_t xid)
    {
        fake_wire.arrive(port, offer(xid, usual_options()));
        ASSERT_EQ(fake_wire.run_loop(), 1);
    }

    int process(bool final)
    {
        return process_dhcp_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, final);
    }

    t_device *eth1_ = nullptr;
    t_device *eth2_ = nullptr;
};

// holds: dhcp-collect-codes
TEST_F(dhcp_process, without_a_batch_detection_is_over)
{
    t_log_capture log;
    EXPECT_EQ(process(false), 98);
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "Entering function: process_dhcp_discovery_all!"));
    EXPECT_TRUE(log.has("Info", "process_dhcp_discovery_all",
                        "dhcp detect array is null, no packet sent yet, treat as detect over!"));
    EXPECT_TRUE(log.has("Info", "release_dhcp_detect_handle", "Release null dhcp_detect_handle fail!"));
    EXPECT_EQ(dhcp_detect_handle.finished, 1);
    EXPECT_EQ(process(true), 98);
}

// holds: dhcp-log-level
TEST_F(dhcp_process, a_log_level_that_changes_meanwhile_makes_the_filters_anew)
{
    log_set_level(LOG_LEVEL_Critical);
    send();
    fake_wire.arrive("eth1", offer(101, usual_options()));
    fake_wire.run_loop(); // this port is through
    const size_t quiet = socket_of("eth2").filter_length;
    ASSERT_GT(quiet, 0u);
    log_set_level(LOG_LEVEL_Info);
    EXPECT_EQ(process(false), 0);
    EXPECT_LT(socket_of("eth2").filter_length, quiet);
    EXPECT_GT(socket_of("eth2").filter_length, 0u);
    log_set_level(LOG_LEVEL_Debug);
    EXPECT_EQ(process(false), 0);
    EXPECT_EQ(socket_of("eth2").filter_length, 0u);
    log_set_level(LOG_LEVEL_Critical);
    EXPECT_EQ(process(false), 0);
    EXPECT_EQ(socket_of("eth2").filter_length, quiet);
    socket_of("eth2").filter_length = 0;
    EXPECT_EQ(process(false), 0);
    EXPECT_EQ(socket_of("eth2").filter_length, 0u) << "the filter is left alone as long as the level stays";
}

// holds: dhcp-collect-codes
TEST_F(dhcp_process, a_batch_of_no_ports_is_impossible_and_closed)
{
    send();
    const int first = fake_wire.socket_of("eth1"), second = fake_wire.socket_of("eth2");
    dhcp_detect_handle.device_num = 0;
    t_log_capture log;
    EXPECT_EQ(process(false), -99);
    EXPECT_TRUE(log.has("Error", "process_dhcp_discovery_all",
                        "Should never happen, valid dhcp detect array while device count is 0!"));
    EXPECT_TRUE(log.has("Error", "release_dhcp_detect_handle",
                        "dhcp_detect_handle not null but device_num=0, may cause unclosed socket fd "));
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    // As the message says: nobody knows of the two sockets any more.
    fake_wire.close_socket(first);
    fake_wire.close_socket(second);
}

// holds: dhcp-batch-time
TEST_F(dhcp_process, one_silent_port_keeps_the_batch_open_until_the_time_is_over)
{
    send();
    answer("eth1", 101);
    t_log_capture log;
    EXPECT_EQ(process(false), 0);
    EXPECT_NE(dhcp_detect_handle.contexts, nullptr);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
    EXPECT_EQ(eth1_->proto, nullptr);
    EXPECT_FALSE(log.has_body("dev:eth1 detect dhcp Service!"));

    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, dhcp_);
    EXPECT_EQ(eth2_->proto, nullptr);
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "Processing dhcp offer in eth:eth2"));
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "No dhcp Service detect in dev:eth2 yet!"));
}

// holds: dhcp-collect-codes
TEST_F(dhcp_process, a_port_that_answers_later_completes_the_batch)
{
    send();
    answer("eth2", 102);
    EXPECT_EQ(process(false), 0);
    answer("eth1", 101);
    EXPECT_EQ(process(false), 97);
    EXPECT_EQ(dhcp_->devices.count, 2);
    EXPECT_EQ(process(false), 98);
}

// holds: dhcp-collect-codes
TEST_F(dhcp_process, everyone_answered_counts_also_when_the_time_is_over)
{
    send();
    answer("eth1", 101);
    answer("eth2", 102);
    EXPECT_EQ(process(true), 97);
}

TEST_F(dhcp_process, what_was_learned_is_copied_into_the_port)
{
    send();
    answer("eth1", 101);
    answer("eth2", 102);
    memset(&eth1_->result, 0xee, sizeof eth1_->result);
    t_log_capture log;
    ASSERT_EQ(process(false), 97);
    EXPECT_EQ(eth1_->result.address.ipv4_be, ipv4("10.20.30.40"));
    EXPECT_EQ(eth1_->result.gateway.ipv4_be, ipv4("10.20.30.1"));
    EXPECT_EQ(eth1_->result.dns_server.ipv4_be, ipv4("10.20.30.53"));
    EXPECT_EQ(mac_at(eth1_->result.server_mac), SERVER_MAC);
    EXPECT_EQ(t_bytes(eth1_->result.address.unused, eth1_->result.address.unused + 12), zeros(12));
    EXPECT_TRUE(log.has("Info", "process_dhcp_discovery_all", "dev:eth1 detect dhcp Service!"));
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "dev:eth1, IPADDR=10.20.30.40, MAC=02-5E-00-00-00-99"));
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "dev:eth1, GATEWAY=10.20.30.1"));
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "dev:eth1, DNS_SERVER=10.20.30.53"));
}

TEST_F(dhcp_process, a_silent_port_keeps_what_it_knew)
{
    send();
    eth2_->result.address.ipv4_be = ipv4("1.2.3.4");
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth2_->result.address.ipv4_be, ipv4("1.2.3.4"));
}

TEST_F(dhcp_process, contexts_without_a_port_are_silent_and_called_null)
{
    list_.count = 3;
    send();
    answer("eth1", 101);
    answer("eth2", 102);
    EXPECT_EQ(process(false), 0);
    t_log_capture log;
    EXPECT_EQ(process(true), 96);
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "Processing dhcp offer in eth:null"));
    EXPECT_TRUE(log.has("Debug", "process_dhcp_discovery_all", "No dhcp Service detect in dev:null yet!"));
    EXPECT_EQ(dhcp_->devices.count, 2);
}

TEST_F(dhcp_process, a_port_known_for_pppoe_stays_with_it)
{
    send();
    eth1_->proto = pppoe_;
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
    EXPECT_EQ(eth1_->result.address.ipv4_be, ipv4("10.20.30.40"));
}

TEST_F(dhcp_process, release_closes_every_socket_and_zeroes_the_handle)
{
    send();
    t_log_capture log;
    release_dhcp_detect_handle();
    EXPECT_TRUE(log.has("Debug", "release_dhcp_detect_handle", "Entering function: release_dhcp_detect_handle!"));
    EXPECT_TRUE(log.has("Debug", "release_dhcp_detect_handle", "release dhcp_detect_handler success!"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 0);
    EXPECT_EQ(dhcp_detect_handle.contexts, nullptr);
    EXPECT_EQ(dhcp_detect_handle.device_num, 0);
    EXPECT_EQ(dhcp_detect_handle.lan_mac, UNKNOWN_MAC);
}

TEST_F(dhcp_process, release_without_a_batch_is_harmless)
{
    t_log_capture log;
    release_dhcp_detect_handle();
    EXPECT_TRUE(log.has("Info", "release_dhcp_detect_handle", "Release null dhcp_detect_handle fail!"));
}

} // namespace
