// SPDX-License-Identifier: MIT
// A time limit for those calls of the bus library that wait for the bus daemon without one.
#pragma once

#include <ctime>

struct ubus_context;

// While one exists: when its time is over, the context's connection is hung up, and hung up again at every further
// limit, so that whatever the library waits for fails as with a bus daemon that went away. Also a connection that is
// being made comes to its end. Loop thread only, one at a time.
class t_bus_limit {
public:
    // The context may be null, and must not be freed meanwhile.
    t_bus_limit(const ubus_context *context, int milliseconds);
    ~t_bus_limit();
    t_bus_limit(const t_bus_limit &) = delete;
    t_bus_limit &operator=(const t_bus_limit &) = delete;

    // False when the system has no timer to spare; what could hang is better put off then.
    bool is_set() const { return set_; }
    // True once the time was over.
    bool reached() const;

private:
    timer_t timer_ = {};
    bool created_;
    bool set_;
};
