// SPDX-License-Identifier: MIT
// Stands between the library and the system calls that change files: notes them, and lets one of them fail, or the
// power go just before it.
#pragma once

#include <functional>
#include <string>
#include <vector>

enum class fault { none, failure, power_cut };

constexpr int power_cut_status = 99; // exit status of a process that lost its power

// From now on notes the calls; the one with this number, counted from 0, meets the fault.
void watch_calls(fault kind = fault::none, int number = -1);
// Runs something before the first call of that name.
void stop_before(const std::string &name, const std::function<void()> &action);
// Stops noting and returns what was noted: names of calls.
std::vector<std::string> watched_calls();
