// SPDX-License-Identifier: MIT
// The bus, at the level of the library's public functions: what the daemon's connection can see of it, and what the
// world does over it.
#pragma once

#include <functional>
#include <string>

extern "C" {
#include <libubox/blobmsg.h>
}

#include "tests/simulation/scheduler.h"

namespace sim {

struct t_bus_state {
    bool is_up = true;    // a bus daemon listens
    bool hangs = false;   // and answers nothing, while it does
    bool is_deaf = false; // takes nothing that is written
    t_time latency = 300; // of one exchange with it
    std::string refused;  // the object that it does not take, for somebody else offers it
};
extern t_bus_state bus;

using t_fill = std::function<void(blob_buf *message)>;

// --- for the world

// A caller's method call; the number under which the checks see its answer (t_deed::bus_call_over). `on_reply` gets
// each data message, null is fine. It is lost without a word when the daemon is not on the bus.
int64_t call_daemon(const std::string &object, const std::string &method, const t_fill &arguments,
                    std::function<void(blob_attr *message)> on_reply = nullptr);

// An event that somebody sends to everybody who registered for it; the number under which it is served.
int64_t send_event(const std::string &name, const t_fill &fields);

// Whether the daemon is on the bus, so that it gets what is sent to it.
bool calls_can_be_made();

// And whether callers find its object there, and events that it waits for reach it.
bool daemon_is_offered();

// The first subscriber of an object comes, or the last one goes.
void subscribe_to_daemon(const std::string &object, bool subscribed);

// The bus daemon dies; a new one starts.
void bus_dies();
void bus_returns();

// An answer of another service to a call of the daemon's: world.cpp says what it is.
struct t_service_answer {
    t_time after = MILLISECOND; // NEVER: none
    int status = 0;
    t_fill data; // empty: no data message
};
t_service_answer ask_service(const std::string &object, const std::string &method, blob_attr *arguments);
bool service_is_there(const std::string &object);

// --- for the doors of descriptors

bool is_bus_connection(int fd);
bool hang_up_bus(int fd); // false when it is none

// Method calls that the daemon has taken and not answered, or not taken yet.
int calls_under_way();

} // namespace sim
