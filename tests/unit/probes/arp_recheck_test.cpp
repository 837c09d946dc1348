// SPDX-License-Identifier: MIT
// The re-check of the LAN ARP table, on a wire of byte arrays.
#include <cerrno>

#include "platform/log.h"
#include "probes/arp/arp_batch.h"
#include "probes/arp/arp_probe.h"
#include "probes/lan/arp_table.h"
#include "probes/lan/lan_hosts.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/lan_scene.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr unsigned int BRIDGE_INDEX = 7;
const char *const JOB = "double_check_arp_packet_all_blocked";
const t_mac BRIDGE_MAC = {{2, 0, 0, 0, 0, 1}};

class arp_host_check : public testing::Test {
protected:
    t_arp_entry *table = nullptr;
    t_log_capture log;

    arp_host_check()
    {
        fake_wire.reset();
        fake_clock.reset();
        fake_wire.add_interface("br-lan", {.ifindex = static_cast<int>(BRIDGE_INDEX)});
    }
    ~arp_host_check() override
    {
        if (table)
            release_arp_table(&table);
        if (arp_detect_handle.contexts)
            release_arp_detect_handle();
        EXPECT_EQ(fake_wire.open_sockets(), 0);
    }

    void add_host(const char *address, const t_mac &hardware)
    {
        ASSERT_TRUE(add_arp_entry(&table, create_new_arp_entry(hardware, 1, ip(address))));
    }
    void add_host(const char *address, const char *hardware) { add_host(address, mac(hardware)); }

    int check()
    {
        return double_check_arp_packet_all_blocked(&table, ip("192.168.1.1"), ip("255.255.255.0"), &BRIDGE_MAC,
                                                   BRIDGE_INDEX);
    }

    bool listed(const char *hardware) { return table && find_arp_entry(table, at(mac(hardware))); }

    // Every listener for ARP hears what reaches the bridge.
    static void everybody_hears(const t_bytes &frame)
    {
        for (const auto &[fd, socket] : fake_wire.sockets())
            if (socket.open)
                fake_wire.arrive(fd, frame);
    }
    static void answer_after_sending(const t_arp_answer &answer)
    {
        fake_clock.during_sleep = [answer](uint32_t) { everybody_hears(answer.bytes()); };
    }
};

// holds: host-check-codes
TEST_F(arp_host_check, a_host_that_answers_stays_and_a_silent_one_is_removed)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    answer_after_sending({mac("aa:bb:cc:00:00:33"), ip("192.168.1.51")});
    EXPECT_EQ(check(), 0);
    EXPECT_FALSE(listed("aa:bb:cc:00:00:32"));
    EXPECT_TRUE(listed("aa:bb:cc:00:00:33"));
    EXPECT_TRUE(log.has("Debug", JOB, "Entering function: double_check_arp_packet_all_blocked!"));
    EXPECT_TRUE(log.has("Debug", JOB, "Arp packet sockfd init success in for: 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Debug", JOB, "Ready to send Arp packet for: 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Debug", JOB, "Send Arp packet success for: 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Debug", JOB, "Trying to recv Arp packet for: 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Debug", JOB, "arp reply success in 192.168.1.51|AA-BB-CC-00-00-33"));
    EXPECT_TRUE(
        log.has("Info", JOB, "No arp reply from 192.168.1.50|AA-BB-CC-00-00-32! Remove it from arp hash table!"));
    EXPECT_TRUE(log.has("Info", JOB, "Not match eth header:AA-BB-CC-00-00-33|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Debug", "release_arp_detect_handle", "release arp_detect_handle success!"));
}

