// SPDX-License-Identifier: MIT
// The pauses between two looks of a cycle that has nobody left to ask, or ended without a port. Loop thread only.
#pragma once

constexpr int RETRY_FIRST_S = 30; // unless network.auto_wan_detect.retry_interval says otherwise; then twice as long
constexpr int RETRY_LONGEST_S = 300;
constexpr int RETRY_SHORTEST_FIRST_S = 10;
constexpr int RETRY_LONGEST_FIRST_S = 3600;

// At start-up, so that the first pause is known before it is needed, and before each pause.
void read_first_pause();

// Asks for the next look unless one is due already; the look itself doubles the pause before the one after it. Nothing
// happens with detection off, outside router mode, or when the configuration wants no retries.
void look_again_later();

// A stage begins, behind which look_again_later() is asked for what is left of the pause.
void cut_pause_short();

// No look is due any more, for one that found something, or for a cycle that lists all ports itself.
void stop_looking_again();

// Something changed: the pauses begin with the shortest again, also the one that is running.
void begin_retries_anew();

// The pause that is running, or would be next, as far as is known; 0 for never.
int retry_pause_s();

// True in every second look, of those behind a search: gateways that answer no stranger are asked in the connection's
// own name then.
bool asks_in_own_name();

// The candidates are asked by ARP: the look that comes next asks in the other name.
void note_search();

// A cycle begins: a pause that ran on beside stages of the one before is over, one that is still waited for goes on.
// Unless a look opened the cycle, its first search is asked in the bridge's name again.
void count_looks_anew();

// A look begins; with `opens_cycle` in a cycle of its own.
void begin_look(bool opens_cycle);

// Whoever may be asked is listed. When one of them has joined since this was asked last, others may follow, so that
// nobody ever asks for a look: its pause begins now, or is over and the look begins. True for a look that begins.
bool begin_look_in_passing();
