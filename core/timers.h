// SPDX-License-Identifier: MIT
// Binding the engine's timers and wishes to its steps, once, at start-up.
#pragma once

constexpr int HEARTBEAT_INTERVAL_MS = 100;

void bind_engine_timers();