TEST_F(arp_host_check, asks_every_host_once_by_unicast_in_the_bridges_name)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    check();
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    for (const t_sent_frame &sent : fake_wire.sent()) {
        EXPECT_EQ(sent.bytes.size(), 60u);
        EXPECT_EQ(sent.port, "br-lan");
        EXPECT_EQ(sent.address.sll_family, AF_PACKET);
        EXPECT_EQ(sent.address.sll_protocol, 0);
        EXPECT_EQ(sent.address.sll_halen, 0);
    }
    t_arp_frame expected;
    build_arp_request(&expected, BRIDGE_MAC, ip("192.168.1.1"), mac("aa:bb:cc:00:00:33"), ip("192.168.1.51"));
    EXPECT_EQ(memcmp(fake_wire.sent()[1].bytes.data(), &expected, sizeof expected), 0);
    for (const auto &[fd, socket] : fake_wire.sockets()) {
        EXPECT_EQ(socket.ether_type, 0x0806);
        EXPECT_FALSE(socket.bound);
        EXPECT_EQ(socket.device, "");
        EXPECT_TRUE(socket.nonblocking);
    }
}

// holds: arp-waits
TEST_F(arp_host_check, waits_300_ms_before_each_sending_and_310_ms_for_the_answers)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    std::vector<std::pair<int, size_t>> waits; // time limit, frames sent before
    fake_wire.on_wait = [&](int, int ms) { waits.emplace_back(ms, fake_wire.sent().size()); };
    check();
    EXPECT_EQ(waits, (std::vector<std::pair<int, size_t>>{{300, 0}, {300, 1}}));
    EXPECT_EQ(fake_clock.sleeps, std::vector<uint32_t>{310});
}

TEST_F(arp_host_check, many_silent_hosts_keep_the_loop_waiting_three_seconds_at_most)
{
    for (int i = 0; i < 250; i++)
        add_host(("192.168.1." + std::to_string(i + 2)).c_str(), t_mac{{0xaa, 0, 0, 0, 0, static_cast<uint8_t>(i)}});
    std::vector<int> waits;
    fake_wire.on_wait = [&](int, int ms) {
        waits.push_back(ms);
        fake_clock.advance_ms(ms);
    };
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(fake_wire.sent().size(), 250u);
    ASSERT_EQ(waits.size(), 250u);
    EXPECT_EQ(std::vector<int>(waits.begin(), waits.begin() + 10), std::vector<int>(10, 300));
    EXPECT_EQ(std::vector<int>(waits.begin() + 10, waits.end()), std::vector<int>(240, 0));
}

// At the level as shipped the hosts' sockets hear their own host only.
class quiet_arp_host_check : public arp_host_check {
protected:
    quiet_arp_host_check()
    {
        log_set_level(LOG_LEVEL_Critical);
        add_host("192.168.1.50", "aa:bb:cc:00:00:32");
        add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    }
    static int filtered_sockets()
    {
        int count = 0;
        for (const auto &[fd, socket] : fake_wire.sockets())
            count += socket.filter_length > 0;
        return count;
    }
};

TEST_F(quiet_arp_host_check, whoever_answers_first_ends_the_waits_of_all)
{
    std::vector<int> heard_on;
    fake_wire.on_wait = [&](int fd, int) { heard_on.push_back(fd); };
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(fake_wire.sockets().size(), 3u);
    EXPECT_EQ(filtered_sockets(), 2);
    ASSERT_EQ(heard_on.size(), 2u);
    EXPECT_EQ(heard_on[0], heard_on[1]);
    EXPECT_EQ(fake_wire.socket(heard_on[0]).filter_length, 0u);
}

TEST_F(quiet_arp_host_check, without_a_socket_for_all_each_waits_on_its_own)
{
    std::vector<int> heard_on;
    fake_wire.on_wait = [&](int fd, int) { heard_on.push_back(fd); };
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    answer_after_sending({mac("aa:bb:cc:00:00:33"), ip("192.168.1.51")});
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(listed("aa:bb:cc:00:00:33"));
    ASSERT_EQ(heard_on.size(), 2u);
    EXPECT_NE(heard_on[0], heard_on[1]);
}

TEST_F(arp_host_check, is_not_filtered_while_every_packet_is_told_of)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    check();
    ASSERT_EQ(fake_wire.sockets().size(), 1u);
    EXPECT_EQ(fake_wire.sockets().begin()->second.filter_length, 0u);
}

