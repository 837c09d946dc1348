// SPDX-License-Identifier: MIT
// A host at the far end of a veth pair, made of one thread with a packet socket: it answers what it is asked.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "probes/lan_scene.h"

class t_wire_peer {
public:
    using t_frame = std::vector<uint8_t>;
    // Called with every frame of one EtherType that reaches the interface; what it returns is sent back, in order.
    using t_answerer = std::function<std::vector<t_frame>(const t_frame &frame)>;

    t_wire_peer(const std::string &interface, uint16_t ether_type, t_answerer answerer);
    ~t_wire_peer();
    t_wire_peer(const t_wire_peer &) = delete;
    t_wire_peer &operator=(const t_wire_peer &) = delete;

    void send(const t_frame &frame);

private:
    void serve();

    int fd_;
    t_answerer answerer_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

// A host that hears ARP requests only, and counts them.
class t_arp_peer {
public:
    using t_answerer = std::function<std::vector<t_wire_peer::t_frame>(const t_arp_frame &request)>;

    t_arp_peer(const std::string &interface, t_answerer answerer);

    void send(const t_wire_peer::t_frame &frame) { peer_.send(frame); }
    int requests() const { return requests_; }

private:
    std::atomic<int> requests_ = 0;
    t_wire_peer peer_;
};

// The reply of the host `mac` with the address `address_be` to a request; to everyone when `broadcast`.
t_wire_peer::t_frame arp_reply(const t_arp_frame &request, const t_mac &mac, bool broadcast = false);
