// SPDX-License-Identifier: MIT
// Foreign text in log lines.
#include <gtest/gtest.h>

#include "platform/printable_text.h"

namespace {

std::string shown(const std::string &foreign)
{
    return t_printable_text(foreign.c_str()).text;
}

} // namespace

TEST(printable_text, keeps_what_is_printable)
{
    const std::string name = " eth0.5_a-b:c/~";
    EXPECT_EQ(shown(name), name);
    EXPECT_EQ(shown(""), "");
}

// holds: bus-text
TEST(printable_text, writes_no_line_of_its_own)
{
    EXPECT_EQ(shown("x\n[wan_detect][Critical][1][main:1]: forged\r\n"),
              "x?[wan_detect][Critical][1][main:1]: forged??");
}

// holds: bus-text
TEST(printable_text, moves_no_cursor)
{
    for (const char *control : {"\x1b", "\x01", "\x1f", "\x7f", "\x9b", "\xff"})
        EXPECT_EQ(shown(std::string("a") + control + "b"), "a?b");
}

// holds: bus-text
TEST(printable_text, is_cut_after_255_bytes)
{
    EXPECT_EQ(shown(std::string(255, 'x')), std::string(255, 'x'));
    EXPECT_EQ(shown(std::string(70000, 'x')), std::string(255, 'x'));
}

TEST(printable_text, may_be_made_in_place)
{
    char text[] = "a\tb";
    make_printable(text);
    EXPECT_STREQ(text, "a?b");
}
