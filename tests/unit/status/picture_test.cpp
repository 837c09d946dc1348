// SPDX-License-Identifier: MIT
#include "status/picture.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/status/replies.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr t_look UTF8 = {true, false};
constexpr t_look ASCII = {false, false};
constexpr t_look COLORS = {true, true};

std::string picture(const std::string &status, const std::string &history, t_look look)
{
    t_reply first(status), second(history);
    return printed([&](FILE *out) { draw_picture(out, first.blob(), second.blob(), look); });
}

std::string kept_picture(const std::string &name, t_look look)
{
    return picture(kept_reply(name, "status"), kept_reply(name, "history"), look);
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

long columns(const std::string &line)
{
    return std::count_if(line.begin(), line.end(), [](char byte) { return (byte & 0xc0) != 0x80; });
}

bool is_plain(const std::string &text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return byte == '\n' || (byte >= ' ' && byte <= '~'); });
}

class status_picture : public testing::TestWithParam<const char *> {};

// holds: status-picture
TEST_P(status_picture, is_the_kept_one)
{
    const std::string kept = std::string(WAN_DETECT_TEST_DATA "/golden/status/") + GetParam();
    EXPECT_EQ(kept_picture(GetParam(), UTF8), read_file(kept + ".utf8.txt"));
    EXPECT_EQ(kept_picture(GetParam(), ASCII), read_file(kept + ".ascii.txt"));
}

// holds: status-picture
TEST_P(status_picture, is_at_most_80_columns_wide_and_has_no_blanks_at_the_end_of_a_line)
{
    for (const t_look look : {UTF8, ASCII})
        for (const std::string &line : lines_of(kept_picture(GetParam(), look))) {
            EXPECT_LE(columns(line), 80) << line;
            EXPECT_FALSE(line.ends_with(' ')) << line;
        }
}

// holds: status-plain-text
TEST_P(status_picture, is_ascii_where_that_is_asked_for)
{
    EXPECT_TRUE(is_plain(kept_picture(GetParam(), ASCII)));
}

// holds: status-plain-text
TEST_P(status_picture, differs_in_nothing_but_the_colours_when_it_is_coloured)
{
    std::string text = kept_picture(GetParam(), COLORS);
    EXPECT_NE(text.find("\033[1m"), text.npos);
    for (size_t start; (start = text.find("\033[")) != text.npos;)
        text.erase(start, text.find('m', start) - start + 1);
    EXPECT_EQ(text, kept_picture(GetParam(), UTF8));
}

INSTANTIATE_TEST_SUITE_P(panels, status_picture, testing::Values("2_ports", "5_ports", "8_ports", "16_ports"),
                         [](const auto &one) { return "with_" + std::string(one.param); });

// holds: status-picture
TEST(status_picture_of, a_port_that_has_the_role_shows_that_before_all_else)
{
    for (const char *why : {"works", "won", "silent"}) {
        const std::string text = picture(R"({"ports": [{"name": "eth0", "link": true, "why": ")" + std::string(why) +
                                             R"(", "lan_hosts": 2, "reserved": "gaming"}]})",
                                         "{}", ASCII);
        EXPECT_NE(text.find(why == std::string("silent") ? "gaming" : why), text.npos) << text;
    }
}

// holds: status-hostile-replies
TEST(status_picture_of, nothing_is_a_picture_without_ports)
{
    const std::string of_nothing = printed([](FILE *out) { draw_picture(out, nullptr, nullptr, ASCII); });
    EXPECT_EQ(of_nothing, picture("{}", "{}", ASCII));
    EXPECT_EQ(of_nothing.find("eth"), of_nothing.npos);
}

// holds: status-hostile-replies
TEST(status_picture_of, fields_of_other_types_is_that_of_nothing)
{
    const std::string status =
        R"({"version": 1, "uptime": "long", "cycle": [], "wan": {}, "ports": 7, "hints": 4,
                                   "counters": "many", "enabled": "no", "router_mode": "no"})";
    EXPECT_EQ(picture(status, R"({"cycles": "none"})", ASCII), picture("{}", "{}", ASCII));
}

// holds: status-hostile-replies
TEST(status_picture_of, elements_of_other_types_has_empty_cells)
{
    const std::string text =
        picture(R"({"ports": [1, "eth0", [], {"name": 7, "link": "up", "answer": 4}], "hints": [5]})",
                R"({"cycles": [3, {"decision": 4, "asked": "eth0", "took_ms": "long"}]})", ASCII);
    EXPECT_NE(text.find("no link"), text.npos);
    EXPECT_EQ(text.find("eth0"), text.npos);
}

// holds: status-hostile-replies
TEST(status_picture_of, text_from_outside_moves_no_cursor_and_breaks_no_cell)
{
    const std::string evil = R"(\u001b[2J\r\n\u009b\u00e4)" + std::string(300, 'x');
    const std::string status =
        R"({"version": "V", "connection": "V", "wan": "V", "cycle": {"state": "V", "next": "V"}, "hints": ["V"],
        "ports": [{"name": "V", "label": "V", "side": "V", "why": "V", "link": true,
                   "answer": {"protocol": "V", "mac": "V", "address": "V", "gateway": "V", "dns": "V"}}]})";
    const std::string history = R"({"cycles": [{"opener": "V", "decision": "V", "winner": "V", "swap": "failed"}]})";
    const auto with_evil = [&](std::string text) {
        for (size_t place; (place = text.find("\"V\"")) != text.npos;)
            text.replace(place, 3, "\"" + evil + "\"");
        return text;
    };
    const std::string text = picture(with_evil(status), with_evil(history), ASCII);
    EXPECT_TRUE(is_plain(text));
    for (const std::string &line : lines_of(text)) {
        EXPECT_TRUE(!line.starts_with("  |") || columns(line) == 18) << line;
        EXPECT_LE(columns(line), 80) << line;
    }
}

// holds: status-hostile-replies
TEST(status_picture_of, a_thousand_ports_shows_some_and_tells_of_the_others)
{
    std::string ports = R"({"name": "eth0", "link": true})";
    for (int i = 1; i < 1000; i++)
        ports += R"(, {"name": "eth0", "link": true})";
    const std::string text = picture(R"({"ports": [)" + ports + "]}", "{}", ASCII);
    EXPECT_NE(text.find("and 968 more"), text.npos);
    EXPECT_LT(lines_of(text).size(), 100u);
}

// holds: status-hostile-replies
TEST(status_picture_of, numbers_without_sense_is_drawn_all_the_same)
{
    for (const char *number : {"-1", "-2147483648", "2147483647", "9223372036854775807", "-9223372036854775808"}) {
        const auto with_number = [&](std::string text) {
            for (size_t place; (place = text.find("NN")) != text.npos;)
                text.replace(place, 2, number);
            return text;
        };
        const std::string text = picture(
            with_number(R"({"uptime": NN, "cycle": {"next": "look", "next_ms": NN}, "swap_pause": NN,
                        "counters": {"swaps_failed_in_a_row": NN},
                        "ports": [{"name": "eth0", "banned": NN, "lan_hosts": NN, "answer": {"ago": NN}}]})"),
            with_number(R"({"cycles": [{"ago": NN, "took_ms": NN, "swap_status": NN, "swap": "failed"}]})"), ASCII);
        EXPECT_NE(text.find("eth0"), text.npos) << number;
        for (const std::string &line : lines_of(text))
            EXPECT_LE(columns(line), 80) << line;
    }
}

} // namespace
