// SPDX-License-Identifier: MIT
// The engine's first and last moment: the locks, the handlers, each timer with the step that it leads to, and what all
// of them leave behind.
#pragma once

constexpr int HEARTBEAT_INTERVAL_MS = 100;

// Makes what the engine stands on. Once, by the loop thread, before any step and any other thread.
void init_engine();

// Gives back the locks and all that tables and lists hold, when no other thread touches them any more.
void release_engine();
