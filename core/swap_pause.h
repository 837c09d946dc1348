// SPDX-License-Identifier: MIT
// The pause between a swap and the cycle that tests it. A swap is tested in vain when that cycle finds the role
// elsewhere or the WAN port not connected; then the next pause is twice as long, until something changes: the link of a
// port, the network package, or a port answers that did not in the cycle before. While the network manager is away the
// pauses grow as well, until it answers. Loop thread only.
#pragma once

struct t_device;

constexpr int SWAP_PAUSE_LONGEST_S = 300; // the first one is REDETECT_AFTER_SWITCH_SECONDS

// Behind the next swap, in seconds.
int swap_pause_s();

// The role is about to be given to this port. The pause behind this swap.
int begin_swap(t_device *dev);

// A pass found out whether the WAN port works.
void test_swap(bool wan_works);

// A pass could not tell whether the swap helped: nothing failed, but the pause behind the next one is longer, or ports
// would take the role from each other every 21 s for as long as nobody can tell.
void put_next_test_off();

// The network manager is not away any more: no pause is longer for that nobody could tell.
void forget_doubts();

// The role was found elsewhere than before, at another port or at none of the table. Unless that is where the swap sent
// it, somebody else has moved it, and no cycle can test the swap any more.
void drop_swap_of_moved_role();

// The WAN port works, and no cycle is open that could say so of a swap: none is on trial any more, and what failed
// before is over.
void end_trial_at_rest();

// The verdict is about to be carried out: who of those that answered was silent in the cycle before?
void look_for_new_answers();

// A cycle is about to end: its own swap is on trial from now on, the one that it tested no more, unless nobody could
// tell.
void settle_swap();

// Timer callback: while a longer pause runs, looks every 21 s whether the network package was changed.
struct uloop_timeout;
void uloop_watch_network_package(uloop_timeout *timer);

// A longer pause that is running ends like a first one; for what has no swap to test any more.
void cut_pause_to_first();

// Something changed: the first pause again, also instead of a longer one that is running.
void begin_swap_pauses_anew();
