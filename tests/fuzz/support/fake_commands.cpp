// SPDX-License-Identifier: MIT
#include "fuzz/support/fake_commands.h"

#include <algorithm>
#include <cstring>

#include "fuzz/support/fuzz.h"
#include "platform/command.h"

std::string command_output;

int capture_command(char *buffer, const char *command, size_t size)
{
    REQUIRE(size > 0 && *command);
    const size_t taken = std::min(command_output.size(), size - 1);
    memcpy(buffer, command_output.data(), taken);
    buffer[taken] = '\0';
    return 0;
}

int run_command(const char *command)
{
    REQUIRE(*command);
    return 0;
}
