// SPDX-License-Identifier: MIT
#include "probes/arp/arp_frames.h"

#include "tests/unit/probes/bytes.h"
#include "tests/unit/probes/lan_scene.h"

namespace {

t_bytes request(const t_mac &source, const char *sender, const t_mac &target_mac, const char *target)
{
    t_arp_frame frame;
    memset(&frame, 0xee, sizeof frame);
    build_arp_request(&frame, source, ip(sender), target_mac, ip(target));
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    return {first, first + sizeof frame};
}

// holds: arp-frame
TEST(arp_request, asks_a_known_host_by_unicast)
{
    // clang-format off
    const t_bytes expected = {
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x32,                                        //  0 Ethernet destination: the host
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01,                                        //  6 Ethernet source
        0x08, 0x06,                                                                // 12 EtherType: ARP
        0x00, 0x01,                                                                // 14 hardware type: Ethernet
        0x08, 0x00,                                                                // 16 protocol type: IPv4
        0x06,                                                                      // 18 hardware address length
        0x04,                                                                      // 19 protocol address length
        0x00, 0x01,                                                                // 20 opcode: request
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01,                                        // 22 sender hardware address
        0xc0, 0xa8, 0x01, 0x01,                                                    // 28 sender: 192.168.1.1
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x32,                                        // 32 target hardware address
        0xc0, 0xa8, 0x01, 0x32,                                                    // 38 target: 192.168.1.50
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                      // 42 padding
    };
    // clang-format on
    EXPECT_EQ(expected.size(), 60u);
    EXPECT_EQ(request(mac("02:00:00:00:00:01"), "192.168.1.1", mac("aa:bb:cc:00:00:32"), "192.168.1.50"), expected);
}

// holds: arp-frame
TEST(arp_request, asks_an_unknown_host_by_broadcast)
{
    // clang-format off
    const t_bytes expected = {
        0xff, 0xff, 0xff, 0xff, 0xff, 0xff,                                        //  0 Ethernet destination: everyone
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01,                                        //  6 Ethernet source
        0x08, 0x06,                                                                // 12 EtherType: ARP
        0x00, 0x01,                                                                // 14 hardware type: Ethernet
        0x08, 0x00,                                                                // 16 protocol type: IPv4
        0x06,                                                                      // 18 hardware address length
        0x04,                                                                      // 19 protocol address length
        0x00, 0x01,                                                                // 20 opcode: request
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01,                                        // 22 sender hardware address
        0x0a, 0x00, 0x00, 0x01,                                                    // 28 sender: 10.0.0.1
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00,                                        // 32 target hardware address: unknown
        0x0a, 0x00, 0x00, 0xfe,                                                    // 38 target: 10.0.0.254
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                      // 42 padding
    };
    // clang-format on
    EXPECT_EQ(request(mac("02:00:00:00:00:01"), "10.0.0.1", UNKNOWN_MAC, "10.0.0.254"), expected);
}

class arp_packet : public testing::Test {
protected:
    t_arp_packet packet = {};

    // From an allocation of exactly this size, so that a sanitizer sees every byte read beyond it.
    bool parse(const t_bytes &frame) { return parse_arp_frame(frame, &packet); }
};

TEST_F(arp_packet, tells_who_answers)
{
    // clang-format off
    const t_bytes reply = {
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x32, 0x08, 0x06, // to us, from the host, ARP
        0x00, 0x01, 0x08, 0x00, 0x06, 0x04, 0x00, 0x02,                                     // Ethernet, IPv4, reply
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0x33, 0xc0, 0xa8, 0x01, 0x32,                         // sender
        0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0xc0, 0xa8, 0x01, 0x01,                         // target
    };
    // clang-format on
    ASSERT_TRUE(parse(reply));
    EXPECT_EQ(packet.ethernet_source, mac("aa:bb:cc:00:00:32"));
    EXPECT_EQ(packet.sender_mac, mac("aa:bb:cc:00:00:33"));
    EXPECT_EQ(packet.opcode, 2);
    EXPECT_EQ(packet.sender_ip_be, ip("192.168.1.50"));
}

TEST_F(arp_packet, of_another_protocol_is_foreign_whatever_its_size)
{
    t_bytes frame = t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes();
    frame[13] = 0x00;
    EXPECT_FALSE(parse(frame));
    frame.resize(1024);
    EXPECT_FALSE(parse(frame));
    for (size_t size = 0; size < 14; size++)
        EXPECT_FALSE(parse(t_bytes(size, 0x08))) << size;
}

TEST_F(arp_packet, cut_short_is_no_reply)
{
    const t_bytes whole = t_arp_answer{mac("aa:bb:cc:00:00:32"), ip("192.168.1.50")}.bytes();
    for (size_t size = 14; size < 42; size++) {
        packet.opcode = ARP_OPCODE_REPLY;
        EXPECT_TRUE(parse(t_bytes(whole.begin(), whole.begin() + static_cast<long>(size)))) << size;
        EXPECT_EQ(packet.opcode, 0) << size;
    }
    EXPECT_TRUE(parse(t_bytes(whole.begin(), whole.begin() + 42)));
    EXPECT_EQ(packet.opcode, ARP_OPCODE_REPLY);
}

} // namespace
