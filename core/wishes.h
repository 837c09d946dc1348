// SPDX-License-Identifier: MIT
// What the other threads wish of the engine. They never touch the loop's timers: a wish is left, and the loop is woken
// to serve it. On the loop thread a wish is served at once.
#pragma once

// Who serves each kind of wish, on the loop thread.
struct t_wish_servers {
    void (*pass)();          // the cycle's next pass, if the engine record holds a wish for one
    void (*role_look)();     // the configuration gives the WAN role to another port than the engine knows
    void (*fresh_retries)(); // the world changed: whoever pauses begins with the shortest pause again
    void (*link_news)();     // the same, and it is a link that changed
};

// Once, at start-up, on the loop thread.
void bind_wish_servers(const t_wish_servers &servers);

// Any thread.
void wish_for_pass(); // when the engine record says
void wish_for_role_look();
void wish_for_fresh_retries();
void wish_for_link_news();

// Opens the descriptor that wakes the loop, and lets the loop watch it; after uloop_init. False when the kernel
// refuses.
bool attach_wishes_to_loop();

// Wishes wake the loop no more; before uloop_done.
void detach_wishes_from_loop();

// Closes the descriptor and forgets every wish, when no other thread is left.
void release_wishes();
