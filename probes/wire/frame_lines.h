// SPDX-License-Identifier: MIT
// How much received frames may make a probe say. At the log levels that tell of every frame anyone on a port could fill
// the log, so a probe says so many lines a second about frames, and how many more there were. Loop thread only.
#pragma once

#include "platform/log.h"
#include "probes/wire/second_count.h"

constexpr uint32_t FRAME_LINES_PER_SECOND = 200;

struct t_frame_lines {
    const char *probe; // for the log, a literal
    t_second_count second;
    uint32_t left_out; // of that second, not told yet
};

// Whether a line of this level about a received frame is to be said now. Below level Info all that the level shows is.
// What the awaited answer itself is told with does not ask.
bool may_tell_of_frame(t_frame_lines *lines, t_log_level level);

// Says how many lines were left out since it was said last, if any were. Whoever closes a probe calls it.
void tell_lines_left_out(t_frame_lines *lines);
