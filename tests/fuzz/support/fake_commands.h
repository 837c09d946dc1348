// SPDX-License-Identifier: MIT
// Stands in for platform/command.cpp: no program is started, and what one would have printed is the input's.
#pragma once

#include <string>

// The standard output of the next command, whichever it is.
extern std::string command_output;
