// SPDX-License-Identifier: MIT
// Which ports a protocol probe is sent on: every linked one that is not reserved, or one that was asked for. Loop
// thread only.
#pragma once

#include "model/port_model.h"

// Always 0; failures are logged.
int dhcp_detect_for_all_link_device(t_port_model *model);
int pppoe_detect_for_all_link_device(t_port_model *model);

// ERR_INVALID_INPUT for a null port, DEVICE_WITHOUT_LINK, else 0, also when sending failed.
int dhcp_detect_for_specify_device(t_device *dev);
int pppoe_detect_for_specify_device(t_device *dev);
