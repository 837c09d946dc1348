// SPDX-License-Identifier: MIT
// The one rule by which a port's recorded protocol may change.
#pragma once

#include "model/port_model.h"

// Records a protocol on a port, or none. The port and the protocol are given as records or, when those are null, by
// name; both protocol arguments null means none. A recorded protocol only gives way to none or to one of smaller
// priority number. 0 done or ignored, ERR_INVALID_INPUT.
int set_dev_using_specific_proto(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, t_device *device,
                                 t_protocol *protocol, const char *dev_name, const char *proto_name);

// Every port loses its recorded protocol. Always 0.
int clear_all_dev_proto(t_port_model *model);

// Every port with this protocol loses it. Always 0. Nobody calls it in this program; it completes the one above.
int clear_dev_proto_by_proto(t_port_model *model, const t_protocol *protocol);
