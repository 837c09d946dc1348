// SPDX-License-Identifier: MIT
// A bus of the test's own at the daemon's socket path, clients on it, and the event loop that serves both sides.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

#include <libubus.h>

constexpr int LOOP_PATIENCE_MS = 5000;

// Turns the event loop until `done`, or the time is over: then false.
bool loop_until(const std::function<bool()> &done, int timeout_ms = LOOP_PATIENCE_MS);

// A bus daemon in a process of its own, on `path`.
class t_bus_daemon {
public:
    explicit t_bus_daemon(const std::string &path);
    ~t_bus_daemon();
    t_bus_daemon(const t_bus_daemon &) = delete;
    t_bus_daemon &operator=(const t_bus_daemon &) = delete;

    void start(); // returns when it accepts connections
    void kill();  // without a chance to tidy up
    void stop();  // freezes it: it accepts connections and never answers
    void go_on(); // ends that
    pid_t pid() const { return pid_; }

private:
    std::string path_;
    pid_t pid_ = -1;
};

// What a caller got: the bus's status and, if there was a reply, its "err_code".
struct t_call_result {
    int status = -1;
    std::optional<int> err_code;
    int replies = 0;
};

// Another program on the bus, played within this process: everything it does is served by the same event loop.
class t_bus_client {
public:
    explicit t_bus_client(const std::string &path);
    ~t_bus_client();
    t_bus_client(const t_bus_client &) = delete;
    t_bus_client &operator=(const t_bus_client &) = delete;

    bool is_connected() const { return context_ != nullptr; }
    bool knows(const char *object);
    t_call_result call(const char *object, const char *method, blob_attr *message);
    t_call_result call(const char *method, const std::string &json); // of "wan_detect"
    bool send_event(const char *id, blob_attr *message);
    bool send_event(const std::string &json); // the ban event
    bool publish(ubus_object *object) { return ubus_add_object(context_, object) == 0; }

private:
    ubus_context *context_;
};

// A message made of JSON text.
class t_message {
public:
    explicit t_message(const std::string &json = "{}");
    ~t_message() { blob_buf_free(&buffer); }
    t_message(const t_message &) = delete;
    t_message &operator=(const t_message &) = delete;

    blob_buf buffer = {};
};
