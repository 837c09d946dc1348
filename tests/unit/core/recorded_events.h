// SPDX-License-Identifier: MIT
// What is announced to the subscribers of the state object, written down. A program that wants that names
// recorded_events.cpp among its sources, which takes the place of adapters/state_events.cpp.
#pragma once

#include <string>
#include <vector>

// "cycle 3 begins", "cycle 3 ends", "verdict 3", "swap eth2 0 21", "link eth2 up 1", "ban eth2 60".
extern std::vector<std::string> recorded_events;
