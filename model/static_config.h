// SPDX-License-Identifier: MIT
// The static addresses that the configuration holds for a connection type.
#pragma once

#include "model/device.h"

// Reads them into `block`, from the type itself or, with the type of a secondary connection, from that; `secondary` is
// null for a plain static connection.
void update_static_protocol_ip_config(const char *conn_type, const char *secondary, t_detect_result *block);
