// SPDX-License-Identifier: MIT
#include "probes/dns/dns_frames.h"

#include "tests/unit/probes/dns_scene.h"

namespace {

t_bytes query(const t_dns_entry &entry, const char *source, const t_mac &source_mac)
{
    t_dns_query_frame frame;
    memset(&frame, 0xee, sizeof frame);
    build_dns_query(&frame, entry, ip(source), source_mac);
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    return {first, first + sizeof frame};
}

// The checksum as the standard words it, big-endian and word by word, apart from the code under test.
uint16_t plain_checksum(const t_bytes &bytes)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 2)
        sum += static_cast<uint32_t>(bytes[i] << 8 | (i + 1 < bytes.size() ? bytes[i + 1] : 0));
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

t_bytes udp_sum_input(const t_bytes &frame)
{
    t_bytes input(frame.begin() + 26, frame.begin() + 34); // both addresses
    const t_bytes rest = {0, 17, frame[38], frame[39]};
    input.insert(input.end(), rest.begin(), rest.end());
    input.insert(input.end(), frame.begin() + 34, frame.end());
    return input;
}

// holds: dns-frame
TEST(dns_query, stands_on_the_wire_as_documented)
{
    t_dns_entry entry = {};
    entry.query_id = 0x1234;
    entry.dns_server_be = ip("198.51.100.53");
    entry.server_mac = mac("aa:bb:cc:00:00:fe");
    // clang-format off
    const t_bytes expected = {
        0xaa, 0xbb, 0xcc, 0x00, 0x00, 0xfe,                   //  0 Ethernet destination: the next hop
        0x02, 0x00, 0x00, 0x00, 0x00, 0x0b,                   //  6 Ethernet source: the port
        0x08, 0x00,                                           // 12 EtherType: IPv4
        0x45,                                                 // 14 version 4, header of 5 words
        0x00,                                                 // 15 type of service
        0x00, 0x39,                                           // 16 total length: 57
        0x01, 0x23,                                           // 18 identification: query id >> 4
        0x40, 0x00,                                           // 20 don't fragment
        0x40,                                                 // 22 TTL: 64
        0x11,                                                 // 23 protocol: UDP
        0xaa, 0xe6,                                           // 24 header checksum
        0x64, 0x40, 0x00, 0x02,                               // 26 source: 100.64.0.2
        0xc6, 0x33, 0x64, 0x35,                               // 30 destination: 198.51.100.53
        0x52, 0x08,                                           // 34 source port: 21000
        0x00, 0x35,                                           // 36 destination port: 53
        0x00, 0x25,                                           // 38 UDP length: 37
        0x3d, 0x1a,                                           // 40 UDP checksum
        0x12, 0x34,                                           // 42 DNS id
        0x01, 0x00,                                           // 44 flags: recursion desired
        0x00, 0x01,                                           // 46 QDCOUNT
        0x00, 0x00,                                           // 48 ANCOUNT
        0x00, 0x00,                                           // 50 NSCOUNT
        0x00, 0x00,                                           // 52 ARCOUNT
        7, 'e', 'x', 'a', 'm', 'p', 'l', 'e',                 // 54 QNAME: example.com
        3, 'c', 'o', 'm', 0,
        0x00, 0x01,                                           // 67 QTYPE: A
        0x00, 0x01,                                           // 69 QCLASS: IN
    };
    // clang-format on
    EXPECT_EQ(expected.size(), 71u);
    EXPECT_EQ(query(entry, "100.64.0.2", mac("02:00:00:00:00:0b")), expected);
}

// holds: dns-frame
TEST(dns_query, has_valid_checksums_for_every_id)
{
    t_dns_entry entry = {};
    entry.dns_server_be = ip("8.8.4.4");
    for (uint32_t id = 0; id < 65535; id += 13) {
        entry.query_id = static_cast<uint16_t>(id);
        const t_bytes frame = query(entry, "192.0.2.77", mac("02:00:00:00:00:0b"));
        ASSERT_EQ(plain_checksum(t_bytes(frame.begin() + 14, frame.begin() + 34)), 0) << id;
        ASSERT_EQ(plain_checksum(udp_sum_input(frame)), 0) << id;
    }
}

TEST(dns_query, a_udp_checksum_of_zero_is_sent_as_all_ones)
{
    t_dns_entry entry = {};
    entry.dns_server_be = ip("8.8.4.4");
    int found = 0;
    for (uint32_t id = 0; id < 65535; id++) {
        entry.query_id = static_cast<uint16_t>(id);
        const t_bytes frame = query(entry, "192.0.2.77", mac("02:00:00:00:00:0b"));
        ASSERT_FALSE(frame[40] == 0 && frame[41] == 0) << id;
        found += frame[40] == 0xff && frame[41] == 0xff;
    }
    EXPECT_EQ(found, 1);
}

class dns_answer_checks : public testing::Test {
protected:
    t_dns_entry entry = {};

    dns_answer_checks()
    {
        entry.query_id = 0x1234;
        entry.dev_ip_be = ip("100.64.0.2");
        entry.dns_server_be = ip("198.51.100.53");
    }
    t_dns_flaw flaw(const t_bytes &frame, bool check_identification = false)
    {
        return find_dns_flaw(parse_dns_answer(frame), entry, check_identification);
    }
    t_dns_reply reply() { return answer_to(entry); }
};

TEST_F(dns_answer_checks, a_good_answer_has_no_flaw)
{
    EXPECT_EQ(flaw(reply().bytes()), t_dns_flaw::none);
    EXPECT_EQ(flaw(reply().bytes(), true), t_dns_flaw::none);
}

TEST_F(dns_answer_checks, the_first_flaw_in_order_is_told)
{
    t_dns_reply bad = reply();
    bad.answers = 0;
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::no_answers);
    bad.id++;
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::id);
    bad.source_port = 54;
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::port);
    bad.source_be = ip("198.51.100.54");
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::addresses);
    bad.identification++;
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::addresses);
    EXPECT_EQ(flaw(bad.bytes(), true), t_dns_flaw::identification);
    bad.protocol = 6;
    EXPECT_EQ(flaw(bad.bytes(), true), t_dns_flaw::protocol);
}

TEST_F(dns_answer_checks, either_address_alone_is_a_flaw)
{
    t_dns_reply bad = reply();
    bad.destination_be = ip("100.64.0.3");
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::addresses);
    bad = reply();
    bad.source_be = ip("198.51.100.54");
    EXPECT_EQ(flaw(bad.bytes()), t_dns_flaw::addresses);
}

TEST_F(dns_answer_checks, an_answer_cut_before_the_end_of_its_header_is_never_good)
{
    const t_bytes whole = reply().bytes();
    for (size_t size = 0; size < 54; size++) {
        const t_bytes cut(whole.begin(), whole.begin() + static_cast<long>(size)); // a sanitizer sees reads beyond it
        EXPECT_NE(flaw(cut), t_dns_flaw::none) << size;
    }
    EXPECT_EQ(flaw(t_bytes(whole.begin(), whole.begin() + 54)), t_dns_flaw::none);
}

TEST_F(dns_answer_checks, an_answer_cut_short_is_never_good_even_if_all_expected_is_zero)
{
    entry = {};
    t_bytes zero(49, 0);
    zero[23] = 17;
    zero[35] = 53;
    zero[48] = 0xff;
    EXPECT_EQ(flaw(zero), t_dns_flaw::no_answers);
    zero.resize(54, 0);
    EXPECT_EQ(flaw(zero), t_dns_flaw::none);
}

} // namespace
