// SPDX-License-Identifier: MIT
#include "probes/discovery/dhcp_frames.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "probes/discovery/discovery.h"
#include "tests/unit/probes/sample_frames.h"

namespace {

constexpr t_mac PORT_MAC = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
constexpr uint32_t XID = 0x11223344;

TEST(probe_identifier, is_the_product_of_two_random_values_in_32_bits)
{
    EXPECT_EQ(probe_identifier(1000, 2000), 2'000'000u);
    // 7fffffff squared is 3fffffff00000001.
    EXPECT_EQ(probe_identifier(0x7fffffff, 0x7fffffff), 1u);
    EXPECT_EQ(probe_identifier(0, 77), 0u);
}

// holds: dhcp-all-ones
TEST(probe_identifier, of_all_ones_becomes_zero)
{
    EXPECT_EQ(probe_identifier(65535, 65537), 0u);
    EXPECT_EQ(probe_identifier(65537, 65535), 0u);
}

// holds: dhcp-frame
TEST(dhcp_discover, is_the_described_410_bytes)
{
    t_bytes buffer(1024, 0xaa);
    ASSERT_EQ(build_dhcp_discover(buffer, PORT_MAC, XID), 410u);
    EXPECT_EQ(t_bytes(buffer.begin(), buffer.begin() + 410), expected_discover(PORT_MAC, XID));
    EXPECT_EQ(t_bytes(buffer.begin() + 410, buffer.end()), t_bytes(1024 - 410, 0xaa)) << "wrote beyond the frame";
}

TEST(dhcp_discover, fits_a_buffer_of_its_size_and_no_smaller_one)
{
    t_bytes exact(410);
    EXPECT_EQ(build_dhcp_discover(exact, PORT_MAC, XID), 410u);
    t_bytes small(409);
    EXPECT_EQ(build_dhcp_discover(small, PORT_MAC, XID), 0u);
    EXPECT_EQ(small, zeros(409));
}

TEST(dhcp_offer, is_taken_apart)
{
    const t_bytes frame = offer(XID, usual_options());
    t_dhcp_offer parsed;
    ASSERT_TRUE(parse_dhcp_offer(frame, &parsed));
    EXPECT_EQ(parsed.xid, XID);
    EXPECT_EQ(parsed.address_be, inet_addr("10.20.30.40"));
    EXPECT_EQ(parsed.server_mac, SERVER_MAC);
    EXPECT_EQ(t_bytes(parsed.options.begin(), parsed.options.end()), usual_options());
}

TEST(dhcp_offer, that_is_not_udp_is_refused)
{
    t_dhcp_offer parsed;
    EXPECT_FALSE(parse_dhcp_offer(patched(offer(XID, usual_options()), OFFER_IP_PROTOCOL, {6}), &parsed));
}

TEST(dhcp_offer, to_another_port_is_refused)
{
    t_dhcp_offer parsed;
    const t_bytes frame = offer(XID, usual_options());
    EXPECT_FALSE(parse_dhcp_offer(patched(frame, OFFER_DESTINATION_PORT, {0x00, 0x43}), &parsed));
    EXPECT_FALSE(parse_dhcp_offer(patched(frame, OFFER_DESTINATION_PORT, {0x44, 0x00}), &parsed));
}

TEST(dhcp_offer, without_any_byte_of_the_cookie_is_refused)
{
    t_dhcp_offer parsed;
    for (size_t i = 0; i < 4; i++)
        EXPECT_FALSE(parse_dhcp_offer(patched(offer(XID, usual_options()), OFFER_COOKIE + i, {0}), &parsed)) << i;
}

TEST(dhcp_offer, that_is_a_request_is_refused)
{
    t_dhcp_offer parsed;
    EXPECT_FALSE(parse_dhcp_offer(patched(offer(XID, usual_options()), OFFER_OP, {1}), &parsed));
}

TEST(dhcp_offer, cut_before_its_options_is_refused)
{
    const t_bytes whole = offer(XID, usual_options());
    t_dhcp_offer parsed;
    for (size_t size = 0; size < OFFER_OPTIONS; size++)
        EXPECT_FALSE(parse_dhcp_offer(t_bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), &parsed))
            << size;
}

TEST(dhcp_offer, without_options_counts)
{
    const t_bytes frame = offer(XID, {});
    t_dhcp_offer parsed;
    ASSERT_TRUE(parse_dhcp_offer(frame, &parsed));
    EXPECT_TRUE(parsed.options.empty());
}

TEST(dhcp_offer, is_not_judged_by_ether_type_version_source_port_or_message_type)
{
    const t_bytes acknowledgement = {0x35, 0x01, 0x05, 0xff};
    t_bytes frame = offer(XID, acknowledgement);
    frame = patched(frame, 12, {0x86, 0xdd});
    frame = patched(frame, 14, {0x60});
    frame = patched(frame, OFFER_SOURCE_PORT, {0x12, 0x34});
    t_dhcp_offer parsed;
    EXPECT_TRUE(parse_dhcp_offer(frame, &parsed));
}

