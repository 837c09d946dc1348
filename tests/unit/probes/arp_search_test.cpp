// SPDX-License-Identifier: MIT
// The search for the ports behind which an address answers, on a wire of byte arrays.
#include <cerrno>
#include <net/ethernet.h>

#include "model/chronicle.h"
#include "model/fake_wan.h"
#include "probes/arp/arp_batch.h"
#include "probes/arp/arp_probe.h"
#include "probes/arp/arp_search.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/lan_scene.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

using t_names = std::vector<std::string>;
const char *const JOB = "check_ip_using_arp_blocked";
const char *const TARGET = "10.0.0.1";
const t_mac UPSTREAM = {{0xaa, 0xbb, 0xcc, 0, 0, 0xfe}};
const t_mac BRIDGE_MAC = {{2, 0, 0, 0, 0, 1}};

class arp_port_search : public testing::Test {
protected:
    t_device eth1 = make_port("eth1", 1), eth2 = make_port("eth2", 2), eth3 = make_port("eth3", 3);
    t_log_capture log;

    arp_port_search()
    {
        fake_wire.reset();
        fake_clock.reset();
        fake_wire.add_interface("br-lan", {.ifindex = 7,
                                           .mac = {{2, 0, 0, 0, 0, 1}},
                                           .address_be = ip("192.168.1.1"),
                                           .netmask_be = ip("255.255.255.0")});
        fake_wire.add_interface("eth1", {.ifindex = 11, .mac = {{2, 0, 0, 0, 0, 11}}});
        fake_wire.add_interface("eth2", {.ifindex = 12, .mac = {{2, 0, 0, 0, 0, 12}}});
        fake_wire.add_interface("eth3", {.ifindex = 13, .mac = {{2, 0, 0, 0, 0, 13}}});
    }
    ~arp_port_search() override
    {
        EXPECT_EQ(fake_wire.open_sockets(), 0);
        EXPECT_EQ(arp_detect_handle.contexts, nullptr);
    }

    int search(t_port_list &ports, const t_mac &target_mac = UNKNOWN_MAC)
    {
        return check_ip_using_arp_blocked(ip(TARGET), &target_mac, &ports.list, ip("192.168.1.1"), &BRIDGE_MAC);
    }

    // The peer behind `port` answers every request at once.
    static void answer_on(const t_names &ports, const t_arp_answer &answer = {UPSTREAM, ip(TARGET)})
    {
        fake_wire.on_send = [ports, answer](const t_sent_frame &sent) {
            for (const std::string &port : ports)
                if (sent.port == port)
                    fake_wire.arrive(sent.fd, answer.bytes());
        };
    }
};

// holds: port-search-codes
TEST_F(arp_port_search, only_the_answering_port_stays_and_learns_the_mac)
{
    t_port_list ports = {&eth1, &eth2};
    answer_on({"eth2"});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
    EXPECT_EQ(ports.list.count, 1);
    EXPECT_EQ(mac_at(eth2.result.server_mac), UPSTREAM);
    EXPECT_EQ(mac_at(eth1.result.server_mac), UNKNOWN_MAC);
    EXPECT_TRUE(log.has("Debug", JOB, "Entering function: check_ip_using_arp_blocked!"));
    EXPECT_TRUE(log.has("Debug", "init_arp_sockfd", "Bind Arp socket into dev:eth2, index:12"));
    EXPECT_TRUE(log.has("Debug", JOB, "Get device:eth2 , index=12, hw_addr=02-00-00-00-00-0c"));
    EXPECT_TRUE(
        log.has("Debug", JOB, "Arp packet sockfd init success in for: 10.0.0.1|00-00-00-00-00-00, bind to dev:eth2"));
    EXPECT_TRUE(log.has("Debug", JOB,
                        "Ready to send Arp packet for: 10.0.0.1|00-00-00-00-00-00 via dev:eth2, retry_times:1/2"));
    EXPECT_TRUE(log.has("Debug", JOB, "Send Arp packet success for: 10.0.0.1|00-00-00-00-00-00 via dev:eth2"));
    EXPECT_TRUE(log.has("Debug", JOB,
                        "Trying to recv Arp packet for: 10.0.0.1|00-00-00-00-00-00 via dev:eth2, retry_times:1/2"));
    EXPECT_TRUE(
        log.has("Debug", JOB, "arp reply success in 10.0.0.1|00-00-00-00-00-00 via dev:eth2, and mac is overwriten!!"));
    EXPECT_EQ(log.count("Debug", JOB, "arp reply success in dev:eth2"), 1);
    EXPECT_TRUE(log.has(
        "Info", JOB, "No arp reply from 10.0.0.1|00-00-00-00-00-00 via dev:eth1! Remove it from possible wan list!"));
}

