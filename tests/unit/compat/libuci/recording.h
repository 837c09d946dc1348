// SPDX-License-Identifier: MIT
// Recorded sessions of tests/golden/uci: the commands in their order and what each of them answered.
#pragma once

#include <string>
#include <vector>

struct recorded_command {
    std::string arguments; // after "uci", quoted for a shell
    int status = 0;
    std::string out; // recorded for the editing commands only
    std::string err;
};

struct recorded_session {
    std::vector<recorded_command> before; // on the untouched files
    std::vector<recorded_command> edits;
    std::vector<recorded_command> after; // the closing changes, commit and show
    std::string saved;                   // the save directory at the end, as text; empty if not recorded
};

std::string case_path(const std::string &name);
std::vector<std::string> case_names();
recorded_session read_session(const std::string &name);
