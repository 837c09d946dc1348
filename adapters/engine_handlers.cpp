// SPDX-License-Identifier: MIT
// The table that leads up to the engine; empty until core/ fills it in.
#include "adapters/engine_handlers.h"

t_engine_handlers engine_handlers = {};
