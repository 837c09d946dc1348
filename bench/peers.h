// SPDX-License-Identifier: MIT
// Peers to measure against: one thread that answers at once what arrives at the far ends of the cables.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "probes/wire/wire_formats.h"

constexpr size_t LARGEST_FRAME = 1024;

// Turns a received frame of `size` bytes, in place, into the answer. False when it gets none.
using t_answerer = bool (*)(uint8_t (&frame)[LARGEST_FRAME], size_t size);

class t_peers {
public:
    t_peers(const std::vector<std::string> &far_ends, uint16_t ether_type, t_answerer answer);
    ~t_peers();
    t_peers(const t_peers &) = delete;
    t_peers &operator=(const t_peers &) = delete;

private:
    void serve();

    std::vector<int> sockets_;
    const t_answerer answer_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

// DHCP servers: every DISCOVER gets an OFFER with a router and a name server.
bool answer_discover(uint8_t (&frame)[LARGEST_FRAME], size_t size);

// Hosts of the LAN: every ARP request gets the reply of the host whose MAC it was sent to.
bool answer_arp(uint8_t (&frame)[LARGEST_FRAME], size_t size);
