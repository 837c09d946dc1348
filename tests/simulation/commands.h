// SPDX-License-Identifier: MIT
// The router's own commands: what one prints, how long it takes, how it ends and what it changes is the world's to say.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

#include "tests/simulation/scheduler.h"

namespace sim {

// What a command is going to do, unless it is killed before.
struct t_plan {
    t_time takes = MILLISECOND;   // until it ends; NEVER for one that hangs
    t_time acts_after = 0;        // until its effect
    std::string prints;           // when it acts
    std::function<void()> effect; // may be empty
    std::function<void()> half;   // of a command that is cut off in the midst of its work
    int status = 0;               // as wait() tells it: an exit status is shifted by 8 bits
    bool heeds_term = true;       // else only SIGKILL ends it
    int start_error = 0;          // it cannot be started at all
};

// What the router knows under a name. The longest name that a command line begins with counts. To add or bend one: a
// plan() in a file of its own and a line in the table of router_commands.cpp.
struct t_command_kind {
    const char *name;
    t_plan (*plan)(const std::string &command);
};

t_plan plan_command(const std::string &command); // router_commands.cpp

int count_of_commands(); // started and not collected

// For the doors of signals and descriptors.
int signal_commands(pid_t pid, int number);
int open_end_of_command(pid_t pid);

} // namespace sim
