// SPDX-License-Identifier: MIT
// By its name an interface is one of the router's ports, or none. Any thread, but for the first function: start-up
// only.
#pragma once

constexpr const char *DEFAULT_PORT_PREFIX = "eth";
constexpr const char *PORT_PREFIX_VARIABLE = "WAN_DETECT_PORT_PREFIX";

// Names of ports begin with one of these words, which are separated by spaces; without any with the default. The
// commands that the daemon starts find the words in their environment: one of them runs every second.
void set_port_prefixes(const char *words);

bool is_port_name(const char *name);

// True for names that a port itself may have, and no VLAN on it.
bool is_own_port_name(const char *name);
