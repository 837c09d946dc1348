// SPDX-License-Identifier: MIT
// Collecting a batch and releasing it.
#include "tests/unit/probes/discovery_fixture.h"

namespace {

// Two ports, asked with the identifiers 101 and 102.
template <typename Base> class t_two_ports : public Base {
protected:
    using Base::Base;

    void SetUp() override
    {
        Base::SetUp();
        eth1_ = this->add_port("eth1", 1);
        eth2_ = this->add_port("eth2", 2);
        this->list_port(eth1_);
        this->list_port(eth2_);
    }

    void ask()
    {
        next_random = {1, 101, 1, 102};
        ASSERT_EQ(this->send(), OK);
    }

    void answer(const char *port, uint32_t identifier) { this->receive(this->protocol_.answer(identifier), port); }

    t_device *eth1_ = nullptr;
    t_device *eth2_ = nullptr;
};

class discovery_process : public t_two_ports<t_both_protocols_test> {};
FOR_BOTH_PROTOCOLS(discovery_process);

class dhcp_process : public t_two_ports<t_discovery_test> {
protected:
    dhcp_process() : t_two_ports(DHCP) {}
};

class pppoe_process : public t_two_ports<t_discovery_test> {
protected:
    pppoe_process() : t_two_ports(PPPOE) {}
};

// holds: dhcp-collect-codes, pppoe-collect-codes
TEST_P(discovery_process, without_a_batch_detection_is_over)
{
    t_log_capture log;
    EXPECT_EQ(process(false), 98);
    EXPECT_TRUE(log.has("Debug", processing(), "Entering function: " + processing() + "!"));
    EXPECT_TRUE(
        log.has("Info", processing(), word() + " detect array is null, no packet sent yet, treat as detect over!"));
    EXPECT_TRUE(log.has("Info", releasing(), "Release null " + word() + "_detect_handle fail!"));
    EXPECT_EQ(protocol_.batch->finished, 1);
    EXPECT_EQ(process(true), 98);
}

// holds: dhcp-log-level, pppoe-log-level
TEST_P(discovery_process, a_log_level_that_changes_meanwhile_makes_the_filters_anew)
{
    log_set_level(LOG_LEVEL_Critical);
    ask();
    fake_wire.arrive("eth1", protocol_.answer(101));
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

// holds: dhcp-collect-codes, pppoe-collect-codes
TEST_P(discovery_process, a_batch_of_no_ports_is_impossible_and_closed)
{
    for (bool final : {false, true}) {
        ask();
        const int first = fake_wire.socket_of("eth1"), second = fake_wire.socket_of("eth2");
        protocol_.batch->device_num = 0;
        t_log_capture log;
        EXPECT_EQ(process(final), -99);
        EXPECT_TRUE(log.has("Error", processing(),
                            "Should never happen, valid " + word() + " detect array while device count is 0!"));
        EXPECT_TRUE(log.has("Error", releasing(),
                            word() + "_detect_handle not null but device_num=0, may cause unclosed socket fd "));
        EXPECT_EQ(protocol_.batch->contexts, nullptr);
        // As the message says: nobody knows of the two sockets any more.
        fake_wire.close_socket(first);
        fake_wire.close_socket(second);
    }
}

// holds: dhcp-batch-time, pppoe-collect-codes
TEST_P(discovery_process, one_silent_port_keeps_the_batch_open_until_the_time_is_over)
{
    ask();
    answer("eth1", 101);
    t_log_capture log;
    EXPECT_EQ(process(false), 0);
    EXPECT_NE(protocol_.batch->contexts, nullptr);
    EXPECT_EQ(fake_wire.watched_sockets(), 1);
    EXPECT_EQ(eth1_->proto, nullptr);
    EXPECT_FALSE(log.has_body("dev:eth1 detect " + word() + " Service!"));

    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, record());
    EXPECT_EQ(eth2_->proto, nullptr);
    EXPECT_EQ(protocol_.batch->contexts, nullptr);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_TRUE(log.has("Info", processing(), "dev:eth1 detect " + word() + " Service!"));
    EXPECT_TRUE(log.has("Debug", processing(), "Processing " + word() + " offer in eth:eth2"));
    EXPECT_TRUE(log.has("Debug", processing(), "No " + word() + " Service detect in dev:eth2 yet!"));
}

// holds: dhcp-collect-codes, pppoe-collect-codes
TEST_P(discovery_process, a_port_that_answers_later_completes_the_batch)
{
    ask();
    answer("eth2", 102);
    EXPECT_EQ(process(false), 0);
    answer("eth1", 101);
    EXPECT_EQ(process(false), 97);
    EXPECT_EQ(record()->devices.count, 2);
    EXPECT_EQ(process(false), 98);
}

// holds: dhcp-collect-codes, pppoe-collect-codes
TEST_P(discovery_process, everyone_answered_counts_also_when_the_time_is_over)
{
    ask();
    answer("eth1", 101);
    answer("eth2", 102);
    EXPECT_EQ(process(true), 97);
}

TEST_P(discovery_process, contexts_without_a_port_are_silent_and_called_null)
{
    list_.count = 3;
    ask();
    answer("eth1", 101);
    answer("eth2", 102);
    EXPECT_EQ(process(false), 0);
    t_log_capture log;
    EXPECT_EQ(process(true), 96);
    EXPECT_TRUE(log.has("Debug", processing(), "Processing " + word() + " offer in eth:null"));
    EXPECT_TRUE(log.has("Debug", processing(), "No " + word() + " Service detect in dev:null yet!"));
    EXPECT_EQ(record()->devices.count, 2);
}

TEST_P(discovery_process, release_closes_every_socket_and_zeroes_the_handle)
{
    ask();
    t_log_capture log;
    release_batch(protocol_.kind);
    EXPECT_TRUE(log.has("Debug", releasing(), "Entering function: " + releasing() + "!"));
    EXPECT_TRUE(log.has("Debug", releasing(), "release " + word() + "_detect_handler success!"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_EQ(fake_wire.watched_sockets(), 0);
    EXPECT_EQ(protocol_.batch->contexts, nullptr);
    EXPECT_EQ(protocol_.batch->device_num, 0);
    EXPECT_EQ(protocol_.batch->lan_mac, UNKNOWN_MAC);
}

TEST_P(discovery_process, release_without_a_batch_is_harmless)
{
    t_log_capture log;
    release_batch(protocol_.kind);
    EXPECT_TRUE(log.has("Info", releasing(), "Release null " + word() + "_detect_handle fail!"));
}

// holds: chronicle-wire
TEST_F(dhcp_process, what_was_learned_is_copied_into_the_port)
{
    ask();
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
    EXPECT_STREQ(eth1_->notes.answer, "dhcp");
    EXPECT_EQ(eth1_->notes.learned.gateway.ipv4_be, ipv4("10.20.30.1"));
    EXPECT_TRUE(log.has("Info", processing(), "dev:eth1 detect dhcp Service!"));
    EXPECT_TRUE(log.has("Debug", processing(), "dev:eth1, IPADDR=10.20.30.40, MAC=02-5E-00-00-00-99"));
    EXPECT_TRUE(log.has("Debug", processing(), "dev:eth1, GATEWAY=10.20.30.1"));
    EXPECT_TRUE(log.has("Debug", processing(), "dev:eth1, DNS_SERVER=10.20.30.53"));
}

TEST_F(dhcp_process, a_silent_port_keeps_what_it_knew)
{
    ask();
    eth2_->result.address.ipv4_be = ipv4("1.2.3.4");
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth2_->result.address.ipv4_be, ipv4("1.2.3.4"));
}

TEST_F(dhcp_process, a_port_known_for_pppoe_stays_with_it)
{
    ask();
    eth1_->proto = pppoe_;
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
    EXPECT_EQ(eth1_->result.address.ipv4_be, ipv4("10.20.30.40"));
}

// holds: chronicle-wire
TEST_F(pppoe_process, nothing_is_copied_into_the_port_and_the_servers_mac_is_remembered)
{
    ask();
    eth1_->result.address.ipv4_be = ipv4("1.2.3.4");
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->result.address.ipv4_be, ipv4("1.2.3.4"));
    EXPECT_EQ(mac_at(eth1_->result.server_mac), UNKNOWN_MAC);
    EXPECT_EQ(mac_at(eth1_->notes.learned.server_mac), SERVER_MAC);
    EXPECT_EQ(eth1_->notes.learned.address.ipv4_be, 0u);
}

TEST_F(pppoe_process, a_port_known_for_dhcp_moves_to_pppoe)
{
    ask();
    eth1_->proto = dhcp_;
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
}

TEST_F(pppoe_process, runs_beside_a_dhcp_batch_on_the_same_ports)
{
    ask();
    next_random = {1, 201, 1, 202};
    ASSERT_EQ(send_batch(dhcp_discovery, &list_), OK);
    EXPECT_EQ(fake_wire.open_sockets(), 4);
    // Both batches hear the answer; each takes its own.
    fake_wire.arrive("eth1", usual_pado(101));
    fake_wire.arrive("eth1", usual_offer(201));
    fake_wire.run_loop();
    EXPECT_EQ(collect_batch(dhcp_discovery, model_.dev_hashmap_head, model_.proto_hashmap_head, true), 96);
    EXPECT_EQ(eth1_->proto, dhcp_);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
}

} // namespace
