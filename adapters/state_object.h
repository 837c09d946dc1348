// SPDX-License-Identifier: MIT
// The object "wan_detect.state": what the daemon knows, and why it did what it did. Its methods change nothing, and run
// on the loop thread.
#pragma once

struct ubus_object;

extern ubus_object state_object;

// Before every life of the connection that offers it.
void prepare_state_object();