// holds: host-moves
TEST_F(arp_host_check, a_new_address_inside_the_subnet_keeps_the_host_and_its_stored_address)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    answer_after_sending({mac("aa:bb:cc:00:00:32"), ip("192.168.1.77")});
    EXPECT_EQ(check(), 0);
    ASSERT_TRUE(listed("aa:bb:cc:00:00:32"));
    EXPECT_EQ(table->address_be, ip("192.168.1.50"));
    EXPECT_TRUE(log.has("Info", JOB, "arp reply receieve a different ip:192.168.1.77"));
    EXPECT_TRUE(log.has("Info", JOB, "arp reply receieve a different ip, orig:192.168.1.50"));
    EXPECT_TRUE(log.has("Debug", JOB, "arp reply new ip still remains same subnet with br-lan!"));
}

// holds: host-moves
TEST_F(arp_host_check, a_new_address_outside_the_subnet_removes_the_host)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    answer_after_sending({mac("aa:bb:cc:00:00:32"), ip("192.168.2.50")});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_TRUE(log.has("Info", JOB, "arp reply new is not same subnet with br-lan! remove it from arp hash table!"));
    EXPECT_FALSE(log.has_body("No arp reply from 192.168.1.50|AA-BB-CC-00-00-32! Remove it from arp hash table!"));
}

TEST_F(arp_host_check, the_first_answer_of_a_host_decides)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    fake_clock.during_sleep = [](uint32_t) {
        everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes());
        everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("10.0.0.1")}.bytes());
    };
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(listed("aa:bb:cc:00:00:32"));
}

TEST_F(arp_host_check, a_forged_answer_whose_two_senders_differ_does_not_count)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    answer_after_sending({.sender_mac = mac("02:66:66:66:66:66"),
                          .sender_ip_be = ip("192.168.1.50"),
                          .ethernet_source = mac("aa:bb:cc:00:00:32")});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_TRUE(log.has("Error", JOB, "Not match arp packet mac:02-66-66-66-66-66|AA-BB-CC-00-00-32"));
}

TEST_F(arp_host_check, a_request_of_the_host_is_no_answer)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    answer_after_sending({.sender_mac = mac("aa:bb:cc:00:00:32"), .sender_ip_be = ip("192.168.1.50"), .opcode = 1});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(log.count("Error", JOB, "Not a arp reply packet"), 1);
}

TEST_F(arp_host_check, an_answer_cut_short_is_no_answer)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    answer_after_sending({.sender_mac = mac("aa:bb:cc:00:00:32"), .sender_ip_be = ip("192.168.1.50"), .size = 31});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(log.count("Error", JOB, "Not a arp reply packet"), 1);
}

TEST_F(arp_host_check, what_is_not_arp_is_passed_over_in_silence)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    fake_clock.during_sleep = [](uint32_t) {
        t_bytes frame = t_arp_answer{mac("02:66:66:66:66:66"), ip("192.168.1.50")}.bytes();
        frame[13] = 0xdd;
        everybody_hears(frame);
        everybody_hears(t_bytes(3, 0xff));
        everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes());
    };
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(listed("aa:bb:cc:00:00:32"));
    EXPECT_FALSE(log.has_body("Not a arp reply packet"));
    EXPECT_FALSE(log.has_body("Not match eth header:02-66-66-66-66-66|AA-BB-CC-00-00-32"));
}

TEST_F(arp_host_check, an_answer_that_is_too_late_does_not_count)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:33"), ip("192.168.1.51")}.bytes()); // nobody listens
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
}

TEST_F(arp_host_check, an_endless_flood_ends_as_no_answer)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    const t_bytes foreign = t_arp_answer{mac("02:66:66:66:66:66"), ip("192.168.1.9"), 1}.bytes();
    fake_clock.during_sleep = [&](uint32_t) {
        for (int i = 0; i < ARP_FRAMES_PER_READ; i++)
            everybody_hears(foreign);
        everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes());
    };
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(fake_wire.received, ARP_FRAMES_PER_READ);
}