// holds: arp-asks-from
TEST_F(arp_port_search, asks_in_the_ports_own_mac_and_the_bridges_address)
{
    t_port_list ports = {&eth1, &eth2};
    answer_on({"eth1"});
    search(ports);
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    t_arp_frame expected;
    const t_mac port_mac = {{2, 0, 0, 0, 0, 12}};
    build_arp_request(&expected, port_mac, ip("192.168.1.1"), UNKNOWN_MAC, ip(TARGET));
    const t_sent_frame &sent = fake_wire.sent()[1];
    EXPECT_EQ(sent.port, "eth2");
    ASSERT_EQ(sent.bytes.size(), sizeof expected);
    EXPECT_EQ(memcmp(sent.bytes.data(), &expected, sizeof expected), 0);
    EXPECT_EQ(sent.address.sll_protocol, 0);
    EXPECT_EQ(sent.address.sll_halen, 0);
}

TEST_F(arp_port_search, a_known_target_is_asked_by_unicast)
{
    t_port_list ports = {&eth1};
    search(ports, UPSTREAM);
    ASSERT_FALSE(fake_wire.sent().empty());
    const t_bytes &frame = fake_wire.sent()[0].bytes;
    EXPECT_EQ(mac_at(frame.data()), UPSTREAM);
}

TEST_F(arp_port_search, listens_to_all_frames_of_exactly_its_port)
{
    t_port_list ports = {&eth1};
    search(ports);
    ASSERT_EQ(fake_wire.sockets().size(), 1u);
    const t_fake_socket &socket = fake_wire.sockets().begin()->second;
    EXPECT_EQ(socket.ether_type, ETH_P_ALL);
    EXPECT_EQ(socket.device, "eth1");
    EXPECT_EQ(socket.address.sll_protocol, htons(ETH_P_ALL));
    EXPECT_EQ(socket.address.sll_ifindex, 11);
    EXPECT_TRUE(socket.nonblocking);
}

TEST_F(arp_port_search, filters_its_sockets_before_they_hear_and_without_a_filter_finds_the_port_as_well)
{
    t_port_list ports = {&eth1};
    answer_on({"eth1"});
    search(ports);
    EXPECT_GT(fake_wire.sockets().begin()->second.filter_length, 0u);
    EXPECT_TRUE(fake_wire.sockets().begin()->second.filtered_before_bound);
    fake_wire.fail(t_wire_call::FILTER, ENOMEM);
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
}

