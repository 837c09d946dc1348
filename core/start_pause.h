// SPDX-License-Identifier: MIT
// The pauses of start-up, in which callers on the bus are not kept waiting.
#pragma once

#include <cstdint>

// Lasts for so long, and is at once over when the end is asked for; then true. Who calls over the bus meanwhile gets
// his reply; what he asked for begins with the loop, none of whose timers runs before. Loop thread.
bool pause_serving_callers(uint32_t milliseconds);
