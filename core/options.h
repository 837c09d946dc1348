// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include "status/show_status.h"

// What the parser found last; the first three end main: with status 1, with 0, with the client's own.
constexpr int OPTIONS_STOP = 0;
constexpr int OPTIONS_VERSION = 1; // nothing behind it is looked at
constexpr int OPTIONS_STATUS = 2;  // nothing of the daemon is started
constexpr int OPTIONS_LEVEL = 100;
constexpr int OPTIONS_NONE = 999;

struct t_options {
    int log_level;   // from the last valid -d
    bool has_level;  // a valid -d was there: the log's destination is opened too
    bool foreground; // the process that was started is the daemon
    t_status_wish status;
};

// Reads the options; what there is to say goes to /dev/console, the version to standard output. One of the OPTIONS_
// values.
int parse_options(int argc, char **argv, t_options *options);
