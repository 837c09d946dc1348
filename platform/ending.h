// SPDX-License-Identifier: MIT
// That the process is to end: asked for once, and from then on seen by every thread and heard by every wait.
#pragma once

#include <cstdint>

// Opens the descriptor that the waits listen to. Before any other thread; false when the kernel refuses.
bool init_ending();

// Safe in a signal handler; any thread.
void ask_for_end();

bool end_is_asked_for();

// Milliseconds since the first of these calls. Only once the end is asked for.
int64_t end_is_seen_for_ms();

// Readable for good once the end is asked for; negative where there is none. For waiting only.
int ending_fd();

// Closes the descriptor, and nobody asked. When no other thread is left.
void release_ending();
