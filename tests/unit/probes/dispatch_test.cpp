// SPDX-License-Identifier: MIT
// Which ports a probe goes out on. The frames themselves are the probes' own tests' matter.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "model/tables.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "tests/unit/probes/probe_fixture.h"
#include "tests/unit/support/failing_memory.h"

namespace {

// One of the two probes, with its messages.
struct t_probe {
    const char *word;
    const t_discovery *kind;
    size_t frame_size;
};

constexpr t_probe PROBES[] = {
    {"dhcp", &dhcp_discovery, 410},
    {"pppoe", &pppoe_discovery, 32},
};

class dispatch : public t_probe_test, public testing::WithParamInterface<t_probe> {
protected:
    void TearDown() override
    {
        if (GetParam().kind->batch.contexts)
            release_batch(*GetParam().kind);
        t_probe_test::TearDown();
    }

    int ask_all() { return ask_linked_ports(*GetParam().kind, &model_); }
    static int ask_one(t_device *dev) { return ask_one_port(*GetParam().kind, dev); }

    static std::string word() { return GetParam().word; }
    static std::string all_function() { return word() + "_detect_for_all_link_device"; }
    static std::string one_function() { return word() + "_detect_for_specify_device"; }

    static std::vector<std::string> probed()
    {
        std::vector<std::string> ports;
        for (const t_sent_frame &frame : fake_wire.sent()) {
            EXPECT_EQ(frame.bytes.size(), GetParam().frame_size);
            ports.push_back(frame.port);
        }
        return ports;
    }

