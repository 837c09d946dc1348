// SPDX-License-Identifier: MIT
#include "model/records.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string copied(const std::string &name)
{
    char field[NAME_SIZE];
    memset(field, 'x', sizeof field);
    copy_name(field, name.c_str());
    EXPECT_EQ(field[NAME_SIZE - 1], '\0');
    for (size_t i = strlen(field); i < NAME_SIZE; i++)
        EXPECT_EQ(field[i], '\0') << "byte " << i;
    return field;
}

} // namespace

TEST(records, a_name_shorter_than_its_field_is_copied_whole_and_padded_with_zeros)
{
    EXPECT_EQ(copied("eth0"), "eth0");
    EXPECT_EQ(copied(""), "");
    EXPECT_EQ(copied(std::string(31, 'a')), std::string(31, 'a'));
}

TEST(records, a_name_of_32_or_more_characters_is_cut_to_31)
{
    EXPECT_EQ(copied(std::string(32, 'b')), std::string(31, 'b'));
    EXPECT_EQ(copied(std::string(33, 'c')), std::string(31, 'c'));
    EXPECT_EQ(copied(std::string(5000, 'd')), std::string(31, 'd'));
}

TEST(records, a_name_of_arbitrary_bytes_is_copied_as_it_is)
{
    EXPECT_EQ(copied("\xff\x01\x80%s\n"), "\xff\x01\x80%s\n");
}

TEST(records, a_null_name_leaves_an_empty_field)
{
    char field[NAME_SIZE] = "before";
    copy_name(field, nullptr);
    EXPECT_STREQ(field, "");
}

TEST(records, what_is_not_there_is_called_null)
{
    t_device device = {};
    copy_name(device.name, "eth1");
    t_protocol protocol = {};
    copy_name(protocol.name, "dhcp");
    EXPECT_STREQ(device_name(&device), "eth1");
    EXPECT_STREQ(device_name(nullptr), "null");
    EXPECT_STREQ(protocol_name(&protocol), "dhcp");
    EXPECT_STREQ(protocol_name(nullptr), "null");
}

TEST(records, a_keyword_is_compared_over_its_own_length)
{
    EXPECT_TRUE(has_prefix("static", "static"));
    EXPECT_TRUE(has_prefix("static6", "static"));
    EXPECT_FALSE(has_prefix("stat", "static"));
    EXPECT_FALSE(has_prefix("", "static"));
    EXPECT_FALSE(has_prefix(nullptr, "static"));
}
