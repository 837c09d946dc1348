// SPDX-License-Identifier: MIT
// The object "wan_detect" with its five methods, and the ban event. Handlers run on the loop thread.
#pragma once

#include "platform/bus.h"

// Object and event as wan_detect_ubus_init wants them, with the object of state_object.h beside them.
const t_bus_exports *wan_detect_bus_exports();

// Frees the reply buffer; shutdown only.
void wan_detect_bus_exports_release();
