// SPDX-License-Identifier: MIT
// Answers to the daemon's questions that are right but for one thing.
#pragma once

#include "lab/flood_frames.h"

// The near miss with this number; numbers beyond the last begin again.
void make_near_miss(t_flood_frame *frame, size_t number, const t_questions &questions);
