// SPDX-License-Identifier: MIT
// Stands in for the router's programs and remembers what was asked of them.
#pragma once

#include <string>
#include <vector>

extern std::vector<std::string> commands_run;