// holds: port-search-other-address
TEST_F(arp_port_search, an_answer_with_another_address_is_ignored_even_from_the_right_mac)
{
    t_port_list ports = {&eth1};
    answer_on({"eth1"}, {UPSTREAM, ip("10.0.0.2")});
    EXPECT_EQ(search(ports, UPSTREAM), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(mac_at(eth1.result.server_mac), UNKNOWN_MAC);
    EXPECT_EQ(log.count("Info", JOB, "arp reply receieve a different ip:10.0.0.2, Ignore!"), 2);
    EXPECT_EQ(log.count("Info", JOB, "arp reply receieve a different ip, orig:10.0.0.1, Ignore!"), 2);
}

TEST_F(arp_port_search, the_mac_comes_from_the_packet_whoever_sent_the_frame)
{
    t_port_list ports = {&eth1};
    answer_on({"eth1"},
              {.sender_mac = UPSTREAM, .sender_ip_be = ip(TARGET), .ethernet_source = mac("02:66:66:66:66:66")});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(mac_at(eth1.result.server_mac), UPSTREAM);
}

TEST_F(arp_port_search, a_request_from_the_target_is_no_answer)
{
    t_port_list ports = {&eth1};
    answer_on({"eth1"}, {.sender_mac = UPSTREAM, .sender_ip_be = ip(TARGET), .opcode = 1});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(log.count("Error", JOB, "Not a arp reply packet"), 2);
}

TEST_F(arp_port_search, an_answer_cut_short_is_no_answer)
{
    t_port_list ports = {&eth1};
    answer_on({"eth1"}, {.sender_mac = UPSTREAM, .sender_ip_be = ip(TARGET), .size = 41});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(log.count("Error", JOB, "Not a arp reply packet"), 2);
}

TEST_F(arp_port_search, what_the_port_itself_sent_and_what_came_elsewhere_is_passed_over_in_silence)
{
    t_port_list ports = {&eth1};
    const t_bytes answer = t_arp_answer{UPSTREAM, ip(TARGET)}.bytes();
    fake_wire.on_send = [&](const t_sent_frame &sent) {
        sockaddr_ll from = {};
        from.sll_family = AF_PACKET;
        from.sll_ifindex = 11;
        from.sll_pkttype = PACKET_OUTGOING; // an answer that the bridge passes on through this port
        fake_wire.arrive(sent.fd, answer, from);
        from.sll_pkttype = PACKET_HOST;
        from.sll_ifindex = 12; // heard before the socket was bound
        fake_wire.arrive(sent.fd, answer, from);
        t_bytes not_arp = answer;
        not_arp[13] = 0;
        fake_wire.arrive(sent.fd, not_arp);
        fake_wire.arrive(sent.fd, t_bytes(5, 0xff));
    };
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(mac_at(eth1.result.server_mac), UNKNOWN_MAC);
    EXPECT_FALSE(log.has_body("Not a arp reply packet"));
}

TEST_F(arp_port_search, foreign_frames_before_the_answer_do_no_harm)
{
    t_port_list ports = {&eth1};
    fake_wire.on_send = [](const t_sent_frame &sent) {
        for (int i = 0; i < 300; i++)
            fake_wire.arrive(sent.fd, t_bytes(60, static_cast<uint8_t>(i)));
        fake_wire.arrive(sent.fd, t_arp_answer{UPSTREAM, ip(TARGET)}.bytes());
    };
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
}

// holds: port-search-twice, arp-waits, chronicle-wire
TEST_F(arp_port_search, asks_a_second_time_when_nobody_answers)
{
    t_port_list ports = {&eth1, &eth2};
    std::vector<int> waits;
    fake_wire.on_wait = [&](int, int ms) { waits.push_back(ms); };
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(ports.list.head.next, nullptr);
    EXPECT_EQ(fake_wire.sent_on("eth1").size(), 2u);
    EXPECT_EQ(fake_wire.sent_on("eth2").size(), 2u);
    EXPECT_EQ(waits, std::vector<int>(4, 300));
    EXPECT_EQ(questions_last_hour(&eth2), 2u);
    EXPECT_EQ(eth2.notes.answer, nullptr);
    EXPECT_EQ(fake_clock.sleeps, (std::vector<uint32_t>{310, 310}));
    EXPECT_TRUE(log.has("Debug", JOB,
                        "Ready to send Arp packet for: 10.0.0.1|00-00-00-00-00-00 via dev:eth2, retry_times:2/2"));
    EXPECT_FALSE(log.has_body("arp reply success in dev:eth1"));
}

// holds: port-search-twice
TEST_F(arp_port_search, does_not_ask_again_when_one_port_answered)
{
    t_port_list ports = {&eth1, &eth2};
    answer_on({"eth1"});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(fake_wire.sent().size(), 2u);
    EXPECT_EQ(fake_clock.sleeps, std::vector<uint32_t>{310});
}

TEST_F(arp_port_search, a_late_answer_to_the_first_request_counts_in_the_second_attempt)
{
    t_port_list ports = {&eth1};
    fake_wire.on_wait = [](int fd, int) {
        if (fake_wire.sent().size() == 1)
            fake_wire.arrive(fd, t_arp_answer{UPSTREAM, ip(TARGET)}.bytes());
    };
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
}

TEST_F(arp_port_search, an_answer_after_the_second_attempt_is_too_late)
{
    t_port_list ports = {&eth1};
    EXPECT_EQ(search(ports), 0);
    fake_wire.arrive("eth1", t_arp_answer{UPSTREAM, ip(TARGET)}.bytes());
    EXPECT_EQ(ports.list.count, 0);
    t_port_list next = {&eth1};
    EXPECT_EQ(search(next), 0);
    EXPECT_EQ(next.list.count, 0);
}

TEST_F(arp_port_search, a_port_that_cannot_be_bound_leaves_the_list_and_the_others_go_on)
{
    struct {
        t_wire_call call;
        const char *port;
    } const failures[] = {
        {t_wire_call::BIND_TO_DEVICE, "eth1"}, {t_wire_call::BIND, "eth1"}, {t_wire_call::QUERY_PORT, "eth1"}};
    for (const auto &failure : failures) {
        t_port_list ports = {&eth1, &eth2};
        fake_wire.fail(failure.call, ENODEV, 0, 1, failure.port);
        answer_on({"eth1", "eth2"});
        EXPECT_EQ(search(ports), 0);
        EXPECT_EQ(ports.names(), t_names{"eth2"});
        EXPECT_EQ(ports.list.count, 1);
    }
    EXPECT_EQ(log.count("Error", "init_arp_sockfd", "init_arp_sockfd bind to dev:eth1 fail!"), 3);
    EXPECT_EQ(log.count("Error", JOB, "Failed to init ARP socket for: 10.0.0.1|00-00-00-00-00-00, bind to dev:eth1"),
              3);
    EXPECT_EQ(log.count("Error", JOB, "Failed to send ARP socket for: 0.0.0.0|00-00-00-00-00-00 via dev:eth1"), 3);
}

TEST_F(arp_port_search, a_port_without_a_socket_leaves_the_list)
{
    t_port_list ports = {&eth1};
    fake_wire.fail(t_wire_call::OPEN, EMFILE);
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_TRUE(log.has("Error", "init_arp_sockfd", "Create ARP socket for 10.0.0.1|00-00-00-00-00-00 failed!"));
}

TEST_F(arp_port_search, an_interface_that_does_not_exist_leaves_the_list)
{
    t_device ghost = make_port("eth9");
    t_port_list ports = {&ghost};
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_TRUE(log.has("Debug", "init_arp_sockfd", "Bind Arp socket into dev:eth9, index:0"));
    EXPECT_TRUE(log.has("Error", "init_arp_sockfd", "init_arp_sockfd bind to dev:eth9 fail!"));
}

TEST_F(arp_port_search, a_failed_sending_silences_that_port_only)
{
    t_port_list ports = {&eth1, &eth2};
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 2, "eth1");
    answer_on({"eth1", "eth2"});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
    EXPECT_TRUE(log.has("Error", "send_arp_unicast_packet_blocked",
                        "Error while sending arp socket to 10.0.0.1|00-00-00-00-00-00"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to send ARP socket for: 10.0.0.1|00-00-00-00-00-00 via dev:eth1"));
}

TEST_F(arp_port_search, a_failed_sending_makes_the_target_mac_unknown)
{
    t_port_list ports = {&eth1};
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(search(ports, UPSTREAM), 0);
    EXPECT_TRUE(log.has("Error", JOB, "Failed to send ARP socket for: 10.0.0.1|AA-BB-CC-00-00-FE via dev:eth1"));
    EXPECT_TRUE(log.has("Debug", JOB,
                        "Ready to send Arp packet for: 10.0.0.1|00-00-00-00-00-00 via dev:eth1, retry_times:2/2"));
}

TEST_F(arp_port_search, a_list_longer_than_its_count_is_searched_as_far_as_the_count_says)
{
    t_port_list ports = {&eth1, &eth2, &eth3};
    ports.list.count = 2;
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(ports.names(), t_names{"eth3"});
    EXPECT_TRUE(fake_wire.sent_on("eth3").empty());
    EXPECT_TRUE(log.has("Error", JOB, "Impssible, will access out of bound! Check count of possible_dev_list!"));
}

TEST_F(arp_port_search, a_list_shorter_than_its_count_and_a_node_without_a_port_are_survived)
{
    t_port_list ports = {&eth1};
    ports.list.count = 3;
    answer_on({"eth1"});
    EXPECT_EQ(search(ports), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
    EXPECT_EQ(ports.list.count, 3);

    ports.list.count = 1;
    ports.list.head.next->dev = nullptr;
    EXPECT_EQ(search(ports), 0);
    EXPECT_TRUE(log.has("Error", JOB, "Failed to init ARP socket for: 10.0.0.1|00-00-00-00-00-00, bind to dev:null"));
}

// holds: port-search-codes
TEST_F(arp_port_search, without_its_parameters_nothing_is_sent)
{
    t_port_list ports = {&eth1};
    t_device_list_head empty = {};
    const uint32_t target = ip(TARGET), sender = ip("192.168.1.1");
    EXPECT_EQ(check_ip_using_arp_blocked(target, &UNKNOWN_MAC, nullptr, sender, &BRIDGE_MAC), -99);
    EXPECT_EQ(check_ip_using_arp_blocked(target, &UNKNOWN_MAC, &empty, sender, &BRIDGE_MAC), -99);
    EXPECT_EQ(check_ip_using_arp_blocked(target, nullptr, &ports.list, sender, &BRIDGE_MAC), -99);
    EXPECT_EQ(check_ip_using_arp_blocked(target, &UNKNOWN_MAC, &ports.list, sender, nullptr), -99);
    EXPECT_EQ(check_ip_using_arp_blocked(target, &UNKNOWN_MAC, &ports.list, 0, &BRIDGE_MAC), -99);
    EXPECT_EQ(check_ip_using_arp_blocked(0, &UNKNOWN_MAC, &ports.list, sender, &BRIDGE_MAC), -99);
    EXPECT_EQ(log.count("Error", JOB, "invalid parameters! Send failed!"), 6);
    EXPECT_TRUE(fake_wire.sent().empty());
    EXPECT_EQ(ports.list.count, 1);
}

// holds: port-search-codes
TEST_F(arp_port_search, without_memory_the_list_stays_as_it_is)
{
    t_port_list ports = {&eth1, &eth2};
    {
        const t_memory_shortage shortage;
        EXPECT_EQ(search(ports), -98);
    }
    EXPECT_EQ(ports.list.count, 2);
    EXPECT_TRUE(log.has("Error", JOB, "Failed to malloc 2 t_arp_detect struct"));
}

TEST_F(arp_port_search, a_batch_left_over_is_released_first)
{
    ASSERT_TRUE(open_arp_batch(1));
    ASSERT_EQ(init_arp_sockfd(&arp_detect_handle.contexts[0], &eth1, UPSTREAM, ip(TARGET)), 0);
    t_port_list ports = {&eth1};
    EXPECT_EQ(search(ports), 0);
    EXPECT_TRUE(log.has("Notice", JOB, "Last time handle not release, release it before resend!"));
}

TEST_F(arp_port_search, each_silent_port_is_given_up_as_fake_wan_port_with_or_without_link)
{
    static std::vector<std::string> asked;
    asked.clear();
    const auto unbound = remove_fake_wan_if_match;
    remove_fake_wan_if_match = [](const t_device *dev, bool need_link) {
        asked.push_back(std::string(dev->name) + (need_link ? " with link" : ""));
        return true;
    };
    t_port_list ports = {&eth1, &eth2, &eth3};
    answer_on({"eth2"});
    EXPECT_EQ(search(ports), 0);
    remove_fake_wan_if_match = unbound;
    EXPECT_EQ(asked, (std::vector<std::string>{"eth1", "eth3"}));
}

// The two questions of the engine.

// holds: finding-codes, chronicle-wire
TEST_F(arp_port_search, finding_leaves_the_one_owner_of_an_address)
{
    t_port_list ports = {&eth1, &eth2};
    answer_on({"eth2"});
    eth2.link_active = 1;
    eth2.result.address.ipv4_be = ip("10.9.9.9"); // of an offer
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
    EXPECT_EQ(ports.list.count, 1);
    EXPECT_STREQ(eth2.notes.answer, "arp");
    EXPECT_EQ(mac_at(eth2.notes.learned.server_mac), UPSTREAM);
    EXPECT_EQ(eth2.notes.learned.address.ipv4_be, 0u);
    EXPECT_EQ(eth1.notes.answer, nullptr);
    const t_bytes frame = fake_wire.sent()[0].bytes;
    EXPECT_EQ(mac_at(frame.data()), BROADCAST_MAC);
    EXPECT_EQ(t_bytes(frame.begin() + 28, frame.begin() + 32), (t_bytes{192, 168, 1, 1}));
    const char *const find = "find_target_ip_and_device_with_arp";
    EXPECT_TRUE(log.has("Debug", find, "Entering function: find_target_ip_and_device_with_arp, target_ip=10.0.0.1!"));
    EXPECT_TRUE(log.has("Debug", find, "Success get br-lan ip:192.168.1.1, mac:02-00-00-00-00-01"));
}

// holds: gateway-ignores-strangers, arp-asks-from
TEST_F(arp_port_search, finding_may_ask_in_another_address_than_the_bridges)
{
    t_port_list ports = {&eth1, &eth2};
    answer_on({"eth2"});
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET), ip("10.0.0.7")), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    t_arp_frame expected;
    const t_mac port_mac = {{2, 0, 0, 0, 0, 12}};
    build_arp_request(&expected, port_mac, ip("10.0.0.7"), UNKNOWN_MAC, ip(TARGET));
    EXPECT_EQ(memcmp(fake_wire.sent()[1].bytes.data(), &expected, sizeof expected), 0);
    EXPECT_TRUE(log.has("Debug", "find_target_ip_and_device_with_arp",
                        "Success get br-lan ip:192.168.1.1, mac:02-00-00-00-00-01"));
}

// holds: arp-asks-from
TEST_F(arp_port_search, finding_in_another_address_needs_the_bridge_as_well)
{
    t_port_list ports = {&eth1};
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV, 0, 1, "br-lan");
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET), ip("10.0.0.7")), -87);
    EXPECT_EQ(ports.list.count, 0);
}

