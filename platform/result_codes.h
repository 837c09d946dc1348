// SPDX-License-Identifier: MIT
// Result codes shared by every room; 0 is success. Codes of one function only stand in that function's header.
#pragma once

constexpr int OK = 0;
constexpr int ERR_INVALID_INPUT = -99;
constexpr int ERR_NO_MEMORY = -98;
constexpr int ERR_ALREADY_PRESENT = -97;
constexpr int ERR_NOTHING_DONE = -96;   // not found, or nothing to do
constexpr int ERR_CONFIG_PACKAGE = -95; // a configuration package cannot be loaded
constexpr int ERR_CONFIG_VALUE = -94;   // a configuration value is unusable
constexpr int ERR_BUS_OBJECT = -93;     // a bus object was not found
constexpr int ERR_BUSY = -85;           // a protocol detection is running already

constexpr int DEVICE_WITHOUT_LINK = 99; // skipped
constexpr int PROBE_NO_BATCH = 98;      // nothing was sent
constexpr int PROBE_ALL_ANSWERED = 97;
constexpr int PROBE_SOME_SILENT = 96; // the time is over and a port stayed silent
constexpr int PROBE_WAITING = 0;
