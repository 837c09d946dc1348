// SPDX-License-Identifier: MIT
#include "status/terminal.h"

#include <cstdlib>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace {

t_terminal terminal(bool is_terminal, const std::map<std::string, std::string> &environment)
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG", "TERM", "NO_COLOR"})
        unsetenv(name);
    for (const auto &[name, value] : environment)
        setenv(name.c_str(), value.c_str(), 1);
    return look_at_terminal(is_terminal);
}

// holds: status-plain-text
TEST(status_terminal, is_ascii_unless_the_locale_says_utf8)
{
    EXPECT_FALSE(terminal(true, {{"TERM", "xterm"}}).look.utf8);
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"})
        for (const char *locale : {"C.UTF-8", "de_DE.utf8", "en_GB.UTF-8@euro"})
            EXPECT_TRUE(terminal(true, {{"TERM", "xterm"}, {name, locale}}).look.utf8) << name << locale;
    EXPECT_FALSE(terminal(true, {{"TERM", "xterm"}, {"LANG", "C.UTF-8"}, {"LC_ALL", "C"}}).look.utf8);
    EXPECT_FALSE(terminal(true, {{"TERM", "xterm"}, {"LANG", "C.UTF-8"}, {"LC_CTYPE", "POSIX"}}).look.utf8);
    EXPECT_TRUE(terminal(true, {{"TERM", "xterm"}, {"LANG", "C.UTF-8"}, {"LC_ALL", ""}}).look.utf8);
}

// holds: status-plain-text
TEST(status_terminal, is_ascii_where_it_can_do_no_better)
{
    EXPECT_FALSE(terminal(true, {{"LANG", "C.UTF-8"}, {"TERM", "dumb"}}).look.utf8);
    EXPECT_FALSE(terminal(false, {{"LANG", "C.UTF-8"}, {"TERM", "dumb"}}).look.utf8);
    EXPECT_FALSE(terminal(true, {{"LANG", "C.UTF-8"}}).look.utf8);
    EXPECT_TRUE(terminal(false, {{"LANG", "C.UTF-8"}}).look.utf8);
}

// holds: status-plain-text
TEST(status_terminal, has_colours_only_as_a_terminal_and_where_nobody_minds)
{
    EXPECT_TRUE(terminal(true, {{"TERM", "xterm"}}).look.color);
    EXPECT_FALSE(terminal(false, {{"TERM", "xterm"}}).look.color);
    EXPECT_FALSE(terminal(true, {{"TERM", "dumb"}}).look.color);
    EXPECT_FALSE(terminal(true, {}).look.color);
    EXPECT_FALSE(terminal(true, {{"TERM", "xterm"}, {"NO_COLOR", "1"}}).look.color);
    EXPECT_TRUE(terminal(true, {{"TERM", "xterm"}, {"NO_COLOR", ""}}).look.color);
}

// holds: status-watch
TEST(status_terminal, is_drawn_upon_again_only_when_it_can_be)
{
    EXPECT_TRUE(terminal(true, {{"TERM", "xterm"}, {"NO_COLOR", "1"}}).can_redraw);
    EXPECT_FALSE(terminal(true, {{"TERM", "dumb"}}).can_redraw);
    EXPECT_FALSE(terminal(false, {{"TERM", "xterm"}}).can_redraw);
}

} // namespace
