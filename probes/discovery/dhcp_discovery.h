// SPDX-License-Identifier: MIT
// DHCP discovery: one DISCOVER per port (RFC 2131), the first valid OFFER marks the port. Loop thread only.
#pragma once

#include "probes/discovery/discovery.h"

extern t_discovery_batch dhcp_detect_handle;
extern const t_discovery dhcp_discovery;

constexpr int DHCP_ERR_SOCKET = -92; // of one port
