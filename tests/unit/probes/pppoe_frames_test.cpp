// SPDX-License-Identifier: MIT
#include "probes/discovery/pppoe_frames.h"

#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "platform/result_codes.h"
#include "probes/discovery/pppoe_discovery.h"
#include "tests/unit/probes/sample_frames.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr t_mac PORT_MAC = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
constexpr uint32_t HOST_UNIQ = 0x11223344;

// Hands over a copy exactly as large as the frame, so that a read beyond it is seen.
int judge(const t_bytes &frame)
{
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[frame.size()]);
    std::copy(frame.begin(), frame.end(), exact.get());
    return packetIsForMe(exact.get(), frame.size(), HOST_UNIQ);
}

// holds: padi-frame
TEST(padi, is_the_described_32_bytes)
{
    t_bytes buffer(1520, 0xaa);
    ASSERT_EQ(build_padi(buffer, PORT_MAC, HOST_UNIQ), 32u);
    EXPECT_EQ(t_bytes(buffer.begin(), buffer.begin() + 32), expected_padi(PORT_MAC, HOST_UNIQ));
    EXPECT_EQ(t_bytes(buffer.begin() + 32, buffer.end()), t_bytes(1520 - 32, 0xaa)) << "wrote beyond the frame";
}

TEST(padi, fits_a_buffer_of_its_size_and_no_smaller_one)
{
    t_bytes exact(32);
    EXPECT_EQ(build_padi(exact, PORT_MAC, HOST_UNIQ), 32u);
    t_bytes small(31);
    EXPECT_EQ(build_padi(small, PORT_MAC, HOST_UNIQ), 0u);
    EXPECT_EQ(small, zeros(31));
}

TEST(pado, without_flaw_is_found_whole)
{
    EXPECT_EQ(check_pado(pado(usual_tags(HOST_UNIQ))), t_pado_flaw::none);
    EXPECT_EQ(check_pado(pado({})), t_pado_flaw::none);
}

// holds: pado-all-ones
TEST(pado, flaws_are_found_in_their_order)
{
    t_bytes frame = patched(pado(usual_tags(HOST_UNIQ)), PADO_LENGTH, {0x40, 0x00});
    EXPECT_EQ(check_pado(frame), t_pado_flaw::length);
    frame = patched(frame, PADO_CODE, {0x09});
    EXPECT_EQ(check_pado(frame), t_pado_flaw::other_code);
    frame = patched(frame, PADO_ETHER_TYPE, {0x88, 0x64});
    EXPECT_EQ(check_pado(frame), t_pado_flaw::other_ether_type);
    frame = patched(frame, PADO_SOURCE, t_bytes(6, 0xff));
    EXPECT_EQ(check_pado(frame), t_pado_flaw::broadcast_source);
}

TEST(pado, a_source_that_is_not_all_ones_is_no_broadcast)
{
    EXPECT_EQ(check_pado(patched(pado({}), PADO_SOURCE, {0xff, 0xff, 0xff, 0xff, 0xff, 0xfe})), t_pado_flaw::none);
}

TEST(pado, may_be_followed_by_padding_but_not_cut)
{
    const t_bytes whole = pado(usual_tags(HOST_UNIQ));
    EXPECT_EQ(check_pado(join({whole, zeros(20)})), t_pado_flaw::none);
    EXPECT_EQ(check_pado(t_bytes(whole.begin(), whole.end() - 1)), t_pado_flaw::length);
}

TEST(pado, of_any_length_below_its_headers_has_a_flaw)
{
    const t_bytes whole = pado({});
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_NE(check_pado(t_bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))), t_pado_flaw::none)
            << size;
}

// holds: pado-codes
TEST(packet_is_for_me, with_our_host_uniq)
{
    EXPECT_EQ(judge(pado(usual_tags(HOST_UNIQ))), 0);
}

// holds: pado-second-host-uniq
TEST(packet_is_for_me, with_a_wrong_host_uniq_before_ours)
{
    t_log_capture log;
    const t_bytes tags = join({tag(0x0103, native(0x0badcafe)), tag(0x0103, native(HOST_UNIQ))});
    EXPECT_EQ(judge(pado(tags)), 0);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE unique host tag value (0x0badcafe)/(0x11223344)"));
}

// holds: pado-codes
TEST(packet_is_for_me, not_with_another_host_uniq_only)
{
    EXPECT_EQ(judge(pado(usual_tags(HOST_UNIQ + 1))), -99);
}

