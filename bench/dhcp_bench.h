// SPDX-License-Identifier: MIT
// The DHCP benchmark's own ports, eth0 to eth7, which are outside of the bridge.
#pragma once

#include <benchmark/benchmark.h>

constexpr int DHCP_BENCH_PORTS = 8;

// Lays the cables and enters the ports in the port model; inside the benchmark's own networks.
void prepare_dhcp_bench();
