// SPDX-License-Identifier: MIT
// What the sources of events share: the numbers they are drawn with, and words for boards and cables.
#pragma once

#include <string>
#include <vector>

#include "tests/simulation/life.h"

namespace sim {

// One of them, each as likely as it is often there.
template <typename Word, size_t count> Word one_of(const Word (&words)[count], t_number number)
{
    return words[number(count)];
}

inline bool one_in(uint64_t of, t_number number)
{
    return number(of) == 0;
}

inline int64_t between(int64_t least, int64_t most, t_number number)
{
    return least + static_cast<int64_t>(number(static_cast<uint64_t>(most - least + 1)));
}

int some_port(const t_life &life, t_number number);
// Mostly the port that matters: the one that has the role at first, or one with an upstream.
int likely_port(const t_life &life, t_number number);

// Words of cables (cables.cpp).
std::string draw_upstream(const t_life &life, t_number number);  // of the configured kind
std::string draw_bystander(const t_life &life, t_number number); // anything else, or nothing
bool has_upstream(const t_life &life, const std::string &word);

std::string draw_switch_rate(t_number number);                            // life.cpp
void draw_board(t_life *life, t_character character, t_number number);    // board.cpp
void draw_settings(t_life *life, t_character character, t_number number); // some of them
// One event at that time, or in the midst of what the daemon does then, with what follows from it (scripts.cpp).
void draw_another(t_life *life, int64_t at_ms, bool is_rare_life, t_number number);

// Of an event whose number is how long it lasts.
inline int64_t lasts_its_number(const t_event &event)
{
    return event.number;
}

} // namespace sim
