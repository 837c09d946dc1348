// SPDX-License-Identifier: MIT
// The WAN role belongs to whoever moves it: a user, another program, this one. Between cycles the loop follows it here;
// a cycle looks itself. Loop thread only.
#pragma once

// Takes over where somebody else has moved the role, unless a cycle is open. A port that holds it without a link counts
// as a WAN loss seen now.
void follow_moved_role();
