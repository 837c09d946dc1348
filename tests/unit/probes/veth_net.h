// SPDX-License-Identifier: MIT
// Cables between interfaces of the sandbox's own network namespace, and peers at their far ends.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "probes/wire/wire_formats.h"
#include "tests/unit/probes/sample_frames.h"
#include "tests/unit/probes/shell.h"

extern "C" {
#include <libubox/uloop.h>
}

// Returns when the interface really sends. For a moment after its carrier came, the kernel drops what it is given.
void wait_until_running(const std::string &interface);

// The two ends of a cable, both up and running; the second is called "far-" and the name, unless told. Gone at the end.
struct t_cable {
    const std::string name;
    const std::string far_name;

    explicit t_cable(const std::string &near_name, const std::string &far_end = "");
    ~t_cable();
    t_cable(const t_cable &) = delete;
    t_cable &operator=(const t_cable &) = delete;
    int ifindex() const;
    t_bytes mac() const;
};

// A peer for probes that leave waiting to the loop: hears every frame through the loop, too, and may answer each with
// one of its own.
struct t_loop_peer {
    std::function<t_bytes(const t_bytes &heard)> answer; // an empty answer sends nothing
    std::vector<t_bytes> heard;

    explicit t_loop_peer(const t_cable &cable);
    ~t_loop_peer();
    t_loop_peer(const t_loop_peer &) = delete;
    t_loop_peer &operator=(const t_loop_peer &) = delete;
    void send(const t_bytes &frame) const;

private:
    struct t_watch {
        uloop_fd watcher;
        t_loop_peer *owner;
    };
    t_watch watch_;
    static void on_readable(uloop_fd *watcher, unsigned int events);
};

// Runs the loop until `done` holds. False when it did not within `limit_ms`.
bool run_loop_until(const std::function<bool()> &done, int limit_ms);

// A peer for probes that block: lives on a thread of its own.
class t_thread_peer {
public:
    // Called with every frame of one EtherType that arrives; what it returns is sent back, in order.
    using t_answerer = std::function<std::vector<t_bytes>(const t_bytes &frame)>;

    t_thread_peer(const t_cable &cable, uint16_t ether_type, t_answerer answerer);
    ~t_thread_peer();
    t_thread_peer(const t_thread_peer &) = delete;
    t_thread_peer &operator=(const t_thread_peer &) = delete;

    void send(const t_bytes &frame) const;

private:
    void serve();

    int fd_;
    t_answerer answerer_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

// The same, for ARP requests only, which it counts.
class t_arp_peer {
public:
    using t_answerer = std::function<std::vector<t_bytes>(const t_arp_frame &request)>;

    t_arp_peer(const t_cable &cable, t_answerer answerer);

    void send(const t_bytes &frame) const { peer_.send(frame); }
    int requests() const { return requests_; }

private:
    std::atomic<int> requests_ = 0;
    t_thread_peer peer_;
};
