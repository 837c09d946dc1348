// SPDX-License-Identifier: MIT
// Reading and writing single configuration values.
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <uci.h>

#include "platform/text.h"
#include "platform/uci_access.h"
#include "tests/unit/support/sandbox.h"

namespace {

const std::string NETWORK = R"(
config interface 'wan'
	option ifname 'eth0'
	option proto 'dhcp'
	list dns '192.0.2.1'
	list dns '192.0.2.2'

config auto_wan_detect 'auto_wan_detect'
	option enable '1'
	option fake_wan_port '-1'

config rule
	option name 'first'

config rule
	option name 'second'
)";

class uci_access : public testing::Test {
protected:
    uci_access() { write_config("network", NETWORK); }
    ~uci_access() override
    {
        for (const char *package : {"network", "wan_detect", "broken"})
            remove_config(package);
        std::filesystem::remove_all("/tmp/.uci");
    }

    // Result of a read; the value buffer lies between guard bytes.
    int get(const std::string &path)
    {
        memset(&guarded, '#', sizeof guarded);
        return _uci_get_value(path.c_str(), guarded.value);
    }
    std::string value() const { return std::string(guarded.value, strnlen(guarded.value, sizeof guarded.value)); }
    bool untouched() const
    {
        return std::string(guarded.value, sizeof guarded.value) == std::string(UCI_VALUE_SIZE, '#');
    }

    static int set(const std::string &path, const char *value, std::string *left = nullptr)
    {
        char writable[256];
        strcpy(writable, path.c_str());
        int result = _uci_set_value_commit(writable, value);
        if (left)
            *left = writable;
        return result;
    }

    t_log_capture log;
    struct {
        char value[UCI_VALUE_SIZE];
        char guard[16];
    } guarded;
};

using bounded = testing::Test;

} // namespace

// holds: read-codes
TEST_F(uci_access, reads_a_string_option)
{
    EXPECT_EQ(get("network.wan.proto"), 0);
    EXPECT_EQ(value(), "dhcp");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(uci_access, reads_an_anonymous_section_by_type_and_index)
{
    EXPECT_EQ(get("network.@rule[1].name"), 0);
    EXPECT_EQ(value(), "second");
    EXPECT_EQ(get("network.@rule[-2].name"), 0);
    EXPECT_EQ(value(), "first");
}

// holds: option-short-path
TEST_F(uci_access, a_path_of_package_and_section_only_is_not_an_option)
{
    EXPECT_EQ(get("network.wan"), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "element type is not option:3"));
}

// holds: option-short-path
TEST_F(uci_access, a_path_of_a_package_only_is_not_an_option)
{
    EXPECT_EQ(get("network"), -1);
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "element type is not option:2"));
}

// holds: option-is-list
TEST_F(uci_access, a_list_option_is_not_a_string)
{
    EXPECT_EQ(get("network.wan.dns"), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "option type is not string:1"));
}

// holds: option-missing
TEST_F(uci_access, a_missing_option_stops_at_its_section)
{
    EXPECT_EQ(get("network.wan.nothing"), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "element type is not option:3"));
}

