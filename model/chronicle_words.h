// SPDX-License-Identifier: MIT
// The words for what the chronicle knows, as the bus and the log write them.
#pragma once

#include "model/chronicle.h"

const char *opener_word(t_opener opener);
const char *fate_word(t_fate fate); // null for not_looked_at
const char *decision_word(t_decision decision);
const char *swap_word(t_swap swap);
const char *hint_word(t_hint hint);

constexpr t_hint HINTS[] = {HINT_VLAN, HINT_ONLY_BANNED, HINT_ONLY_RESERVED, HINT_POOL, HINT_SEVERAL};
