// SPDX-License-Identifier: MIT
// DHCP discovery: one DISCOVER per port (RFC 2131), the first valid OFFER marks the port. Loop thread only.
#pragma once

#include "probes/discovery/discovery.h"

extern t_discovery_batch dhcp_detect_handle;
extern const t_discovery dhcp_discovery;

constexpr int DHCP_ERR_SOCKET = -92;     // of one port
constexpr int DHCP_ERR_LAN_BRIDGE = -87; // of the batch

// As send_batch; also DHCP_ERR_LAN_BRIDGE.
int send_dhcp_discovery_all(t_device_list_head *list);

// As collect_batch; answering ports are marked "dhcp".
int process_dhcp_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final);

void release_dhcp_detect_handle();

int init_dhcp_sockfd(t_discovery_port *port);
int send_dhcp_discovery_packet(t_discovery_port *port);
void recv_dhcp_discovery_packet(uloop_fd *watcher, unsigned int events);
