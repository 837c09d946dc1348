// SPDX-License-Identifier: MIT
// The current WAN port, its connection type, and the one rule by which a port's recorded protocol may change.
#pragma once

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

// Reads the static addresses of a connection type into `block`; `secondary` is null for a plain static connection.
void update_static_protocol_ip_config(const char *conn_type, const char *secondary, t_detect_result *block);

// Records a protocol on a port, or none. The port and the protocol are given as records or, when those are null, by
// name; both protocol arguments null means none. A recorded protocol only gives way to none or to one of smaller
// priority number. 0 done or ignored, ERR_INVALID_INPUT.
int set_dev_using_specific_proto(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, t_device *device,
                                 t_protocol *protocol, const char *dev_name, const char *proto_name);

// Every port, or those with the given protocol, lose their recorded protocol. Always 0.
int clear_all_dev_proto(t_port_model *model);
int clear_dev_proto_by_proto(t_port_model *model, const t_protocol *protocol);
