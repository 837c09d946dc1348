// SPDX-License-Identifier: MIT
#include "status/page.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "tests/unit/status/replies.h"

namespace {

std::string line(t_look look, void (*body)(t_line *))
{
    return printed([&](FILE *out) {
        t_line one(out, look);
        body(&one);
    });
}

std::string paragraph(const std::string &text)
{
    return printed([&](FILE *out) { print_paragraph(out, "title", text.c_str(), nullptr); });
}

// holds: status-picture
TEST(status_page, texts_stand_in_the_middle_of_their_columns)
{
    EXPECT_EQ(line({false, false},
                   [](t_line *one) {
                       one->put("|");
                       one->put_centred("ab", 5, "", " ");
                       one->put("|");
                       one->put_centred("\u25cf", 3, "", " "); // one column, though three bytes
                       one->put("|");
                       one->put_centred("longer than that", 3, "", " ");
                   }),
              "| ab  | \u25cf |longer than that\n");
}

// holds: status-picture
TEST(status_page, nothing_stands_behind_the_last_text_and_no_line_without_one)
{
    EXPECT_EQ(line({false, false},
                   [](t_line *one) {
                       one->put("a");
                       one->put_centred("", 9, "1", " ");
                       one->put_centred("", 3, "", " ");
                   }),
              "a\n");
    EXPECT_EQ(line({false, false}, [](t_line *one) { one->put_centred("", 3, "", " "); }), "");
}

// holds: status-plain-text
TEST(status_page, a_colour_ends_with_its_text)
{
    EXPECT_EQ(line({false, true}, [](t_line *one) { one->put_centred("a", 3, "32", " "), one->put("b"); }),
              " \033[32ma\033[0m b\n");
}

// holds: status-picture
TEST(status_page, words_are_set_into_lines_of_80_columns)
{
    std::string words;
    for (int i = 0; i < 30; i++)
        words += "words ";
    EXPECT_EQ(paragraph(words), "  title      words words words words words words words words words words words\n"
                                "               words words words words words words words words words words words\n"
                                "               words words words words words words words words\n");
    const std::string long_word = paragraph("one " + std::string(100, 'x'));
    EXPECT_EQ(long_word, "  title      one\n               " + std::string(65, 'x') + "\n               " +
                             std::string(35, 'x') + "\n");
}

// holds: status-hostile-replies
TEST(status_page, a_text_without_end_is_cut)
{
    const std::string text = paragraph(std::string(5000, 'x'));
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 1023);
}

} // namespace
