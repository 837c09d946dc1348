// SPDX-License-Identifier: MIT
// The current WAN port and its connection type.
#pragma once

#include "model/port_model.h"

// Interface name of the current WAN port, zero-filled and cut to `size`. 0; the failed read's code; ERR_CONFIG_VALUE.
int get_wan_device_name(char *buffer, size_t size);

// Sets the current WAN port. 0; ERR_CONFIG_VALUE without a name; ERR_NOTHING_DONE for an unknown one. A failure leaves
// the previous port in place.
int update_wan_device(t_port_model *model);

// Where the WAN role was found when it was read again.
enum class t_role : unsigned char {
    unmoved, // where it was, or it cannot be read
    moved,   // at another port, which is the current WAN port now
    foreign, // at a port that is none of the table; the current WAN port stays
};

// Reads the role again and takes over what somebody else did. Without a log line while nothing moved, unless a read
// fails. Loop thread.
t_role look_at_role(t_port_model *model);

// True when the configuration gives the role to this port; false also when it cannot be read. Says nothing unless a
// read fails. Any thread.
bool wan_role_is_at(const char *port_name);

// Sets the current connection type and refreshes its secondary type and static addresses. A failure leaves all as it
// was.
void update_wan_ipv4_protocol(t_port_model *model);

// The kind of the current connection, as the steps of a cycle tell it apart. Told by the beginning of the type's name;
// tunnels are L2TP and PPTP, over a secondary connection with a dynamic or a fixed address. Other: none of these, or no
// type at all. Loop thread, as the two functions below.
enum class t_connection : uint8_t { dhcp, pppoe, fixed, tunnel_dynamic, tunnel_fixed, other };

t_connection connection_kind();

// True for the kinds whose servers answer a probe: DHCP, PPPoE, and DHCP below a tunnel.
bool is_probed(t_connection kind);

// What a port has to be served by: the connection type itself, DHCP below a tunnel over a dynamic address. Null when
// there is no record of it.
t_protocol *wanted_protocol();
