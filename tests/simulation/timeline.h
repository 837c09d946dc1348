// SPDX-License-Identifier: MIT
// A life told as ./run.sh tells one: its ports in a panel, then a line for each thing that happened, in plain words and
// seconds. The event log itself, of which the hash is made, is told by --raw.
#pragma once

#include <string>

namespace sim {

struct t_seen;

// Both in the process of the life, for one that tells.
void tell_entry(const char *who, const std::string &text); // of the event log
void tell_deed(const t_seen &seen);                        // what the daemon did

// The ports as the world has them now.
void draw_panel();

// What an entry of the world is in plain words (timeline_words.cpp).
std::string words_of_event(const std::string &entry);
std::string words_of_command(const std::string &command);
bool is_asked_all_the_time(const std::string &command);

} // namespace sim
