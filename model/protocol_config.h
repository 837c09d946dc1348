// SPDX-License-Identifier: MIT
// Loading the protocols and their order of preference. Start-up only.
#pragma once

#include "model/port_model.h"

constexpr const char *PROTO_PRIORITY_DEFAULT = "pppoe dhcp static";

// Number of protocols created, or ERR_CONFIG_PACKAGE.
int init_all_protocols(t_port_model *model);
