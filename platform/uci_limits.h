// SPDX-License-Identifier: MIT
// Where the configuration stands, how long what is read of it may be, and what a call that failed returns.
#pragma once

#include <cstddef>

constexpr const char *UCI_CONFIG_DIR = "/etc/config";
constexpr size_t UCI_PATH_SIZE = 65;  // longest path that can be read, with its terminator
constexpr size_t UCI_VALUE_SIZE = 65; // every value buffer; longer values are cut
constexpr int UCI_ACCESS_FAILED = -1;