// holds: two-ports-answer
TEST_F(arp_port_search, two_ports_that_both_answer_stay_and_are_warned_of)
{
    t_port_list ports = {&eth1, &eth2, &eth3};
    answer_on({"eth1", "eth3"});
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET)), 0);
    EXPECT_EQ(ports.names(), (t_names{"eth1", "eth3"}));
    EXPECT_EQ(ports.list.count, 2);
    EXPECT_TRUE(log.has("Warning", "find_target_ip_and_device_with_arp", "Detect 2 device own same ip:10.0.0.1!"));
    EXPECT_EQ(log.count("Debug", JOB, "arp reply success in dev:eth1"), 1);
    EXPECT_EQ(log.count("Debug", JOB, "arp reply success in dev:eth3"), 0);
}

// holds: finding-codes
TEST_F(arp_port_search, finding_nobody_is_no_failure)
{
    t_port_list ports = {&eth1, &eth2};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET)), 0);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_TRUE(log.has("Debug", "find_target_ip_and_device_with_arp",
                        "Target ip:10.0.0.1 not found with arp in each device!"));
}

// holds: finding-codes
TEST_F(arp_port_search, finding_without_a_bridge_empties_the_list)
{
    t_port_list ports = {&eth1, &eth2};
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV, 0, 1, "br-lan");
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(TARGET)), -87);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(ports.list.head.next, nullptr);
    EXPECT_TRUE(log.has("Error", "find_target_ip_and_device_with_arp", "Couldn't get br-lan ip, netmask, mac!"));
}

