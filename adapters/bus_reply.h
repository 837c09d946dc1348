// SPDX-License-Identifier: MIT
// A message of ours while it is built. Once there was no memory for a field nothing more is added, and it goes nowhere.
#pragma once

#include <cstdint>

extern "C" {
#include <libubox/blobmsg.h>
}

struct ubus_context;
struct ubus_object;
struct ubus_request_data;

// What has no value is left out: a null or empty text. Texts may be foreign; they are sent as printable ASCII.
class t_bus_reply {
public:
    t_bus_reply();
    ~t_bus_reply();
    t_bus_reply(const t_bus_reply &) = delete;
    t_bus_reply &operator=(const t_bus_reply &) = delete;

    void number(const char *name, uint32_t value);
    void number(const char *name, int value) { number(name, static_cast<uint32_t>(value)); }
    void flag(const char *name, bool value);
    void text(const char *name, const char *value);
    void element(const char *value) { text(nullptr, value); } // of an array
    void line(const char *format, ...) __attribute__((format(printf, 2, 3)));

    // The status for the caller: 0 with a reply.
    int send(ubus_context *context, ubus_request_data *request);
    // To whoever subscribed to the object; lost when the bus has no room at once.
    void notify(ubus_object *object, const char *what);

private:
    friend class t_bus_nest;
    blob_buf buffer_ = {};
    bool whole_;
};

// A table or an array within a message, while one exists.
class t_bus_nest {
public:
    ~t_bus_nest();
    t_bus_nest(const t_bus_nest &) = delete;
    t_bus_nest &operator=(const t_bus_nest &) = delete;

protected:
    t_bus_nest(t_bus_reply &reply, const char *name, bool array);

private:
    t_bus_reply &reply_;
    void *opened_ = nullptr;
};

struct t_bus_table : t_bus_nest {
    explicit t_bus_table(t_bus_reply &reply, const char *name = nullptr) : t_bus_nest(reply, name, false) {}
};
struct t_bus_array : t_bus_nest {
    t_bus_array(t_bus_reply &reply, const char *name) : t_bus_nest(reply, name, true) {}
};
