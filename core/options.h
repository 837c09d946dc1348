// SPDX-License-Identifier: MIT
// The command line.
#pragma once

// What the parser found last; only the first two matter to main, which ends with status 1 or 0.
constexpr int OPTIONS_STOP = 0;
constexpr int OPTIONS_VERSION = 1; // nothing behind it is looked at
constexpr int OPTIONS_LEVEL = 100;
constexpr int OPTIONS_NONE = 999;

struct t_options {
    int log_level;   // from the last valid -d
    bool has_level;  // a valid -d was there: the log's destination is opened too
    bool foreground; // the process that was started is the daemon
};

// Reads the options; what there is to say goes to /dev/console, the version to standard output. One of the OPTIONS_
// values.
int parse_options(int argc, char **argv, t_options *options);
