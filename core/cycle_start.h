// SPDX-License-Identifier: MIT
// A cycle opens here: the WAN port is looked at, and the way of confirming the candidates is chosen. Timer callbacks.
#pragma once

extern "C" {
#include <libubox/uloop.h>
}

constexpr const char *WAN_RESULT_FILE = "/tmp/wan_detect_result";

// True when the current WAN port has a link, is not banned, and the network manager, which is asked, says that it is
// connected.
bool ask_whether_wan_works();

// Gathers every possible port; waits in steps of 500 ms while another cycle or a protocol detection runs.
void uloop_init_wan_detect_all(uloop_timeout *timer);

// One pass: is the current WAN port good? If not, which of the candidates are worth asking, and how? Entered again
// whenever a later step sends the cycle back.
void uloop_start_wan_detect(uloop_timeout *timer);
