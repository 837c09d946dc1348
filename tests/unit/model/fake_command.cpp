// SPDX-License-Identifier: MIT
#include "tests/unit/model/fake_command.h"

#include "platform/command.h"

std::vector<std::string> commands_run;

int capture_command(std::span<char> room, const char *command)
{
    commands_run.push_back(command);
    if (!room.empty())
        room[0] = '\0';
    return 0;
}

int run_command(const char *command)
{
    commands_run.push_back(command);
    return 0;
}
