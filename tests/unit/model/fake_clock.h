// SPDX-License-Identifier: MIT
// A clock that stands still until it is set.
#pragma once

#include "platform/clock.h"

void set_fake_clock(int32_t sec, int32_t usec = 0);
void advance_fake_clock(int32_t seconds);