// What a walk over `options` learns.
struct t_walk {
    t_detect_result result = {};
    std::vector<int> codes;
    std::vector<t_dhcp_learned> learned;

    explicit t_walk(const t_bytes &options)
    {
        // Exactly as large as what is there, so that a read beyond it is seen.
        const t_bytes exact(options.begin(), options.end());
        std::span<const uint8_t> rest(exact);
        t_dhcp_option option;
        while (next_dhcp_option(&rest, &option)) {
            codes.push_back(option.code);
            learned.push_back(learn_dhcp_option(option, &result));
        }
    }
};

TEST(dhcp_options, of_the_usual_offer_tell_gateway_and_first_dns_server)
{
    const t_walk walk(usual_options());
    EXPECT_EQ(walk.codes, (std::vector<int>{53, 1, 3, 6}));
    EXPECT_EQ(walk.learned, (std::vector{t_dhcp_learned::nothing, t_dhcp_learned::nothing, t_dhcp_learned::gateway,
                                         t_dhcp_learned::dns_server}));
    EXPECT_EQ(walk.result.gateway.ipv4_be, inet_addr("10.20.30.1"));
    EXPECT_EQ(walk.result.dns_server.ipv4_be, inet_addr("10.20.30.53"));
}

TEST(dhcp_options, end_at_an_end_byte)
{
    EXPECT_EQ(t_walk({0xff, 0x03, 0x04, 10, 0, 0, 1}).codes.size(), 0u);
    EXPECT_EQ(t_walk({0x06, 0x04, 10, 0, 0, 2, 0xff, 0x03, 0x04, 10, 0, 0, 1}).result.gateway.ipv4_be, 0u);
}

// holds: dhcp-pad-first
TEST(dhcp_options, end_at_a_pad_byte)
{
    const t_walk walk({0x06, 0x04, 10, 0, 0, 2, 0x00, 0x03, 0x04, 10, 0, 0, 1});
    EXPECT_EQ(walk.codes, (std::vector<int>{6}));
}

// holds: dhcp-gateways
TEST(dhcp_options, two_gateways_are_no_gateway)
{
    const t_walk walk({0x03, 0x08, 10, 0, 0, 1, 10, 0, 0, 2, 0xff});
    EXPECT_EQ(walk.codes, (std::vector<int>{3}));
    EXPECT_EQ(walk.result.gateway.ipv4_be, 0u);
}

TEST(dhcp_options, a_router_of_another_length_is_no_gateway)
{
    for (uint8_t length : {0, 1, 3, 5})
        EXPECT_EQ(t_walk(join({{0x03, length}, t_bytes(length, 9), {0xff}})).result.gateway.ipv4_be, 0u) << +length;
}

// holds: dhcp-gateways
TEST(dhcp_options, of_two_dns_servers_the_first_counts)
{
    EXPECT_EQ(t_walk({0x06, 0x08, 10, 0, 0, 1, 10, 0, 0, 2, 0xff}).result.dns_server.ipv4_be, inet_addr("10.0.0.1"));
}

TEST(dhcp_options, a_later_dns_option_overwrites_an_earlier_one)
{
    const t_walk walk({0x06, 0x04, 10, 0, 0, 1, 0x06, 0x04, 10, 0, 0, 2, 0xff});
    EXPECT_EQ(walk.result.dns_server.ipv4_be, inet_addr("10.0.0.2"));
}

TEST(dhcp_options, a_dns_option_without_a_whole_address_is_ignored)
{
    for (uint8_t length : {0, 1, 2, 3, 5, 6, 7})
        EXPECT_EQ(t_walk(join({{0x06, length}, t_bytes(length, 9), {0xff}})).result.dns_server.ipv4_be, 0u) << +length;
}

TEST(dhcp_options, an_option_whose_value_was_cut_off_ends_the_walk)
{
    EXPECT_TRUE(t_walk({0x03}).codes.empty());
    EXPECT_TRUE(t_walk({0x03, 0x04}).codes.empty());
    EXPECT_TRUE(t_walk({0x03, 0x04, 10, 0, 0}).codes.empty());
    EXPECT_EQ(t_walk({0x03, 0x04, 10, 0, 0, 1}).codes, (std::vector<int>{3}));
    EXPECT_TRUE(t_walk({0x06, 0xff, 10, 0, 0, 1}).codes.empty());
}

TEST(dhcp_options, of_any_bytes_end_within_them)
{
    for (unsigned value = 0; value < 256; value++)
        for (size_t size = 0; size < 600; size += 7)
            EXPECT_LE(t_walk(t_bytes(size, static_cast<uint8_t>(value))).codes.size(), size);
}

} // namespace
