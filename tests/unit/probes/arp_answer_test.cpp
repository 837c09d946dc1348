// SPDX-License-Identifier: MIT
// Who is told where the address of a probe is, on a wire of byte arrays.
#include "probes/arp/arp_answer.h"

#include <cerrno>
#include <net/ethernet.h>

#include "platform/log.h"
#include "probes/arp/arp_frames.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/lan_scene.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

const char *const OWN = "100.64.1.2";
const t_mac PORT_MAC = {{2, 0, 0, 0, 0, 11}};
const t_mac NEXT_HOP = {{0xaa, 0xbb, 0xcc, 0, 0, 1}};
const t_mac STRANGER = {{0xaa, 0xbb, 0xcc, 0, 0, 0x77}};

// Somebody asks for the address.
t_bytes question(const t_mac &asker = NEXT_HOP, const char *asker_ip = "100.64.1.1", const char *target = OWN)
{
    t_arp_frame frame;
    build_arp_request(&frame, asker, ip(asker_ip), UNKNOWN_MAC, ip(target));
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    return {first, first + sizeof frame};
}

t_bytes changed(t_bytes frame, size_t offset, uint8_t value)
{
    frame.at(offset) = value;
    return frame;
}

class arp_answer : public testing::Test {
protected:
    t_device eth1 = make_port("eth1");
    t_arp_answerer answerer = {};
    t_log_capture log;

    arp_answer()
    {
        fake_wire.reset();
        fake_clock.reset();
        fake_wire.add_interface("eth1", {.ifindex = 11, .mac = {{2, 0, 0, 0, 0, 11}}});
        answerer.dev = &eth1;
        answerer.socket.ifindex = 11;
        answerer.own_ip_be = ip(OWN);
        answerer.socket.mac = PORT_MAC;
        answerer.next_hop = NEXT_HOP;
    }
    ~arp_answer() override
    {
        stop_arp_answers(&answerer);
        EXPECT_EQ(fake_wire.open_sockets(), 0);
    }

    // How many answers left for so many of these frames.
    size_t answers_to(const t_bytes &frame, int times = 1)
    {
        for (int i = 0; i < times; i++)
            fake_wire.arrive(answerer.socket.watcher.fd, frame);
        const size_t before = fake_wire.sent().size();
        answer_arp_questions(&answerer);
        return fake_wire.sent().size() - before;
    }
};

// holds: dns-address-answered-for
TEST_F(arp_answer, tells_the_asker_alone_the_ports_mac)
{
    start_arp_answers(&answerer);
    ASSERT_EQ(answers_to(question()), 1u);
    // clang-format off
    const t_bytes expected = {
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x01,                                        //  0 Ethernet destination: the asker
        0x02, 0x00, 0x00, 0x00, 0x00, 0x0b,                                        //  6 Ethernet source: the port
        0x08, 0x06,                                                                // 12 EtherType: ARP
        0x00, 0x01,                                                                // 14 hardware type: Ethernet
        0x08, 0x00,                                                                // 16 protocol type: IPv4
        0x06,                                                                      // 18 hardware address length
        0x04,                                                                      // 19 protocol address length
        0x00, 0x02,                                                                // 20 opcode: reply
        0x02, 0x00, 0x00, 0x00, 0x00, 0x0b,                                        // 22 sender hardware address: the port
        0x64, 0x40, 0x01, 0x02,                                                    // 28 sender: 100.64.1.2
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x01,                                        // 32 target hardware address: the asker
        0x64, 0x40, 0x01, 0x01,                                                    // 38 target: 100.64.1.1
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                      // 42 padding
    };
    // clang-format on
    const t_sent_frame &sent = fake_wire.sent()[0];
    EXPECT_EQ(sent.bytes, expected);
    EXPECT_EQ(sent.port, "eth1");
    EXPECT_EQ(sent.address.sll_halen, MAC_SIZE);
    EXPECT_EQ(mac_at(sent.address.sll_addr), NEXT_HOP);
    EXPECT_TRUE(log.has("Debug", "answer_arp_questions",
                        "Told 100.64.1.1, who asked via dev:eth1, that this port has 100.64.1.2"));
}

// holds: dns-address-answered-for
TEST_F(arp_answer, an_asker_by_broadcast_by_unicast_or_to_the_macs_former_owner_is_told)
{
    start_arp_answers(&answerer);
    t_bytes unicast = question();
    memcpy(unicast.data(), PORT_MAC.bytes, MAC_SIZE);
    memcpy(&unicast[offsetof(t_arp_frame, target_mac)], PORT_MAC.bytes, MAC_SIZE);
    EXPECT_EQ(answers_to(question()), 1u);
    EXPECT_EQ(answers_to(unicast), 1u);
    EXPECT_EQ(answers_to(changed(unicast, 5, 0x99)), 1u);
    EXPECT_EQ(answers_to(question(STRANGER, "198.51.100.9")), 1u) << "another host, another network";
    t_bytes unpadded = question();
    unpadded.resize(42);
    EXPECT_EQ(answers_to(unpadded), 1u);
}

