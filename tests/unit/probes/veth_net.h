// SPDX-License-Identifier: MIT
// Real interfaces in the sandbox's own network namespace, with a peer at the far end of each.
#pragma once

#include <functional>
#include <string>

#include "probes/sample_frames.h"

extern "C" {
#include <libubox/uloop.h>
}

// Runs a command and fails the program when it fails.
void must_run(const std::string &command);

// The two ends of a cable, both up; the second is called "far-" and the name, unless told. Gone at the end.
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

// Whoever sits at the far end: hears every frame through the loop and may answer each with one of its own.
struct t_peer {
    std::function<t_bytes(const t_bytes &heard)> answer; // an empty answer sends nothing
    std::vector<t_bytes> heard;

    explicit t_peer(const t_cable &cable);
    ~t_peer();
    t_peer(const t_peer &) = delete;
    t_peer &operator=(const t_peer &) = delete;
    void send(const t_bytes &frame) const;

private:
    struct t_watch {
        uloop_fd watcher;
        t_peer *owner;
    };
    t_watch watch_;
    static void on_readable(uloop_fd *watcher, unsigned int events);
};

// Runs the loop until `done` holds. False when it did not within `limit_ms`.
bool run_loop_until(const std::function<bool()> &done, int limit_ms);
