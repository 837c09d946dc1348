// SPDX-License-Identifier: MIT
// The current WAN port and its connection type.
#pragma once

#include "model/device_protocol.h"
#include "model/port_model.h"

// Interface name of the current WAN port, zero-filled and cut to `size`. 0; the failed read's code; ERR_CONFIG_VALUE.
int get_wan_device_name(char *buffer, size_t size);

// Sets the current WAN port. 0; ERR_CONFIG_VALUE without a name; ERR_NOTHING_DONE for an unknown one. A failure leaves
// the previous port in place.
int update_wan_device(t_port_model *model);

// True when the configuration gives the role to another port than was seen last, be it one of ours or not, and whose
// name that is; false also when it cannot be read. Says nothing unless a read fails. Loop thread.
bool wan_role_moved(const t_port_model *model, char (&name)[NAME_SIZE]);

// The same as update_wan_device for a name that was read already: 0, or ERR_NOTHING_DONE for an unknown port.
int take_wan_role(t_port_model *model, const char (&name)[NAME_SIZE]);

// True when the configuration gives the role to this port, or to another one; both false when it cannot be read. Says
// nothing unless a read fails. Any thread.
bool wan_role_is_at(const t_device *dev);
bool wan_role_is_elsewhere(const t_device *dev);

// Sets the current connection type and refreshes its secondary type and static addresses. A failure leaves all as it
// was.
void update_wan_ipv4_protocol(t_port_model *model);