    // True when nobody holds the device lock.
    bool lock_is_free()
    {
        if (pthread_rwlock_trywrlock(&gate_.locks.device_lock) != 0)
            return false;
        pthread_rwlock_unlock(&gate_.locks.device_lock);
        return true;
    }
};

std::string name_of_probe(const testing::TestParamInfo<t_probe> &parameter)
{
    return parameter.param.word;
}

INSTANTIATE_TEST_SUITE_P(of, dispatch, testing::ValuesIn(PROBES), name_of_probe);

TEST_P(dispatch, all_linked_ports_are_probed_in_priority_order)
{
    add_port("eth3", 3);
    add_port("eth1", 1);
    add_port("eth2", 2);
    t_log_capture log;
    EXPECT_EQ(ask_all(), 0);
    EXPECT_EQ(probed(), (std::vector<std::string>{"eth1", "eth2", "eth3"}));
    EXPECT_TRUE(log.has("Debug", all_function(), "Overall 3 devices ready to run " + word() + " detect"));
    EXPECT_TRUE(log.has("Debug", all_function(), "Overall 3 devices Send " + word() + " discovery success!"));
}

// holds: nobody-linked
TEST_P(dispatch, without_a_linked_port_nothing_is_sent)
{
    add_port("eth1", 1)->link_active = 0;
    t_log_capture log;
    EXPECT_EQ(ask_all(), 0);
    EXPECT_TRUE(log.has("Debug", all_function(), "Overall 0 devices ready to run " + word() + " detect"));
    EXPECT_TRUE(log.has("Info", all_function(), "No actual device need detected, skip " + word() + " detect!"));
    EXPECT_TRUE(fake_wire.sent().empty());
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: nobody-linked
TEST_P(dispatch, without_any_port_nothing_is_sent)
{
    EXPECT_EQ(ask_all(), 0);
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: who-is-left-out
TEST_P(dispatch, ports_with_lan_hosts_and_reserved_ports_are_left_out)
{
    add_port("eth1", 1)->is_brlan_dev = 1;
    add_port("eth2", 2);
    add_port("eth3", 3);
    add_port("eth4", 4);
    add_port("eth5", 5);
    add_device(&model_.lan_agg[0], create_new_device("eth2"));
    add_device(&model_.lan_agg[1], create_new_device("eth3"));
    add_device(&model_.gaming, create_new_device("eth4"));
    EXPECT_EQ(ask_all(), 0);
    EXPECT_EQ(probed(), (std::vector<std::string>{"eth5"}));
}

// holds: who-is-left-out
TEST_P(dispatch, ports_with_lan_hosts_and_reserved_ports_are_probed_when_asked_for)
{
    t_device *eth1 = add_port("eth1", 1);
    eth1->is_brlan_dev = 1;
    add_device(&model_.gaming, create_new_device("eth1"));
    add_device(&model_.lan_agg[0], create_new_device("eth1"));
    t_log_capture log;
    EXPECT_EQ(ask_one(eth1), 0);
    EXPECT_EQ(probed(), (std::vector<std::string>{"eth1"}));
    EXPECT_TRUE(log.has("Debug", one_function(),
                        "dev:eth1 has a lan device, cotinue the detect as device has been specified!"));
    EXPECT_TRUE(log.has("Debug", one_function(), "device:eth1 ready to run " + word() + " detect"));
}

TEST_P(dispatch, success_on_one_port_is_told_by_pppoe_only)
{
    t_device *eth1 = add_port("eth1", 1);
    t_log_capture log;
    EXPECT_EQ(ask_one(eth1), 0);
    EXPECT_EQ(log.count("", one_function(), "device:eth1 Send " + word() + " discovery success!"),
              word() == "pppoe" ? 1 : 0);
    EXPECT_FALSE(log.has_body("dev:eth1 has a lan device, cotinue the detect as device has been specified!"));
}

// holds: one-port-without-link
TEST_P(dispatch, a_port_without_link_is_skipped_when_asked_for)
{
    t_device *eth1 = add_port("eth1", 1);
    eth1->link_active = 0;
    t_log_capture log;
    EXPECT_EQ(ask_one(eth1), 99);
    EXPECT_TRUE(log.has("Info", one_function(), "dev:eth1 has no link, skip the detect!"));
    EXPECT_TRUE(fake_wire.sockets().empty());
    EXPECT_TRUE(lock_is_free());
}

// holds: one-port-without-link
TEST_P(dispatch, a_null_port_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(ask_one(nullptr), -99);
    EXPECT_TRUE(log.has("Error", one_function(), "Null devive specified!"));
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: one-port-sending-fails
TEST_P(dispatch, a_batch_that_cannot_be_opened_still_yields_zero)
{
    t_device *eth1 = add_port("eth1", 1);
    t_log_capture log;
    for (bool all : {true, false}) {
        // The list's node is there, the batch's contexts are not.
        const t_memory_shortage shortage(1);
        EXPECT_EQ(all ? ask_all() : ask_one(eth1), 0);
    }
    EXPECT_TRUE(log.has("Error", all_function(), "Error sending " + word() + " discovery packet"));
    EXPECT_TRUE(log.has("Error", one_function(), "Error sending " + word() + " discovery packet in dev:eth1"));
    EXPECT_FALSE(log.has_body("device:eth1 Send " + word() + " discovery success!"));
}

TEST_P(dispatch, without_memory_for_the_list_nothing_is_sent)
{
    t_device *eth1 = add_port("eth1", 1);
    t_log_capture log;
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(ask_all(), 0);
        EXPECT_EQ(ask_one(eth1), 0);
    }
    EXPECT_TRUE(log.has("Info", all_function(), "No actual device need detected, skip " + word() + " detect!"));
    EXPECT_TRUE(log.has("Error", one_function(), "Error sending " + word() + " discovery packet in dev:eth1"));
    EXPECT_TRUE(fake_wire.sockets().empty());
}

// holds: one-port-sending-fails
TEST_P(dispatch, a_port_that_cannot_send_still_yields_zero)
{
    t_device *eth1 = add_port("eth1", 1);
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(ask_one(eth1), 0);
    EXPECT_TRUE(fake_wire.sent().empty());
}

TEST_P(dispatch, ports_whose_link_is_being_changed_are_waited_for)
{
    t_device *eth1 = add_port("eth1", 1);
    for (bool all : {true, false}) {
        std::atomic<bool> over = false;
        pthread_rwlock_wrlock(&gate_.locks.device_lock);
        std::thread detection([&] {
            all ? ask_all() : ask_one(eth1);
            over = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(over);
        eth1->link_active = 0;
        pthread_rwlock_unlock(&gate_.locks.device_lock);
        detection.join();
        EXPECT_TRUE(fake_wire.sent().empty());
        eth1->link_active = 1;
    }
}

TEST_P(dispatch, the_lock_is_free_while_frames_are_sent)
{
    t_device *eth1 = add_port("eth1", 1);
    int sends = 0;
    fake_wire.on_send = [&](const t_sent_frame &) {
        sends++;
        EXPECT_TRUE(lock_is_free());
    };
    ask_all();
    ask_one(eth1);
    EXPECT_EQ(sends, 2);
}

} // namespace