// holds: host-check-codes
TEST_F(arp_host_check, without_its_parameters_nothing_is_sent)
{
    const uint32_t lan = ip("192.168.1.1"), netmask = ip("255.255.255.0");
    EXPECT_EQ(double_check_arp_packet_all_blocked(nullptr, lan, netmask, &BRIDGE_MAC, BRIDGE_INDEX), -99);
    EXPECT_EQ(double_check_arp_packet_all_blocked(&table, lan, netmask, &BRIDGE_MAC, BRIDGE_INDEX), -99);
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(double_check_arp_packet_all_blocked(&table, lan, netmask, nullptr, BRIDGE_INDEX), -99);
    EXPECT_EQ(double_check_arp_packet_all_blocked(&table, lan, 0, &BRIDGE_MAC, BRIDGE_INDEX), -99);
    EXPECT_EQ(double_check_arp_packet_all_blocked(&table, 0, netmask, &BRIDGE_MAC, BRIDGE_INDEX), -99);
    EXPECT_EQ(log.count("Error", JOB, "invalid parameters! Send failed!"), 5);
    EXPECT_TRUE(fake_wire.sent().empty());
    EXPECT_TRUE(listed("aa:bb:cc:00:00:32"));
}

// holds: arp-256-hosts
TEST_F(arp_host_check, a_table_of_256_hosts_counts_as_empty)
{
    for (int i = 0; i < 256; i++)
        add_host("192.168.1.50", t_mac{{2, 1, 0, 0, 0, static_cast<uint8_t>(i)}});
    EXPECT_EQ(check(), -99);
    EXPECT_EQ(log.count("Error", JOB, "No arp entry in arp_table_hashmap_head!"), 1);
    EXPECT_TRUE(fake_wire.sent().empty());
    EXPECT_EQ(arp_table_count(table), 256u);
}