// holds: dns-address-not-answered
TEST_F(arp_answer, nothing_else_is_answered)
{
    start_arp_answers(&answerer);
    const t_bytes right = question();
    EXPECT_EQ(answers_to(question(NEXT_HOP, "100.64.1.1", "100.64.1.3")), 0u) << "another address";
    EXPECT_EQ(answers_to(question(NEXT_HOP, OWN)), 0u) << "an announcement";
    EXPECT_EQ(answers_to(question(NEXT_HOP, "0.0.0.0")), 0u) << "a test whether the address is free";
    EXPECT_EQ(answers_to(question({0xff, 0xff, 0xff, 0xff, 0xff, 0xff})), 0u) << "an asker that is everyone";
    EXPECT_EQ(answers_to(question({0x01, 0, 0x5e, 0, 0, 1})), 0u) << "a group that asks";
    EXPECT_EQ(answers_to(question(UNKNOWN_MAC)), 0u) << "nobody asks";
    EXPECT_EQ(answers_to(changed(right, 13, 0x00)), 0u) << "no ARP";
    EXPECT_EQ(answers_to(changed(right, 15, 0x06)), 0u) << "no Ethernet";
    EXPECT_EQ(answers_to(changed(right, 16, 0x86)), 0u) << "no IPv4";
    EXPECT_EQ(answers_to(changed(right, 18, 8)), 0u) << "longer MACs";
    EXPECT_EQ(answers_to(changed(right, 19, 16)), 0u) << "longer addresses";
    EXPECT_EQ(answers_to(changed(right, 21, 2)), 0u) << "a reply";
    for (size_t size = 0; size < 42; size++)
        EXPECT_EQ(answers_to(t_bytes(right.begin(), right.begin() + static_cast<long>(size))), 0u) << size;
}

// holds: dns-address-not-answered
TEST_F(arp_answer, what_the_port_sent_itself_is_not_answered)
{
    start_arp_answers(&answerer);
    sockaddr_ll own = {};
    own.sll_pkttype = PACKET_OUTGOING;
    own.sll_ifindex = 11;
    fake_wire.arrive(answerer.socket.watcher.fd, question(), own);
    answer_arp_questions(&answerer);
    EXPECT_TRUE(fake_wire.sent().empty());
}

// holds: dns-next-hop-flood
TEST_F(arp_answer, strangers_who_ask_all_the_time_are_answered_ten_times_a_second_and_do_not_keep_the_next_hop_waiting)
{
    start_arp_answers(&answerer);
    EXPECT_EQ(answers_to(question(STRANGER, "100.64.1.66"), 200), 10u);
    fake_clock.advance_ms(999);
    EXPECT_EQ(answers_to(question(STRANGER, "100.64.1.66"), 200), 0u);
    EXPECT_EQ(answers_to(question(), 200), 10u);
    fake_clock.advance_ms(1);
    EXPECT_EQ(answers_to(question(STRANGER, "100.64.1.66"), 200), 10u);
    EXPECT_EQ(answers_to(question(), 200), 0u);
}

// holds: dns-next-hop-flood
TEST_F(arp_answer, of_a_flood_a_bounded_number_is_read_at_a_time)
{
    start_arp_answers(&answerer);
    answers_to(question(STRANGER), 1000);
    EXPECT_EQ(fake_wire.socket(answerer.socket.watcher.fd).arrived.size(), 1000u - ARP_QUESTIONS_PER_READ);
    answer_arp_questions(&answerer);
    EXPECT_EQ(fake_wire.socket(answerer.socket.watcher.fd).arrived.size(), 1000u - 2 * ARP_QUESTIONS_PER_READ);
}

TEST_F(arp_answer, the_socket_hears_all_frames_of_its_port_through_a_filter_at_every_level)
{
    for (int level : {0, 7}) {
        log_set_level(level);
        start_arp_answers(&answerer);
        const t_fake_socket &socket = fake_wire.socket(answerer.socket.watcher.fd);
        EXPECT_EQ(socket.ether_type, ETH_P_ALL) << "a bridge takes its members' frames from who listens to ARP only";
        EXPECT_EQ(socket.address.sll_protocol, htons(ETH_P_ALL));
        EXPECT_EQ(socket.address.sll_ifindex, 11);
        EXPECT_TRUE(socket.filtered_before_bound);
        EXPECT_TRUE(socket.nonblocking);
        stop_arp_answers(&answerer);
    }
}

// holds: dns-cannot-tell
TEST_F(arp_answer, without_a_filter_the_right_questions_are_answered_as_well)
{
    fake_wire.fail(t_wire_call::FILTER, ENOMEM);
    start_arp_answers(&answerer);
    EXPECT_EQ(answers_to(question(NEXT_HOP, "100.64.1.1", "100.64.1.3")), 0u);
    EXPECT_EQ(answers_to(question()), 1u);
}

// holds: dns-cannot-tell
TEST_F(arp_answer, without_a_socket_or_an_address_nothing_is_answered_and_nothing_breaks)
{
    for (t_wire_call call : {t_wire_call::OPEN, t_wire_call::BIND}) {
        fake_wire.fail(call, ENETDOWN);
        start_arp_answers(&answerer);
        EXPECT_FALSE(answerer.socket.is_open());
        answer_arp_questions(&answerer);
    }
    answerer.own_ip_be = 0;
    start_arp_answers(&answerer);
    answer_arp_questions(&answerer);
    EXPECT_EQ(fake_wire.open_sockets(), 0);
    EXPECT_EQ(log.text(), "");
}

// holds: dns-cannot-tell
TEST_F(arp_answer, an_answer_that_cannot_be_sent_is_not_told_of)
{
    start_arp_answers(&answerer);
    fake_wire.fail(t_wire_call::SEND, ENETDOWN);
    EXPECT_EQ(answers_to(question()), 0u);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(answers_to(question()), 1u);
}

} // namespace
