// SPDX-License-Identifier: MIT
// What other services' answers mean to us.
#pragma once

struct ubus_request;
struct blob_attr;

// Interface status as the network manager reports it and get_network_status returns it.
constexpr int NETWORK_UNKNOWN = -2;
constexpr int NETWORK_DISCONNECTED = -1;
constexpr int NETWORK_CONNECTED = 0;
constexpr int NETWORK_CONNECTING = 1;
constexpr int NETWORK_POOR_CONNECTED = 2;

// Reply of "network.interface" "status": writes one of the values above to the int at request->priv.
void ubus_call_network_interface_cb(ubus_request *request, int type, blob_attr *message);

// Reply of "network.device" "status": stores "up" and "link" into the t_device at request->priv. Port states come from
// the router's script, so nothing installs it.
void ubus_call_network_device_cb(ubus_request *request, int type, blob_attr *message);