// holds: pado-codes
TEST(packet_is_for_me, not_without_host_uniq)
{
    t_log_capture log;
    EXPECT_EQ(judge(pado(tag(0x0101, {}))), -99);
    EXPECT_EQ(judge(pado({})), -99);
    EXPECT_EQ(log.text(), "");
}

TEST(packet_is_for_me, not_with_a_host_uniq_of_another_length)
{
    t_log_capture log;
    EXPECT_EQ(judge(pado(tag(0x0103, {0x44, 0x33, 0x22}))), -99);
    EXPECT_EQ(judge(pado(tag(0x0103, join({native(HOST_UNIQ), {0}})))), -99);
    EXPECT_EQ(judge(pado(tag(0x0103, {}))), -99);
    EXPECT_EQ(log.text(), "");
}

// holds: pado-end-of-list
TEST(packet_is_for_me, not_when_the_tags_start_with_an_end_of_list)
{
    t_log_capture log;
    EXPECT_EQ(judge(pado(join({tag(0x0000, {}), usual_tags(HOST_UNIQ)}))), -84);
    EXPECT_EQ(log.text(), "");
}

// holds: pado-codes
TEST(packet_is_for_me, not_in_another_version_or_type)
{
    t_log_capture log;
    const t_bytes frame = pado(usual_tags(HOST_UNIQ));
    EXPECT_EQ(judge(patched(frame, PADO_VERSION_TYPE, {0x21})), -99);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE version (2)"));
    EXPECT_EQ(judge(patched(frame, PADO_VERSION_TYPE, {0x1f})), -99);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE type (15)"));
    EXPECT_EQ(judge(patched(frame, PADO_VERSION_TYPE, {0x00})), -99);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE version (0)"));
    EXPECT_FALSE(log.has_body("Invalid PPPoE type (0)"));
}

// A payload of `size` bytes that ends with our Host-Uniq.
t_bytes long_pado(size_t size)
{
    const t_bytes host_uniq = tag(0x0103, native(HOST_UNIQ));
    return pado(join({tag(0x0102, t_bytes(size - host_uniq.size() - 4, 'x')), host_uniq}));
}

// holds: pado-length, pado-codes
TEST(packet_is_for_me, a_payload_of_1494_bytes_is_walked_and_one_of_1495_refused)
{
    t_log_capture log;
    EXPECT_EQ(judge(long_pado(1494)), 0);
    EXPECT_EQ(judge(long_pado(1495)), -99);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE packet length (1495)"));
}

// holds: pado-codes
TEST(packet_is_for_me, not_with_a_tag_longer_than_the_payload)
{
    t_log_capture log;
    EXPECT_EQ(judge(pado({0x01, 0x02, 0x00, 0x05, 'a', 'b', 'c', 'd'})), -84);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE tag length (5)"));
    EXPECT_EQ(judge(pado({0x01, 0x03, 0xff, 0xff})), -84);
    EXPECT_TRUE(log.has("Info", "packetIsForMe", "Invalid PPPoE tag length (65535)"));
}

TEST(packet_is_for_me, not_with_tags_in_the_padding_behind_the_payload)
{
    const t_bytes host_uniq = tag(0x0103, native(HOST_UNIQ));
    EXPECT_EQ(judge(join({pado(tag(0x0102, {'a'})), host_uniq})), -99);
    for (uint8_t missing = 1; missing <= 8; missing++) {
        const t_bytes frame = pado(host_uniq);
        const uint8_t payload = static_cast<uint8_t>(host_uniq.size() - missing);
        EXPECT_NE(judge(join({patched(frame, PADO_LENGTH, {0, payload}), zeros(20)})), 0) << +missing;
    }
}

TEST(packet_is_for_me, not_with_half_a_tag_at_the_end)
{
    for (size_t left : {1, 2, 3}) {
        const t_bytes half = {0x01, 0x01, 0x00};
        const t_bytes end(half.begin(), half.begin() + static_cast<ptrdiff_t>(left));
        EXPECT_EQ(judge(pado(join({tag(0x0102, {'a'}), end}))), -84) << left;
    }
}

TEST(packet_is_for_me, not_beyond_what_arrived)
{
    const t_bytes whole = pado(usual_tags(HOST_UNIQ));
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_NE(judge(t_bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))), 0) << size;
}

} // namespace
