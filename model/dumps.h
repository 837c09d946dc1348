// SPDX-License-Identifier: MIT
// The tables on standard output, for whoever reads along: at level Debug only.
#pragma once

#include "model/records.h"

// Reads under the device lock.
void dump_all_device(t_device *dev_hashmap_head);

void dump_all_protocols(t_protocol *proto_hashmap_head);
