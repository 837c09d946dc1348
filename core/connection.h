// SPDX-License-Identifier: MIT
// The kind of the current connection, as the steps of a cycle tell it apart. Loop thread.
#pragma once

#include <cstdint>

#include "model/records.h"

// Told by the beginning of the connection type's name; tunnels are L2TP and PPTP, over a secondary connection with a
// dynamic or a fixed address. Other: none of these, or no type at all.
enum class t_connection : uint8_t { dhcp, pppoe, fixed, tunnel_dynamic, tunnel_fixed, other };

t_connection connection_kind();

// True for the kinds whose servers answer a probe: DHCP, PPPoE, and DHCP below a tunnel.
bool is_probed(t_connection kind);

// What a port has to be served by: the connection type itself, DHCP below a tunnel over a dynamic address. Null when
// there is no record of it.
t_protocol *wanted_protocol();
