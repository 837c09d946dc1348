// SPDX-License-Identifier: MIT
// The WAN role belongs to whoever moves it: a user, another program, this one. Loop thread only.
#pragma once

// Where the role was found when it was read again.
enum class t_role : unsigned char {
    unmoved, // where it was, or it cannot be read
    moved,   // at another port, which is the current WAN port now
    foreign, // at a port that is none of the table; the current WAN port stays
};

// Reads the role again and takes over what somebody else did. Without a log line while nothing moved.
t_role look_at_role();

// The same when no cycle is open: a port that holds the role without a link counts as a WAN loss seen now.
void follow_moved_role();

// True while somebody else has given the role to a port that is none of the table, as it was read last, and a port of
// ours had it before: it stays his.
bool wan_role_is_foreign();
