// SPDX-License-Identifier: MIT
// What a person reads of the daemon's replies.
#pragma once

#include <cstdio>

#include "status/page.h"

struct blob_attr;

constexpr int MOST_VERDICTS = 5;

// The answers of "status" and "history", either of which may be null.
void draw_picture(FILE *out, blob_attr *status, blob_attr *history, t_look look, int most_verdicts = MOST_VERDICTS);
