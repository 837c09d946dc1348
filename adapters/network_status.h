// SPDX-License-Identifier: MIT
// Does the upstream work, and is this a router at all?
#pragma once

#include "adapters/bus_replies.h"

// Asks the network manager for "internet" (falling back to "wan"), or for "wanv6" when `ipv6` is set. With `check`, a
// connected state is confirmed by the online test. One of the NETWORK_ values.
int get_network_status(int ipv6, int check);

// True when the last question learned nothing of the network because there is no connection to the bus, or because the
// network manager is gone although it answered an earlier one in the life of this process. Asks nobody. Loop thread
// only.
bool network_manager_is_away();

// For tests: as if no question had been asked yet.
void forget_network_manager();

// Whether the command "online-test" says that the router is online.
bool check_online();

// True in router mode, also when the setting is missing.
bool get_is_router_mode();
