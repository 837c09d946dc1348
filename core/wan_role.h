// SPDX-License-Identifier: MIT
// The WAN role belongs to whoever moves it: a user, another program, this one. Between cycles the loop follows it here;
// a cycle looks itself. Loop thread only.
#pragma once

#include "model/current_wan.h"

// Reads anew who has the role, and tells that. A port that is none of the table tests no swap.
void read_role_anew();

// Where the role is now, told when it has moved only. One that somebody else has moved cannot test a swap any more, and
// begins the pauses anew.
t_role look_where_role_is();

// Takes over where somebody else has moved the role, unless a cycle is open. A port that holds it without a link counts
// as a WAN loss seen now.
void follow_moved_role();
