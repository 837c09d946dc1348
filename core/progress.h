// SPDX-License-Identifier: MIT
// Where the engine is and what it waits for, for whoever asks. Loop thread.
#pragma once

#include "adapters/engine_handlers.h"

void tell_progress(t_progress *progress);
