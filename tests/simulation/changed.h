// SPDX-License-Identifier: MIT
// Changes of the daemon that were built in beside what they change (build_in.py), one of which may be in force. In the
// tree as it is there are none.
#pragma once

#include <cstdint>

namespace sim {

extern int change_in_force; // 0: none
extern bool tells_reached;  // behind each life its hash, and which places of changes it came to

void tell_reached(uint64_t seed, uint64_t hash);

} // namespace sim

extern "C" {
bool is_changed(int number);
void reach_change(int number);
}
