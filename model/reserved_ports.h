// SPDX-License-Identifier: MIT
// Ports that are LAN by configuration: members of a link aggregation, and the gaming port. Read anew whenever detection
// starts.
#pragma once

#include "model/port_model.h"

// Rebuilds the aggregation table. 0, or ERR_CONFIG_PACKAGE.
int update_lan_agg_port(t_device *dev_hashmap_head, t_device **lan_agg);

// Rebuilds the gaming table. Always 0.
int update_lan_gaming_port(t_device **gaming);

// True when the name is in one of the three tables. Empty tables are not searched.
bool is_reserved_port(const t_port_model *model, const char *name);
