// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/fake_commands.h"

#include <algorithm>
#include <cstring>

#include "platform/command.h"
#include "tests/fuzz/support/fuzz.h"

t_fake_commands fake_commands;

void commands_print(const std::string &text)
{
    fake_commands.prints = [text](const std::string &) { return text; };
}

int capture_command(std::span<char> room, const char *command)
{
    REQUIRE(!room.empty() && *command);
    if (!fake_commands.start)
        return -1;
    const std::string output = fake_commands.prints ? fake_commands.prints(command) : "";
    const size_t taken = std::min(output.size(), room.size() - 1);
    memcpy(room.data(), output.data(), taken);
    room[taken] = '\0';
    return 0;
}

int run_command(const char *command)
{
    REQUIRE(*command);
    if (!fake_commands.start)
        return -1;
    return fake_commands.ends ? fake_commands.ends(command) : 0;
}
