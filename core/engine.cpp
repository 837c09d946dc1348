// SPDX-License-Identifier: MIT
#include "core/engine.h"

t_wan_detect_engine engine;
