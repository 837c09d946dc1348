// SPDX-License-Identifier: MIT
// Does the upstream work, and is this a router at all?
#pragma once

struct ubus_request;
struct blob_attr;

// Interface status as the network manager reports it and get_network_status returns it.
constexpr int NETWORK_UNKNOWN = -2;
constexpr int NETWORK_DISCONNECTED = -1;
constexpr int NETWORK_CONNECTED = 0;
constexpr int NETWORK_CONNECTING = 1;
constexpr int NETWORK_POOR_CONNECTED = 2;

// Asks the network manager for "internet" (falling back to "wan"), or for "wanv6" when `ipv6` is set. With `check`, a
// connected state is confirmed by the online test. One of the NETWORK_ values.
int get_network_status(int ipv6, int check);

// True when the last question learned nothing of the network because there is no connection to the bus or no memory for
// the question, or because the network manager is gone although it answered an earlier one in the life of this process.
// Asks nobody. Loop thread only.
bool network_manager_is_away();

// For tests: as if no question had been asked yet.
void forget_network_manager();

// Whether the command "online-test" says that the router is online.
bool check_online();

// True in router mode, also when the setting is missing.
bool get_is_router_mode();

// Reply of "network.interface" "status": writes one of the values above to the int at request->priv.
void ubus_call_network_interface_cb(ubus_request *request, int type, blob_attr *message);

// Reply of "network.device" "status": stores "up" and "link" into the t_device at request->priv. Port states come from
// the router's script, so nothing installs it.
void ubus_call_network_device_cb(ubus_request *request, int type, blob_attr *message);
