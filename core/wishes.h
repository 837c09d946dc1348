// SPDX-License-Identifier: MIT
// What the other threads wish of the engine. They never touch the loop's timers: a wish is left here, the last one of
// its kind winning, and the loop is woken to serve it. On the loop thread a wish is served at once.
#pragma once

// Arms uloop_start_wan_detect after `delay_ms`. Any thread.
void request_start_wan_detect(int delay_ms);

// A pass that begins looks at all links itself: a start that is still wished for has been answered. Loop thread.
void forget_requested_start();

// The configuration was seen to give the WAN role to another port than the engine knows. Any thread.
void request_role_look();

// The world changed: whoever pauses between two looks begins with the shortest pause again. Any thread.
void request_fresh_retries();

// Serves what was wished since the last time. Loop thread.
void serve_wishes();

// Forgets every wish, when no other thread is left.
void forget_wishes();
