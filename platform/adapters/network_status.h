// SPDX-License-Identifier: MIT
// Does the upstream work, and is this a router at all?
#pragma once

#include "platform/adapters/bus_replies.h"

// Asks the network manager for "internet" (falling back to "wan"), or for "wanv6" when `ipv6` is set. With `check`, a
// connected state is confirmed by the online test. One of the NETWORK_ values.
int get_network_status(int ipv6, int check);

// True while there is no connection to the bus, or the network manager's object is gone although it answered earlier in
// this life of the process. Judged by the last question.
bool network_manager_is_away();

// 1 when the command "online-test" says that the router is online, else 0.
int check_online();

// 1 in router mode (also when the setting is missing), 0 in any other mode.
int get_is_router_mode();
