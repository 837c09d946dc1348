// SPDX-License-Identifier: MIT
#include "core/engine.h"

constinit t_wan_detect_engine engine = {};
