// SPDX-License-Identifier: MIT
// What the two sources of the bus door share.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <libubus.h>

#include "tests/simulation/descriptors.h"

namespace sim {

struct t_incoming {
    enum { call, event, subscription } kind;
    std::string object;
    std::string name; // of the method or event
    std::string bytes;
    int64_t number;
};

struct t_call {
    std::string method;
    std::function<void(blob_attr *message)> on_reply;
};

struct t_connection : t_description {
    std::deque<t_incoming> incoming;
    std::deque<t_incoming> pending; // came in during a call of the daemon's own
    std::vector<std::pair<ubus_event_handler *, std::string>> patterns;
    std::vector<int64_t> serving; // calls whose handlers are running
    bool hung_up = false;
    bool loss_told = false;

    short readiness() const override;
    const char *kind() const override { return "bus"; }
};

extern std::shared_ptr<t_connection> connection; // null while there is none
extern ubus_context *bus_context;                // borrowed

void serve_socket(uloop_fd *socket, unsigned events);
void serve_pending(uloop_timeout *timer);

// One question to the bus daemon and its answer: 0, or the library's status for a connection that is gone.
int exchange_with_bus();
// The bus daemon's first word, which is read once: a signal ends that.
bool is_greeted();
uint32_t id_of_service(const std::string &object);

} // namespace sim
