// SPDX-License-Identifier: MIT
// What the other threads wish of the engine. They never touch the loop's timers: a wish is left, and the loop is woken
// to serve it. On the loop thread a wish is served at once.
#pragma once

#include <cstdint>

// In the order in which they are served.
enum class t_wish : uint8_t {
    fresh_retries, // the world changed: whoever pauses begins with the shortest pause again
    link_news,     // the same, and it is a link that changed
    pass,          // the cycle's next one, when the engine record says
    role_look,     // the configuration gives the WAN role to another port than the engine knows
};

// Who serves a wish, on the loop thread. Once, at start-up, on that thread.
void bind_wish_server(void (*serve)(t_wish));

// Any thread.
void wish_for(t_wish wish);

// Opens the descriptor that wakes the loop, and lets the loop watch it; after uloop_init. False when the kernel
// refuses.
bool attach_wishes_to_loop();

// Wishes wake the loop no more; before uloop_done.
void detach_wishes_from_loop();

// Closes the descriptor and forgets every wish, when no other thread is left.
void release_wishes();
