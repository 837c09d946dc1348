// SPDX-License-Identifier: MIT
// Time limits for what the bus library waits for without one. Loop thread only; limits may be nested, and each counts
// its own time.
#pragma once

#include <csignal>
#include <ctime>

struct ubus_context;

constexpr int BUS_WRITE_LOOK_MS = 100;
constexpr int BUS_WRITE_LIMIT_MS = 1000;

// Whether the connection has room for a message, now or within that time; one that is closed has, too.
bool bus_takes_data(const ubus_context *context, int wait_ms);

// The library writes without a limit. A socket that can be written has room for a method's reply; a bus daemon that
// makes none within BUS_WRITE_LIMIT_MS is given up, and the connection with it.
void hang_up_on_deaf_bus(const ubus_context *context);

// While one exists: when its time is over, the context's connection is hung up, and hung up again at every further
// limit, so that whatever the library waits for fails as with a bus daemon that went away. Also a connection that is
// being made comes to its end.
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
    bool reached() const { return reached_ != 0; }

    void look(); // the timer's signal; anybody else leaves it alone

protected:
    // Looks at the connection so often, at that distance; a connection that takes data at a look has all its time
    // again.
    t_bus_limit(const ubus_context *context, int distance_ms, int looks);
    void start();
    void stop();

private:
    const ubus_context *context_; // borrowed
    timer_t timer_ = {};
    const int distance_ms_;
    const int looks_;
    volatile sig_atomic_t looks_left_;
    volatile sig_atomic_t reached_ = 0;
    const bool created_;
    bool set_ = false;
};

// For callbacks of the library, which writes a status of its own after every event and every call: the connection is
// hung up when the bus daemon has taken nothing for BUS_WRITE_LIMIT_MS.
class t_bus_write_limit : public t_bus_limit {
public:
    explicit t_bus_write_limit(const ubus_context *context);
    ~t_bus_write_limit();

private:
    friend class t_bus_write_pause;
    t_bus_write_limit *outer_; // borrowed; of the callback that this one was called in
};

// While one exists the innermost write limit stands still, and has all its time afterwards: what our own handlers do
// takes as long as it takes.
class t_bus_write_pause {
public:
    t_bus_write_pause();
    ~t_bus_write_pause();
    t_bus_write_pause(const t_bus_write_pause &) = delete;
    t_bus_write_pause &operator=(const t_bus_write_pause &) = delete;

private:
    t_bus_write_limit *paused_; // borrowed; null outside of the library's callbacks
};
