// SPDX-License-Identifier: MIT
#include "core/options.h"

#include <regex>

#include <getopt.h>

#include <gtest/gtest.h>

#include "tests/unit/core/fake_router.h"
#include "tests/unit/support/sandbox.h"

namespace {

class options : public testing::Test {
protected:
    void SetUp() override { fake_router = {}; }

    int parse(std::vector<std::string> words)
    {
        words.insert(words.begin(), "/usr/sbin/wan_detect");
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        optind = 0;
        return parse_options(static_cast<int>(words.size()), argv.data(), &found);
    }
    t_options found = {};
};

constexpr const char *TRY = "echo 'Try: /usr/sbin/wan_detect --help for more information!' > /dev/console";
constexpr const char *USAGE =
    "echo 'Usage: /usr/sbin/wan_detect -d/--debug [0(emergy)~7(debug)] to specify the debug level!' > /dev/console";

// holds: no-options, options-result
TEST_F(options, without_options_the_level_is_critical_and_start_up_goes_on)
{
    EXPECT_EQ(parse({}), 999);
    EXPECT_EQ(found.log_level, 2);
    EXPECT_FALSE(found.has_level);
    EXPECT_TRUE(fake_router.commands.empty());
}

// holds: level-1-to-7, options-result
TEST_F(options, each_level_from_1_to_7_is_taken)
{
    for (int level = 1; level <= 7; level++) {
        SetUp();
        std::string text = std::to_string(level);
        EXPECT_EQ(parse({"-d", text}), 100);
        EXPECT_EQ(found.log_level, level);
        EXPECT_TRUE(found.has_level);
        EXPECT_EQ(fake_router.commands, (std::vector<std::string>{"echo 'Success set wan_detect debug level to " +
                                                                  text + "!' > /dev/console"}));
    }
    EXPECT_EQ(parse({"--debug", "5"}), 100);
    EXPECT_EQ(parse({"--debug=6"}), 100);
    EXPECT_EQ(found.log_level, 6);
}

// holds: level-out-of-range
TEST_F(options, a_level_of_0_or_8_is_refused_and_start_up_goes_on)
{
    for (const char *level : {"0", "8", "-1", "x", "99999999999"}) {
        SetUp();
        EXPECT_EQ(parse({"-d", level}), 100);
        EXPECT_EQ(found.log_level, 2);
        EXPECT_FALSE(found.has_level);
        EXPECT_EQ(fake_router.commands, (std::vector<std::string>{std::string("echo 'Invalid option -d ") + level +
                                                                  ", Run as default critical debug level!' > "
                                                                  "/dev/console"}));
    }
}

// holds: help, options-result
TEST_F(options, help_prints_the_usage_and_stops)
{
    EXPECT_EQ(parse({"-h"}), 0);
    EXPECT_EQ(fake_router.commands, (std::vector<std::string>{USAGE}));
    EXPECT_EQ(parse({"--help"}), 0);
}

// holds: wrong-options
TEST_F(options, an_unknown_option_or_a_missing_level_points_to_help_and_stops)
{
    opterr = 1;
    testing::internal::CaptureStderr();
    for (const char *word : {"-x", "--nonsense", "-d"}) {
        SetUp();
        EXPECT_EQ(parse({word}), 0);
        EXPECT_EQ(fake_router.commands, (std::vector<std::string>{TRY}));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the console is told, and nobody else";
}

// holds: wrong-options
TEST_F(options, a_later_option_overrides_an_earlier_result)
{
    EXPECT_EQ(parse({"-d", "5", "-h"}), 0);
    EXPECT_EQ(parse({"-h", "-d", "5"}), 100);
    EXPECT_EQ(found.log_level, 5);
}

// The one place where it stands.
std::string version_of_project()
{
    const std::string project = read_file(WAN_DETECT_TEST_DATA "/../CMakeLists.txt");
    std::smatch found;
    EXPECT_TRUE(std::regex_search(project, found, std::regex(R"(project\(wan_detect VERSION (\d+\.\d+\.\d+) )")));
    return found[1];
}

// holds: version
TEST_F(options, the_version_is_that_of_the_project_and_nothing_behind_it_is_looked_at)
{
    for (const char *word : {"-V", "--version"}) {
        t_log_capture output;
        EXPECT_EQ(parse({"-f", word, "-d", "5", "-x"}), 1);
        EXPECT_EQ(output.text(), "wan_detect " + version_of_project() + "\n");
        EXPECT_FALSE(found.has_level);
        EXPECT_TRUE(fake_router.commands.empty());
    }
}

// holds: foreground
TEST_F(options, the_foreground_changes_no_result)
{
    EXPECT_EQ(parse({}), 999);
    EXPECT_FALSE(found.foreground);
    for (const char *word : {"-f", "--foreground"}) {
        EXPECT_EQ(parse({word}), 999);
        EXPECT_TRUE(found.foreground);
        EXPECT_EQ(parse({word, "-d", "5"}), 100);
        EXPECT_TRUE(found.foreground);
    }
    EXPECT_EQ(parse({"-h", "-f"}), 0);
    EXPECT_EQ(parse({"-f", "-x"}), 0);
}

// holds: status-option
TEST_F(options, the_status_is_asked_for_by_long_options_alone)
{
    EXPECT_EQ(parse({"--status"}), OPTIONS_STATUS);
    EXPECT_TRUE(found.status.wanted && !found.status.watch && !found.status.json);
    EXPECT_EQ(parse({"--watch", "--status"}), OPTIONS_STATUS);
    EXPECT_TRUE(found.status.wanted && found.status.watch && !found.status.json);
    EXPECT_EQ(parse({"--status", "--json", "--watch"}), OPTIONS_STATUS);
    EXPECT_TRUE(found.status.wanted && found.status.watch && found.status.json);
    EXPECT_TRUE(fake_router.commands.empty());
    for (const char *letter : {"-s", "-w", "-j"})
        EXPECT_EQ(parse({letter}), OPTIONS_STOP);
}

// holds: status-option, wrong-options
TEST_F(options, the_status_goes_with_no_option_of_the_daemon_and_its_own_go_with_nothing_else)
{
    const std::vector<std::vector<std::string>> WRONG = {{"--watch"},       {"--json"},         {"--watch", "--json"},
                                                         {"-f", "--watch"}, {"--status", "-f"}, {"--status", "-x"}};
    for (const auto &words : WRONG) {
        SetUp();
        EXPECT_EQ(parse(words), OPTIONS_STOP) << words.front();
        EXPECT_EQ(fake_router.commands, (std::vector<std::string>{TRY})) << words.front();
    }
    EXPECT_EQ(parse({"-d", "5", "--status"}), OPTIONS_STOP);
    EXPECT_EQ(fake_router.commands.back(), TRY);
    SetUp();
    EXPECT_EQ(parse({"--status", "-h"}), OPTIONS_STOP);
    EXPECT_EQ(fake_router.commands, (std::vector<std::string>{USAGE}));
}

TEST_F(options, text_from_outside_cannot_leave_its_quotes)
{
    parse({"-d", "8'; touch /tmp/broken; echo '"});
    EXPECT_EQ(fake_router.commands,
              (std::vector<std::string>{"echo 'Invalid option -d 8'\\''; touch /tmp/broken; echo '\\'', Run as default "
                                        "critical debug level!' > /dev/console"}));
}

TEST_F(options, text_of_any_length_gives_one_whole_command)
{
    parse({"-d", std::string(5000, '\'')});
    ASSERT_EQ(fake_router.commands.size(), 1u);
    const std::string &command = fake_router.commands.front();
    EXPECT_EQ(command.substr(command.size() - 16), "' > /dev/console");
}

} // namespace
