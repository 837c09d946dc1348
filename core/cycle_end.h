// SPDX-License-Identifier: MIT
// The end of a cycle: the winner becomes the WAN port, the result file is written, the engine returns to rest. Loop
// thread only.
#pragma once

extern "C" {
#include <libubox/uloop.h>
}

// Acts on the verdict in the engine record. A winner that was banned meanwhile sends the cycle back to its candidates
// instead.
void uloop_wan_detect_end(uloop_timeout *timer);

// Writes the current WAN port's name, without a newline.
void write_wan_detect_result_file();

// Forgets the cycle's findings on every port.
void clear_dev_volatile_attribute();
