// SPDX-License-Identifier: MIT
// PPPoE discovery: one PADI per port (RFC 2516), a PADO that echoes its Host-Uniq marks the port. Loop thread only.
#pragma once

#include "probes/discovery/discovery.h"

extern t_discovery_batch pppoe_detect_handle;
extern const t_discovery pppoe_discovery;

constexpr int PPPOE_ERR_TAGS = -84;

// 0 when the PADO of `size` bytes carries `host_uniq`; ERR_INVALID_INPUT or PPPOE_ERR_TAGS otherwise.
int packetIsForMe(const uint8_t *frame, size_t size, uint32_t host_uniq);
