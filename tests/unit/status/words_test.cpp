// SPDX-License-Identifier: MIT
#include "status/words.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

// holds: status-picture
TEST(status_words, that_are_known_have_a_text_and_others_speak_for_themselves)
{
    EXPECT_STREQ(text_for("resting"), "at rest");
    EXPECT_STREQ(text_for("at rest"), "at rest");
    EXPECT_STREQ(text_for("no_link"), "");
    EXPECT_STREQ(text_for(""), "");
    EXPECT_STREQ(text_for("new_in_a_later_version"), "new in a later version");
}

// holds: status-picture
TEST(status_words, below_the_panel_fit_into_a_cell)
{
    for (const char *word :
         {"works",          "not_connected",  "no_link", "not_in_pool", "reserved",       "banned",
          "lan_hosts",      "not_listed_yet", "asked",   "silent",      "other_answered", "no_gateway",
          "no_name_server", "lower_priority", "won",     "aggregation", "gaming",         "dhcp",
          "pppoe",          "static",         "arp",     "dns"})
        EXPECT_LE(strlen(text_for(word)), 14u) << word;
}

// holds: status-picture
TEST(status_words, of_a_time_are_as_exact_as_it_is_long)
{
    EXPECT_STREQ(time_text(-1), "ever");
    EXPECT_STREQ(time_text(0), "0 s");
    EXPECT_STREQ(time_text(119), "119 s");
    EXPECT_STREQ(time_text(120), "2 min");
    EXPECT_STREQ(time_text(7199), "119 min");
    EXPECT_STREQ(time_text(7200), "2 h");
    EXPECT_STREQ(time_text(172800), "2 d");
    EXPECT_STREQ(wait_text(0), "0.0 s");
    EXPECT_STREQ(wait_text(9999), "9.9 s");
    EXPECT_STREQ(wait_text(10000), "10 s");
    EXPECT_STREQ(wait_text(300000), "5 min");
    EXPECT_STREQ(wait_text(-1), "0 s");
}

} // namespace
