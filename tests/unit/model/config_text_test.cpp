// SPDX-License-Identifier: MIT
#include "model/config_text.h"

#include "tests/unit/model/model_test.h"

namespace {

using config_text = t_model_test;

t_names words_of(const std::string &text)
{
    t_names words;
    char word[CONFIG_TEXT_SIZE];
    for (const char *rest = text.c_str(); next_word(&rest, word);)
        words.push_back(word);
    return words;
}

int decimal(const char *text)
{
    int number = -1000;
    parse_decimal(text, -128, 127, &number);
    return number;
}

} // namespace

TEST_F(config_text, words_are_separated_by_spaces)
{
    EXPECT_EQ(words_of("4 2"), (t_names{"4", "2"}));
    EXPECT_EQ(words_of("eth0"), t_names{"eth0"});
    EXPECT_EQ(words_of("a\tb c"), (t_names{"a\tb", "c"}));
}

TEST_F(config_text, spaces_at_the_ends_and_several_in_a_row_make_no_empty_words)
{
    EXPECT_EQ(words_of("  4   2 "), (t_names{"4", "2"}));
    EXPECT_EQ(words_of(""), t_names{});
    EXPECT_EQ(words_of("    "), t_names{});
}

TEST_F(config_text, a_word_longer_than_any_value_is_cut)
{
    EXPECT_EQ(words_of(std::string(1000, 'x') + " y"), (t_names{std::string(CONFIG_TEXT_SIZE - 1, 'x'), "y"}));
}

TEST_F(config_text, only_whole_decimal_numbers_in_range_are_numbers)
{
    EXPECT_EQ(decimal("4"), 4);
    EXPECT_EQ(decimal("-1"), -1);
    EXPECT_EQ(decimal("127"), 127);
    for (const char *bad :
         {"", " ", "x", "4x", "4 ", "0x4", "4.5", "128", "-129", "99999999999999999999999999", "\xff"})
        EXPECT_EQ(decimal(bad), -1000) << bad;
}

TEST_F(config_text, the_interface_of_a_switch_section_is_read)
{
    write_config("switch", section("switch_port", "port4", {{"ifname", "eth4"}}));
    char key[SWITCH_KEY_SIZE], ifname[UCI_VALUE_SIZE] = "before";
    EXPECT_EQ(read_switch_ifname("port", "4", key, ifname), 0);
    EXPECT_STREQ(key, "switch.port4.ifname");
    EXPECT_STREQ(ifname, "eth4");
    EXPECT_NE(read_switch_ifname("", "port5", key, ifname), 0);
    EXPECT_STREQ(key, "switch.port5.ifname");
    EXPECT_STREQ(ifname, "");
}

TEST_F(config_text, a_switch_section_of_absurd_name_is_a_failed_read)
{
    write_config("switch", section("switch_port", "port4", {{"ifname", "eth4"}}));
    char key[SWITCH_KEY_SIZE], ifname[UCI_VALUE_SIZE];
    for (const std::string &name : {std::string(256, '4'), std::string("4.ifname"), std::string("4=x"),
                                    std::string("@["), std::string("\x01\xff"), std::string()}) {
        EXPECT_NE(read_switch_ifname("port", name.c_str(), key, ifname), 0) << name;
        EXPECT_EQ(std::string(key), "switch.port" + name + ".ifname");
        EXPECT_STREQ(ifname, "");
    }
}

TEST_F(config_text, missing_sections_and_options_are_null)
{
    write_config("switch", section("switch_port", "port4", {{"ifname", "eth4"}}));
    t_uci_package opened("switch");
    ASSERT_NE(opened.package, nullptr);
    uci_section *port = find_config_section(opened.package, "port4");
    ASSERT_NE(port, nullptr);
    ASSERT_NE(find_config_option(port, "ifname"), nullptr);
    EXPECT_STREQ(option_text(find_config_option(port, "ifname")), "eth4");
    EXPECT_EQ(find_config_option(port, "label"), nullptr);
    EXPECT_EQ(find_config_section(opened.package, "port5"), nullptr);
    EXPECT_EQ(find_config_option(nullptr, "ifname"), nullptr);
    EXPECT_TRUE(options_of(nullptr).begin() == options_of(nullptr).end());
}

TEST_F(config_text, a_list_has_no_single_text)
{
    write_config("switch", section("switch_port", "port4", {}) + list_option("ifname", {"eth4", "eth5"}));
    t_uci_package opened("switch");
    ASSERT_NE(opened.package, nullptr);
    const uci_option *option = find_config_option(find_config_section(opened.package, "port4"), "ifname");
    ASSERT_NE(option, nullptr);
    EXPECT_TRUE(is_list_option(option));
    EXPECT_EQ(option_text(option), nullptr);
}
