// SPDX-License-Identifier: MIT
// Collecting a PPPoE batch and releasing it.
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_discovery.h"
#include "probes/pppoe_discovery.h"
#include "probes/probe_fixture.h"

namespace {

class pppoe_process : public t_probe_test {
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
        if (pppoe_detect_handle.contexts)
            release_pppoe_detect_handle();
        t_probe_test::TearDown();
    }

    void send()
    {
        next_random = {1, 101, 1, 102}; // the Host-Uniq values of eth1 and eth2
        ASSERT_EQ(send_pppoe_discovery_all(&list_), OK);
    }

    static void answer(const char *port, uint32_t host_uniq)
    {
        fake_wire.arrive(port, pado(usual_tags(host_uniq)));
        ASSERT_EQ(fake_wire.run_loop(), 1);
    }

    int process(bool final)
    {
        return process_pppoe_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, final);
    }

    t_device *eth1_ = nullptr;
    t_device *eth2_ = nullptr;
};

// holds: pppoe-collect-codes
TEST_F(pppoe_process, without_a_batch_detection_is_over)
{
    t_log_capture log;
    EXPECT_EQ(process(false), 98);
    EXPECT_TRUE(log.has("Debug", "process_pppoe_discovery_all", "Entering function: process_pppoe_discovery_all!"));
    EXPECT_TRUE(log.has("Info", "process_pppoe_discovery_all",
                        "pppoe detect array is null, no packet sent yet, treat as detect over!"));
    EXPECT_TRUE(log.has("Info", "release_pppoe_detect_handle", "Release null pppoe_detect_handle fail!"));
    EXPECT_EQ(pppoe_detect_handle.finished, 1);
}

// holds: pppoe-log-level
TEST_F(pppoe_process, a_log_level_that_changes_meanwhile_makes_the_filters_anew)
{
    log_set_level(LOG_LEVEL_Critical);
    send();
    fake_wire.arrive("eth1", pado(usual_tags(101)));
    fake_wire.run_loop(); // this port is through
    const size_t quiet = socket_of("eth2").filter_length;
    ASSERT_GT(quiet, 0u);
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

// holds: pppoe-collect-codes
TEST_F(pppoe_process, a_batch_of_no_ports_is_impossible_and_closed)
{
    send();
    const int first = fake_wire.socket_of("eth1"), second = fake_wire.socket_of("eth2");
    pppoe_detect_handle.device_num = 0;
    t_log_capture log;
    EXPECT_EQ(process(true), -99);
    EXPECT_TRUE(log.has("Error", "process_pppoe_discovery_all",
                        "Should never happen, valid pppoe detect array while device count is 0!"));
    EXPECT_TRUE(log.has("Error", "release_pppoe_detect_handle",
                        "pppoe_detect_handle not null but device_num=0, may cause unclosed socket fd "));
    EXPECT_EQ(pppoe_detect_handle.contexts, nullptr);
    // As the message says: nobody knows of the two sockets any more.
    fake_wire.close_socket(first);
    fake_wire.close_socket(second);
}

// holds: pppoe-collect-codes
TEST_F(pppoe_process, one_silent_port_keeps_the_batch_open_until_the_time_is_over)
{
    send();
    answer("eth2", 102);
    EXPECT_EQ(process(false), 0);
    EXPECT_NE(pppoe_detect_handle.contexts, nullptr);
    EXPECT_EQ(eth2_->proto, nullptr);

    t_log_capture log;
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, nullptr);
    EXPECT_EQ(eth2_->proto, pppoe_);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_TRUE(log.has("Debug", "process_pppoe_discovery_all", "Processing pppoe offer in eth:eth1"));
    EXPECT_TRUE(log.has("Debug", "process_pppoe_discovery_all", "No pppoe Service detect in dev:eth1 yet!"));
    EXPECT_TRUE(log.has("Info", "process_pppoe_discovery_all", "dev:eth2 detect pppoe Service!"));
}

// holds: pppoe-collect-codes
TEST_F(pppoe_process, every_port_answered)
{
    send();
    answer("eth1", 101);
    answer("eth2", 102);
    EXPECT_EQ(process(false), 97);
    EXPECT_EQ(pppoe_->devices.count, 2);
    EXPECT_EQ(process(false), 98);
}

TEST_F(pppoe_process, nothing_is_copied_into_the_port)
{
    send();
    eth1_->result.address.ipv4_be = ipv4("1.2.3.4");
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->result.address.ipv4_be, ipv4("1.2.3.4"));
}

TEST_F(pppoe_process, a_port_known_for_dhcp_moves_to_pppoe)
{
    send();
    eth1_->proto = dhcp_;
    answer("eth1", 101);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
}

TEST_F(pppoe_process, contexts_without_a_port_are_silent_and_called_null)
{
    list_.count = 3;
    send();
    t_log_capture log;
    EXPECT_EQ(process(true), 96);
    EXPECT_TRUE(log.has("Debug", "process_pppoe_discovery_all", "Processing pppoe offer in eth:null"));
    EXPECT_TRUE(log.has("Debug", "process_pppoe_discovery_all", "No pppoe Service detect in dev:null yet!"));
}

TEST_F(pppoe_process, runs_beside_a_dhcp_batch_on_the_same_ports)
{
    send();
    next_random = {1, 201, 1, 202};
    ASSERT_EQ(send_dhcp_discovery_all(&list_), OK);
    EXPECT_EQ(fake_wire.open_sockets(), 4);
    // Both batches hear the answer; each takes its own.
    fake_wire.arrive("eth1", pado(usual_tags(101)));
    fake_wire.arrive("eth1", offer(201, usual_options()));
    fake_wire.run_loop();
    EXPECT_EQ(process_dhcp_discovery_all(model_.dev_hashmap_head, model_.proto_hashmap_head, true), 96);
    EXPECT_EQ(eth1_->proto, dhcp_);
    EXPECT_EQ(process(true), 96);
    EXPECT_EQ(eth1_->proto, pppoe_);
}

TEST_F(pppoe_process, release_closes_every_socket_and_zeroes_the_handle)
{
    send();
    t_log_capture log;
    release_pppoe_detect_handle();
    EXPECT_TRUE(log.has("Debug", "release_pppoe_detect_handle", "Entering function: release_pppoe_detect_handle!"));
    EXPECT_TRUE(log.has("Debug", "release_pppoe_detect_handle", "release pppoe_detect_handler success!"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_EQ(pppoe_detect_handle.contexts, nullptr);
    EXPECT_EQ(pppoe_detect_handle.device_num, 0);
    release_pppoe_detect_handle();
    EXPECT_TRUE(log.has("Info", "release_pppoe_detect_handle", "Release null pppoe_detect_handle fail!"));
}

} // namespace
