// SPDX-License-Identifier: MIT
// The links of all ports, as the router's script prints them: looked at once a second by a background thread, and once
// where a step wants to know.
#pragma once

#include <cstddef>
#include <cstdint>

struct t_device;

constexpr const char *PORT_STATE_COMMAND = "/etc/wan_detect/get_all_port_state.sh";
constexpr size_t PORT_STATE_SIZE = 512; // bytes of output that are read
constexpr uint32_t SCAN_INTERVAL_SECONDS = 1;

// One look: runs the script and acts on every link that changed. 1 when one did, else 0. Takes no lock. Any thread.
int update_eth_link_status_using_script(t_device *dev_hashmap_head);

// The same with a trace line; always 0.
int update_eth_link_status(t_device *dev_hashmap_head);

// One pass of the thread; returns how many seconds to sleep before the next one (longer once after a switch of the WAN
// port).
uint32_t update_eth_link_status_trigger();

// Thread body: passes until the process ends.
void *link_scan_thread(void *);
