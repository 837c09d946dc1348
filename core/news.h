// SPDX-License-Identifier: MIT
// Links and bans change on any thread and in rooms that know no subscriber; here the loop compares what the subscribers
// know with what is. Loop thread.
#pragma once

// Compares in the next turn of the loop, when whoever changes something now is through.
void look_for_news();

// Timer callback: announces what changed, and comes back when the next ban runs out.
struct uloop_timeout;
void uloop_tell_news(uloop_timeout *timer);
