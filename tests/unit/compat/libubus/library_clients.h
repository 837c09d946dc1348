// SPDX-License-Identifier: MIT
// The library clients of the recorded scenarios, written anew against libubus: services, listeners and callers.
#pragma once

#include <libubus.h>
#include <string>
#include <vector>

using t_report = std::vector<std::string>;

// How long the service "x" lets a deferred call wait, in ms.
constexpr int DEFER_MS = 20;

// A connection with its loop. The loop ends when the bus goes away.
class t_library_client {
public:
    explicit t_library_client(const std::string &socket);
    ~t_library_client();
    t_library_client(const t_library_client &) = delete;
    t_library_client &operator=(const t_library_client &) = delete;

    ubus_context *ctx() { return ctx_; }
    // Serves until the bus goes away or somebody ends the loop.
    void run();
    // For handlers that end the connection from within.
    void free_context();

    t_report report;

private:
    ubus_context *ctx_;
};

std::string to_json(blob_attr *message);

// Services: they publish and return; run() serves.
void publish_demo(t_library_client &client);
void publish_x(t_library_client &client);
void publish_types(t_library_client &client);
void register_patterns(t_library_client &client, const std::vector<std::string> &patterns);
// Registers one more pattern for the listener that is there already.
void register_pattern_again(t_library_client &client, const std::string &pattern);
void unpublish_all();

// Callers: they do it all.
void call_objects(t_library_client &client);
void call_register_errors(t_library_client &client);
void call_method(t_library_client &client, const std::string &object, const std::string &method, int timeout_ms,
                 uint32_t id_if_missing = 0);
void call_without_message(t_library_client &client);
void call_asynchronously(t_library_client &client);

// The publisher is subscribed to twice before it notifies and goes; the subscriber hears it until then.
void notify_and_leave(t_library_client &client);
void subscribe_and_hear(t_library_client &client);
