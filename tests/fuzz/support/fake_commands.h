// SPDX-License-Identifier: MIT
// Stands in for platform/command.cpp: no program is started, and what one would have printed is the input's.
#pragma once

#include <functional>
#include <string>

struct t_fake_commands {
    bool start = true;                                             // false: there is no shell
    std::function<std::string(const std::string &command)> prints; // the standard output of one; unset for nothing
    std::function<int(const std::string &command)> ends;           // the wait status of one; unset for success
};

extern t_fake_commands fake_commands;

// Every command prints this.
void commands_print(const std::string &text);
