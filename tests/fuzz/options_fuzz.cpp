// SPDX-License-Identifier: MIT
// The command line. Each line of the input is an argument. Whatever they say, the shell gets well-formed commands: what
// stands in them is taken literally.
#include <getopt.h>

#include "core/options.h"
#include "platform/log.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr size_t MOST_ARGUMENTS = 16;

// Reads a command as the shell would: "echo '...' > /dev/console", with '\'' for a quote.
int read_like_shell(const std::string &command)
{
    constexpr std::string_view BEFORE = "echo '", AFTER = "' > /dev/console", QUOTE = "'\\''";
    REQUIRE(command.starts_with(BEFORE) && command.ends_with(AFTER));
    REQUIRE(command.size() >= BEFORE.size() + AFTER.size());
    std::string_view text = command;
    text.remove_prefix(BEFORE.size());
    text.remove_suffix(AFTER.size());
    for (size_t quote; (quote = text.find('\'')) != text.npos;) {
        REQUIRE(text.substr(quote).starts_with(QUOTE));
        text.remove_prefix(quote + QUOTE.size());
    }
    return 0;
}

} // namespace

void prepare()
{
    fake_commands.ends = read_like_shell;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<std::string> words = split(text_of({data, size}), "\n", MOST_ARGUMENTS);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    optind = 0; // from the start again, with everything forgotten
    t_options options;
    const int found = parse_options(static_cast<int>(words.size()), arguments.data(), &options);
    REQUIRE(found == OPTIONS_STOP || found == OPTIONS_VERSION || found == OPTIONS_STATUS || found == OPTIONS_LEVEL ||
            found == OPTIONS_NONE);
    REQUIRE(found != OPTIONS_STATUS || (options.status.wanted && !options.has_level && !options.foreground));
    REQUIRE(options.log_level >= 1 && options.log_level <= LOG_LEVEL_Debug);
    REQUIRE(options.has_level || options.log_level == LOG_LEVEL_Critical);
    return 0;
}