// holds: option-missing
TEST_F(uci_access, a_missing_section_is_a_failed_lookup)
{
    EXPECT_EQ(get("network.nothing.proto"), -1);
    EXPECT_EQ(get("network.nothing"), -1);
    EXPECT_EQ(get("network.@rule[7].name"), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr network.nothing.proto "));
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr network.nothing "));
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr network.@rule[7].name "));
}

// holds: option-missing
TEST_F(uci_access, a_missing_package_is_a_failed_lookup)
{
    EXPECT_EQ(get("sysmode.sysmode.mode"), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr sysmode.sysmode.mode "));
}

TEST_F(uci_access, a_malformed_package_is_a_failed_lookup)
{
    write_config("broken", "config section 'a'\n\toption 'unterminated\n");
    EXPECT_EQ(get("broken.a.b"), -1);
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr broken.a.b "));
}

TEST_F(uci_access, a_malformed_path_is_a_failed_lookup)
{
    for (const char *path : {"", ".", "..", "network.", ".wan.proto", "network.wan.proto.more", "network.wan.pro to",
                             "network.@rule[.name", "network.@rule[x].name", "../../etc/passwd", "\x01\xff"}) {
        EXPECT_EQ(get(path), -1) << path;
        EXPECT_TRUE(untouched()) << path;
        EXPECT_TRUE(log.has("Info", "_uci_get_value", std::string("fail to get ptr ") + path + " ")) << path;
    }
}

// holds: option-long-value
TEST_F(uci_access, a_value_of_100_characters_is_returned_as_its_first_64)
{
    std::string wanted = std::string(60, 'a') + "bcdefg";
    write_config("network", "config interface 'wan'\n\toption proto '" + wanted + std::string(34, 'z') + "'\n");
    EXPECT_EQ(get("network.wan.proto"), 0);
    EXPECT_EQ(value(), wanted.substr(0, 64));
    EXPECT_EQ(guarded.guard[0], '#');
}

TEST_F(uci_access, a_value_of_64_characters_is_returned_whole)
{
    write_config("network", "config interface 'wan'\n\toption proto '" + std::string(64, 'a') + "'\n");
    EXPECT_EQ(get("network.wan.proto"), 0);
    EXPECT_EQ(value(), std::string(64, 'a'));
}

TEST_F(uci_access, a_path_of_64_characters_is_read)
{
    std::string option(64 - strlen("network.wan."), 'o');
    write_config("network", "config interface 'wan'\n\toption " + option + " 'found'\n");
    EXPECT_EQ(get("network.wan." + option), 0);
    EXPECT_EQ(value(), "found");
}

TEST_F(uci_access, a_path_of_65_characters_is_refused_and_not_cut_to_another_one)
{
    std::string option(64 - strlen("network.wan."), 'o');
    write_config("network", "config interface 'wan'\n\toption " + option + " 'found'\n");
    std::string path = "network.wan." + option + "x";
    EXPECT_EQ(get(path), -1);
    EXPECT_TRUE(untouched());
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr " + path + " "));
}

// holds: read-codes
TEST_F(uci_access, a_null_path_is_refused)
{
    EXPECT_EQ(_uci_get_value(nullptr, guarded.value), UCI_ACCESS_FAILED);
    EXPECT_EQ(log.count("Error", "_uci_get_value", "p_uci_str or p_value is null"), 1);
}

TEST_F(uci_access, a_read_sees_what_another_program_wrote_meanwhile)
{
    EXPECT_EQ(get("network.wan.proto"), 0);
    write_config("network", "config interface 'wan'\n\toption proto 'pppoe'\n");
    EXPECT_EQ(get("network.wan.proto"), 0);
    EXPECT_EQ(value(), "pppoe");
}

// holds: write-codes
TEST_F(uci_access, a_write_is_in_the_file_at_once)
{
    EXPECT_EQ(set("network.auto_wan_detect.fake_wan_port", "eth3"), 0);
    EXPECT_NE(read_file("/etc/config/network").find("option fake_wan_port 'eth3'"), std::string::npos);
    EXPECT_EQ(get("network.wan.proto"), 0);
    EXPECT_EQ(value(), "dhcp");
}

TEST_F(uci_access, a_write_tells_each_step)
{
    set("network.auto_wan_detect.fake_wan_port", "eth3");
    const char *function = "_uci_set_value_commit";
    EXPECT_TRUE(log.has("Info", function, "p_uci_str:network.auto_wan_detect.fake_wan_port, p_value:eth3"));
    EXPECT_TRUE(log.has("Debug", function, "p_uci.uci_type:4"));
    EXPECT_TRUE(log.has("Debug", function, "p_uci.package:network"));
    EXPECT_TRUE(log.has("Debug", function, "p_uci.section:auto_wan_detect"));
    EXPECT_TRUE(log.has("Debug", function, "p_uci.option:fake_wan_port"));
    EXPECT_TRUE(log.has("Debug", function, "p_uci.value:eth3"));
    EXPECT_TRUE(log.has("Info", function, "Success to set network.auto_wan_detect.fake_wan_port = eth3 "));
}

// holds: write-path-cut
TEST_F(uci_access, a_write_cuts_the_callers_path_at_its_first_dot)
{
    std::string left;
    EXPECT_EQ(set("network.auto_wan_detect.fake_wan_port", "-1", &left), 0);
    EXPECT_EQ(left, "network");
}

TEST_F(uci_access, a_write_adds_a_missing_option_to_its_section)
{
    EXPECT_EQ(set("network.wan.metric", "10"), 0);
    EXPECT_EQ(get("network.wan.metric"), 0);
    EXPECT_EQ(value(), "10");
}

// holds: write-codes
TEST_F(uci_access, a_write_into_a_missing_section_fails)
{
    std::string before = read_file("/etc/config/network");
    EXPECT_EQ(set("network.nothing.metric", "10"), -1);
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to set ptr network.nothing.metric (ret:2)"));
    EXPECT_EQ(read_file("/etc/config/network"), before);
}

// holds: write-codes
TEST_F(uci_access, a_write_into_a_missing_package_fails)
{
    EXPECT_EQ(set("nothing.wan.metric", "10"), -1);
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to get ptr again nothing.wan.metric "));
    EXPECT_FALSE(file_exists("/etc/config/nothing"));
}

TEST_F(uci_access, a_write_to_a_package_only_fails)
{
    EXPECT_EQ(set("network", "10"), -1);
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to set ptr network (ret:2)"));
    EXPECT_TRUE(log.has("Debug", "_uci_set_value_commit", "p_uci.section:"));
}

TEST_F(uci_access, a_write_to_a_path_of_more_than_64_characters_is_refused)
{
    std::string path = "network.wan." + std::string(60, 'o');
    EXPECT_EQ(set(path, "1"), -1);
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to get ptr again " + path + " "));
}

// holds: write-codes
TEST_F(uci_access, a_write_that_cannot_be_committed_says_so)
{
    // The configuration library replaces the file; a folder in its place lets the look-up fail, so the save folder is
    // what is taken away here.
    write_file("/tmp/.uci", "a file where a folder should be");
    EXPECT_EQ(set("network.wan.metric", "10"), -1);
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to commit network.wan.metric"));
}

TEST_F(uci_access, a_written_value_may_hold_quotes_and_lines)
{
    const char *odd = "it's \"two\"\nlines; # $(reboot)";
    EXPECT_EQ(set("network.wan.note", odd), 0);
    EXPECT_EQ(get("network.wan.note"), 0);
    EXPECT_EQ(value(), odd);
}

// holds: write-codes
TEST_F(uci_access, null_arguments_of_a_write_are_refused)
{
    char path[] = "network.wan.proto";
    EXPECT_EQ(_uci_set_value_commit(nullptr, "x"), -1);
    EXPECT_EQ(_uci_set_value_commit(path, nullptr), -1);
    EXPECT_EQ(log.count("Error", "_uci_set_value_commit", "p_uci_str or p_value is null"), 2);
    EXPECT_STREQ(path, "network.wan.proto");
}

TEST_F(uci_access, a_package_is_opened_for_a_walk)
{
    t_uci_package network("network");
    ASSERT_NE(network.package, nullptr);
    int rules = 0;
    uci_element *element;
    uci_foreach_element(&network.package->sections, element) rules +=
        strcmp(uci_to_section(element)->type, "rule") == 0;
    EXPECT_EQ(rules, 2);
}

// holds: load-reason
TEST_F(uci_access, a_package_that_cannot_be_loaded_is_null_and_its_reason_is_told_on_standard_error_when_asked_for)
{
    write_config("broken", "config section 'a'\n\toption 'unterminated\n");
    testing::internal::CaptureStderr();
    const t_uci_package missing("nothing");
    const t_uci_package malformed("broken");
    const t_uci_package refused("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(!missing.package && !malformed.package && !refused.package);
    testing::internal::CaptureStderr();
    for (const t_uci_package *package : {&missing, &malformed, &refused})
        package->tell_error();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "nothing: Entry not found\nbroken: Parse error\n: Invalid argument\n");
}

// holds: load-reason
TEST_F(uci_access, the_reason_is_told_the_same_however_often)
{
    const t_uci_package missing("nothing");
    testing::internal::CaptureStderr();
    for (int i = 0; i < 200; i++)
        missing.tell_error();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.size(), 200 * strlen("nothing: Entry not found\n"));
}

TEST(bounded_copy, copies_what_fits_and_tells_the_wanted_length)
{
    char destination[8];
    memset(destination, '#', sizeof destination);
    EXPECT_EQ(bounded_copy(destination, "abcdef", 4), 6u);
    EXPECT_STREQ(destination, "abc");
    EXPECT_EQ(destination[4], '#');
    EXPECT_EQ(bounded_copy(destination, "ab", sizeof destination), 2u);
    EXPECT_STREQ(destination, "ab");
    EXPECT_EQ(bounded_copy(destination, "", sizeof destination), 0u);
    EXPECT_STREQ(destination, "");
}

TEST(bounded_copy, without_room_copies_nothing)
{
    char destination = '#';
    EXPECT_EQ(bounded_copy(&destination, "abc", 0), 3u);
    EXPECT_EQ(destination, '#');
    EXPECT_EQ(bounded_copy(&destination, "abc", 1), 3u);
    EXPECT_EQ(destination, '\0');
}
