// SPDX-License-Identifier: MIT
// The LAN ARP benchmark's bridge, its one port and the hosts behind it.
#pragma once

// Lays the cable from the bridge to the hosts and enters the port in the port model; inside the benchmark's own
// networks.
void prepare_arp_bench();
