// SPDX-License-Identifier: MIT
// The end of a pause between two looks. Timer callback.
#pragma once

extern "C" {
#include <libubox/uloop.h>
}

// Lists all ports that may be WAN anew, in a cycle of its own if none is open.
void uloop_look_again(uloop_timeout *timer);