// holds: finding-codes
TEST_F(arp_port_search, finding_no_address_at_all_empties_the_list)
{
    t_port_list ports = {&eth1, &eth2};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, 0), -91);
    EXPECT_EQ(ports.list.count, 0);
    EXPECT_EQ(ports.list.head.next, nullptr);
    EXPECT_TRUE(log.has("Error", "find_target_ip_and_device_with_arp", "Failed to send arp request for each device!"));
    EXPECT_EQ(find_target_ip_and_device_with_arp(nullptr, ip(TARGET)), -91);
}

// holds: one-port-codes
TEST_F(arp_port_search, asking_one_port_stores_the_mac_of_the_answer)
{
    answer_on({"eth2"});
    EXPECT_EQ(send_special_arp(&eth2, ip(TARGET)), 1);
    EXPECT_EQ(mac_at(eth2.result.server_mac), UPSTREAM);
    EXPECT_TRUE(log.has("Debug", "send_special_arp", "Entering function: send_special_arp, target_ip=10.0.0.1!"));
    EXPECT_TRUE(log.has("Debug", "send_special_arp", "Success get br-lan mac:02-00-00-00-00-01"));
    EXPECT_TRUE(
        log.has("Debug", "send_special_arp", "Send a arp packet to ip:10.0.0.1 via eth2 and success get response!!"));
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

// holds: one-port-codes
TEST_F(arp_port_search, asking_one_silent_port_keeps_the_mac_it_had)
{
    memcpy(eth2.result.server_mac, BRIDGE_MAC.bytes, MAC_SIZE);
    EXPECT_EQ(send_special_arp(&eth2, ip(TARGET)), 1);
    EXPECT_EQ(mac_at(eth2.result.server_mac), BRIDGE_MAC);
    EXPECT_TRUE(
        log.has("Debug", "send_special_arp", "Send a arp packet to ip:10.0.0.1 via eth2, however no response!!"));
}

// holds: one-port-codes
TEST_F(arp_port_search, asking_one_port_tells_when_it_could_not_run)
{
    EXPECT_EQ(send_special_arp(nullptr, ip(TARGET)), 0);
    EXPECT_TRUE(log.has("Error", "send_special_arp", "That's impossible, as dev_list is empty!"));
    EXPECT_EQ(send_special_arp(&eth1, 0), 0);
    EXPECT_TRUE(log.has("Error", "send_special_arp", "Failed to send arp request for dev:eth1!"));
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV, 0, 1, "br-lan");
    EXPECT_EQ(send_special_arp(&eth1, ip(TARGET)), 0);
    EXPECT_TRUE(log.has("Error", "send_special_arp", "Couldn't get br-lan ip, netmask, mac!"));
    EXPECT_TRUE(fake_wire.sent().empty());
}

} // namespace
