// SPDX-License-Identifier: MIT
#include "probes/wire/wire_formats.h"

#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace {

// The result as it would stand in a frame, first byte first.
uint16_t checksum_on_wire(const std::vector<uint8_t> &bytes)
{
    return ntohs(checksum_finish(checksum_add(0, bytes.data(), bytes.size())));
}

TEST(checksum, of_nothing_is_all_ones)
{
    EXPECT_EQ(checksum_on_wire({}), 0xffff);
}

TEST(checksum, agrees_with_the_worked_example_of_the_standard)
{
    // RFC 1071, section 3: these words add up to ddf2.
    EXPECT_EQ(checksum_on_wire({0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7}), 0xffff - 0xddf2);
}

TEST(checksum, of_a_known_ip_header)
{
    // 45 00 00 73 00 00 40 00 40 11 [b861] c0 a8 00 01 c0 a8 00 c7
    EXPECT_EQ(checksum_on_wire({0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                                0x00, 0x00, 0xc0, 0xa8, 0x00, 0x01, 0xc0, 0xa8, 0x00, 0xc7}),
              0xb861);
}

TEST(checksum, of_a_header_that_carries_it_is_zero)
{
    EXPECT_EQ(checksum_on_wire({0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                                0xb8, 0x61, 0xc0, 0xa8, 0x00, 0x01, 0xc0, 0xa8, 0x00, 0xc7}),
              0);
}

TEST(checksum, an_odd_last_byte_counts_as_padded_with_zero)
{
    EXPECT_EQ(checksum_on_wire({0x12, 0x34, 0x56}), checksum_on_wire({0x12, 0x34, 0x56, 0x00}));
    EXPECT_NE(checksum_on_wire({0x12, 0x34, 0x56}), checksum_on_wire({0x12, 0x34, 0x00, 0x56}));
}

TEST(checksum, a_carry_of_the_carry_is_added_too)
{
    // ffff + ffff + 0001 = 1ffff: folding once gives 10000, twice 0001.
    EXPECT_EQ(checksum_on_wire({0xff, 0xff, 0xff, 0xff, 0x00, 0x01}), 0xfffe);
}

TEST(checksum, pieces_of_even_size_add_up)
{
    const std::vector<uint8_t> whole = {0xde, 0xad, 0xbe, 0xef, 0x01, 0x02, 0x03};
    const uint32_t first = checksum_add(0, whole.data(), 4);
    EXPECT_EQ(checksum_finish(checksum_add(first, whole.data() + 4, 3)),
              checksum_finish(checksum_add(0, whole.data(), whole.size())));
}

TEST(checksum, a_huge_piece_does_not_overflow_the_sum)
{
    // Words of ones stay ones under one's complement addition, however many there are.
    EXPECT_EQ(checksum_on_wire(std::vector<uint8_t>(300'000, 0xff)), 0);
}

TEST(checksum, bytes_may_begin_at_an_odd_address)
{
    const std::vector<uint8_t> shifted = {0xaa, 0x45, 0x00, 0x00, 0x73};
    EXPECT_EQ(checksum_finish(checksum_add(0, shifted.data() + 1, 4)),
              checksum_finish(checksum_add(0, std::vector<uint8_t>{0x45, 0x00, 0x00, 0x73}.data(), 4)));
}

} // namespace
