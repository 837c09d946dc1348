// SPDX-License-Identifier: MIT
#include "status/form.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/status/replies.h"

namespace {

std::string filled(const std::string &form, const std::string &json, size_t size = 100)
{
    std::vector<char> text(size); // of its own, so that a sanitizer sees what is written behind it
    t_reply reply(json);
    fill_form(text.data(), size, form.c_str(), reply.blob());
    return text.data();
}

constexpr const char *VALUES =
    R"({"text": "t", "empty": "", "word": "resting", "time": 7300, "number": 3, "none": 0, "yes": true,
    "no": false, "list": [1, 2], "table": {"text": "inner", "table": {"text": "innermost"}}})";

// holds: status-picture
TEST(status_form, has_the_values_of_fields_in_their_places)
{
    EXPECT_EQ(filled("a {text} b {table.text} {table.table.text}", VALUES), "a t b inner innermost");
    EXPECT_EQ(filled("{word} {word:x} {text:x}", VALUES), "resting at rest t");
    EXPECT_EQ(filled("{time:t} {time:w} {number:d} {list:n}", VALUES), "2 h 7.3 s 3 2");
    EXPECT_EQ(filled("{}", VALUES), "");
}

// holds: status-picture
TEST(status_form, leaves_brackets_out_whose_values_are_missing)
{
    EXPECT_EQ(filled("[text {text}] [other {other}] [empty {empty}]!", VALUES), "text t  !");
    EXPECT_EQ(filled("[{text} and {other}][{other} and {text}]", VALUES), "");
    EXPECT_EQ(filled("[{yes:1}yes][{no:1}no][{yes:0}no][{no:0}yes][{other:0}other]", VALUES), "yesyes");
    EXPECT_EQ(filled("[{none:d} of none][{text:d}][{text:t}][{number}]", VALUES), "");
}

// holds: status-picture
TEST(status_form, ends_at_a_bar_when_it_has_some_text)
{
    EXPECT_EQ(filled("{other}|[{empty}]|{text}|{word}", VALUES), "t");
    EXPECT_EQ(filled("{other}|{empty}|", VALUES), "");
}

// holds: status-hostile-replies
TEST(status_form, is_cut_where_its_room_ends)
{
    for (size_t size = 1; size < 20; size++)
        EXPECT_EQ(filled("12345{text}7890123", VALUES, size), std::string("12345t7890123").substr(0, size - 1));
}

// holds: status-hostile-replies
TEST(status_form, has_nothing_that_is_not_printable)
{
    EXPECT_EQ(filled("{a}", R"({"a": "\u001b[1m\u00e4"})"), "?[1m??");
}

} // namespace