// holds: arp-256-hosts
TEST_F(arp_host_check, a_table_of_257_hosts_has_its_first_one_checked)
{
    for (int i = 0; i < 257; i++)
        add_host("192.168.1.50", t_mac{{2, 1, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(arp_table_count(table), 256u);
    EXPECT_FALSE(listed("02:01:00:00:00:00"));
}

// holds: arp-256-hosts
TEST_F(arp_host_check, a_full_batch_of_255_hosts_is_checked)
{
    for (int i = 0; i < 255; i++)
        add_host("192.168.1.50", t_mac{{2, 1, 0, 0, 0, static_cast<uint8_t>(i)}});
    answer_after_sending({mac("02:01:00:00:00:fe"), ip("192.168.1.50")});
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(fake_wire.sent().size(), 255u);
    EXPECT_EQ(arp_table_count(table), 1u);
    EXPECT_TRUE(listed("02:01:00:00:00:fe"));
}

TEST_F(arp_host_check, a_host_whose_socket_cannot_be_made_stays_unchecked_and_the_others_go_on)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    answer_after_sending({mac("aa:bb:cc:00:00:33"), ip("192.168.1.51")});
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(listed("aa:bb:cc:00:00:32"));
    EXPECT_TRUE(listed("aa:bb:cc:00:00:33"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_TRUE(log.has("Error", "init_arp_sockfd", "Create ARP socket for 192.168.1.50|AA-BB-CC-00-00-32 failed!"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to init ARP socket for: 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Error", "send_arp_unicast_packet_blocked", "Skip sending arp packet due to socket error!"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to send ARP socket for: 0.0.0.0|00-00-00-00-00-00"));
    EXPECT_TRUE(log.has("Error", "remove_arp_entry", "Arp entry:00-00-00-00-00-00 doesn't existed!"));
}

TEST_F(arp_host_check, a_failed_sending_closes_that_socket_only)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    int open_while_waiting = 0;
    fake_clock.during_sleep = [&](uint32_t) {
        open_while_waiting = fake_wire.open_sockets();
        everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:33"), ip("192.168.1.51")}.bytes());
    };
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(open_while_waiting, 1);
    EXPECT_TRUE(listed("aa:bb:cc:00:00:33"));
    EXPECT_TRUE(log.has("Error", "send_arp_unicast_packet_blocked",
                        "Error while sending arp socket to 192.168.1.50|AA-BB-CC-00-00-32"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to send ARP socket for: 192.168.1.50|AA-BB-CC-00-00-32"));
}

TEST_F(arp_host_check, a_failed_wait_sends_nothing)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    fake_wire.fail(t_wire_call::WAIT, EBADF);
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(fake_wire.sent().empty());
    EXPECT_TRUE(log.has("Error", "setTimeOut", "select error!"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to send ARP socket for: 192.168.1.50|AA-BB-CC-00-00-32"));
}

// holds: host-check-codes
TEST_F(arp_host_check, without_memory_the_table_stays_as_it_is)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(check(), -98);
    }
    EXPECT_TRUE(listed("aa:bb:cc:00:00:32"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to malloc 1 t_arp_detect struct"));
    EXPECT_EQ(arp_detect_handle.contexts, nullptr);
}

TEST_F(arp_host_check, a_batch_left_over_is_released_first)
{
    ASSERT_TRUE(open_arp_batch(1));
    ASSERT_EQ(init_arp_sockfd(&arp_detect_handle.contexts[0], nullptr, mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")),
              0);
    add_host("192.168.1.51", "aa:bb:cc:00:00:33");
    EXPECT_EQ(check(), 0);
    EXPECT_TRUE(log.has("Notice", JOB, "Last time handle not release, release it before resend!"));
    EXPECT_EQ(fake_wire.open_sockets(), 0);
}

TEST_F(arp_host_check, a_context_is_closed_by_its_first_reply_and_no_sooner)
{
    ASSERT_TRUE(open_arp_batch(1));
    t_arp_detect *ctx = &arp_detect_handle.contexts[0];
    ASSERT_EQ(init_arp_sockfd(ctx, nullptr, mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")), 0);
    const auto judge = [](t_arp_detect *, const t_arp_packet &packet) {
        return packet.sender_ip_be == ip("192.168.1.50");
    };
    everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.9")}.bytes());
    read_arp_replies(ctx, judge);
    EXPECT_EQ(ctx->replied, 0);
    EXPECT_EQ(fake_wire.open_sockets(), 1);
    everybody_hears(t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes());
    read_arp_replies(ctx, judge);
    EXPECT_EQ(ctx->replied, 1);
    EXPECT_EQ(ctx->socket.watcher.fd, -1);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
}

TEST_F(arp_host_check, releasing_no_batch_or_an_uncounted_one_is_said)
{
    release_arp_detect_handle();
    EXPECT_TRUE(log.has("Debug", "release_arp_detect_handle", "Entering function: release_arp_detect_handle!"));
    EXPECT_TRUE(log.has("Info", "release_arp_detect_handle", "Release null arp_detect_handle fail!"));
    ASSERT_TRUE(open_arp_batch(2));
    arp_detect_handle.arp_num = 0;
    release_arp_detect_handle();
    EXPECT_TRUE(log.has("Error", "release_arp_detect_handle",
                        "arp_detect_handle not null but arp_num=0, may cause unclosed socket fd "));
    EXPECT_TRUE(log.has("Debug", "release_arp_detect_handle", "release arp_detect_handle success!"));
    EXPECT_EQ(arp_detect_handle.contexts, nullptr);
}

TEST_F(arp_host_check, the_handle_is_zero_when_the_job_is_done)
{
    add_host("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(arp_detect_handle.contexts, nullptr);
    EXPECT_EQ(arp_detect_handle.arp_table_hashmap_head, nullptr);
    EXPECT_EQ(arp_detect_handle.arp_num, 0);
    EXPECT_EQ(arp_detect_handle.ifindex, 0u);
    EXPECT_EQ(arp_detect_handle.sender_ip_be, 0u);
    EXPECT_EQ(arp_detect_handle.netmask_be, 0u);
    EXPECT_EQ(arp_detect_handle.sender_mac, t_mac());
    EXPECT_EQ(arp_detect_handle.wait_left_ms, 0);
    EXPECT_FALSE(arp_detect_handle.ear.is_open());
    EXPECT_EQ(arp_detect_handle.lines.probe, nullptr);
}

} // namespace
