// SPDX-License-Identifier: MIT
// Our side of the bus library's functions, as far as the daemon calls them: the connection, objects, events, replies.
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <map>
#include <memory>
#include <unistd.h>
#include <utility>
#include <vector>

#include <libubus.h>

#include "tests/simulation/bus.h"
#include "tests/simulation/bus_connection.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/router.h"
#include "tests/simulation/world.h"

namespace sim {

t_bus_state bus;

std::shared_ptr<t_connection> connection;
static uint32_t last_id = 0x5000;
static std::map<int64_t, t_call> calls;
static int64_t last_call = 0;

short t_connection::readiness() const
{
    const bool speaks = !incoming.empty() && !bus.hangs;
    return static_cast<short>((bus.is_deaf ? 0 : POLLOUT) | (speaks ? POLLIN : 0) | (hung_up ? POLLIN | POLLHUP : 0));
}

bool is_bus_connection(int fd)
{
    return connection && description_of(fd) == connection.get();
}

bool hang_up_bus(int fd)
{
    if (!is_bus_connection(fd))
        return false;
    connection->hung_up = true;
    return true;
}

int calls_under_way()
{
    return static_cast<int>(calls.size());
}

static std::string bytes_of(const t_fill &fill)
{
    const t_own_memory own;
    blob_buf buffer = {};
    blob_buf_init(&buffer, 0);
    if (fill)
        fill(&buffer);
    std::string bytes(reinterpret_cast<const char *>(buffer.head), blob_pad_len(buffer.head));
    blob_buf_free(&buffer);
    return bytes;
}

static blob_attr *message_in(std::string &bytes)
{
    return reinterpret_cast<blob_attr *>(bytes.data());
}

// --- the world's part

bool calls_can_be_made()
{
    return connection && !connection->hung_up && bus.is_up;
}

int64_t call_daemon(const std::string &object, const std::string &method, const t_fill &arguments,
                    std::function<void(blob_attr *)> on_reply)
{
    const int64_t number = ++last_call;
    log_line("bus", "call %ld: %s %s", static_cast<long>(number), object.c_str(), method.c_str());
    if (!calls_can_be_made())
        return number;
    calls[number] = {method, std::move(on_reply)};
    connection->incoming.push_back({t_incoming::call, object, method, bytes_of(arguments), number});
    return number;
}

int64_t send_event(const std::string &name, const t_fill &fields)
{
    const int64_t number = ++last_call;
    log_line("bus", "event %ld: %s", static_cast<long>(number), name.c_str());
    if (calls_can_be_made())
        connection->incoming.push_back({t_incoming::event, "", name, bytes_of(fields), number});
    return number;
}

void subscribe_to_daemon(const std::string &object, bool subscribed)
{
    log_line("bus", "%s subscribes: %d", object.c_str(), subscribed);
    if (calls_can_be_made())
        connection->incoming.push_back({t_incoming::subscription, object, "", "", subscribed});
}

void bus_dies()
{
    bus.is_up = false;
    calls.clear();
    requests_are_lost();
    if (connection) {
        connection->hung_up = true;
        connection->incoming.clear();
    }
}

void bus_returns()
{
    bus.is_up = true;
}

// --- what the daemon writes

static bool has_room(const void *of)
{
    return static_cast<const t_connection *>(of)->hung_up || !bus.is_deaf;
}

// The library writes on until the other side has taken all of it.
static void wait_for_room()
{
    const std::shared_ptr<t_connection> with = connection;
    while (with && !has_room(with.get()))
        wait_for({.is_over = has_room, .of = with.get(), .by_signals = true, .what = "room on the bus"});
}

// --- what comes in

static ubus_object *object_named(ubus_context *context, const std::string &name)
{
    ubus_object *object;
    avl_for_each_element(&context->objects, object, avl)
    {
        if (object->name && name == object->name)
            return object;
    }
    return nullptr;
}

static const ubus_method *method_named(const ubus_object &object, const std::string &name)
{
    for (int i = 0; i < object.n_methods; i++)
        if (name == object.methods[i].name)
            return &object.methods[i];
    return nullptr;
}

bool daemon_is_offered()
{
    return calls_can_be_made() && object_named(bus_context, "wan_detect") && !connection->patterns.empty();
}

static void finish_call(int64_t number, int status)
{
    const auto found = calls.find(number);
    if (found == calls.end())
        return;
    const std::string method = found->second.method;
    calls.erase(found);
    request_is_over(number, status);
    saw({.deed = t_deed::bus_call_over, .port = status, .number = number, .text = method.c_str()});
}

static void serve_call(ubus_context *context, t_incoming &message)
{
    ubus_object *object = object_named(context, message.object);
    const ubus_method *method = object ? method_named(*object, message.name) : nullptr;
    if (!method) {
        finish_call(message.number, object ? UBUS_STATUS_METHOD_NOT_FOUND : UBUS_STATUS_NOT_FOUND);
        return;
    }
    ubus_request_data request = {};
    request.object = object->id;
    request.seq = static_cast<uint16_t>(message.number);
    request.fd = request.req_fd = -1;
    request_is_served(message.number);
    connection->serving.push_back(message.number);
    const int status = method->handler(context, object, &request, method->name, message_in(message.bytes));
    connection->serving.pop_back();
    if (!request.deferred)
        finish_call(message.number, status);
}

static bool matches(const std::string &pattern, const std::string &name)
{
    if (!pattern.empty() && pattern.back() == '*')
        return name.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
    return pattern == name;
}

static void serve_message(ubus_context *context, t_incoming &message)
{
    switch (message.kind) {
    case t_incoming::call:
        serve_call(context, message);
        return;
    case t_incoming::event:
        request_is_served(message.number);
        for (const auto &[handler, pattern] : connection->patterns)
            if (matches(pattern, message.name))
                handler->cb(context, handler, message.name.c_str(), message_in(message.bytes));
        return;
    case t_incoming::subscription:
        if (ubus_object *object = object_named(context, message.object)) {
            object->has_subscribers = message.number != 0;
            if (object->subscribe_cb)
                object->subscribe_cb(context, object);
        }
        return;
    }
}

static void serve_queue(ubus_context *context, std::deque<t_incoming> t_connection::*queue)
{
    const std::shared_ptr<t_connection> current = connection;
    while (current == connection && !(current.get()->*queue).empty()) {
        t_incoming message = std::move((current.get()->*queue).front());
        (current.get()->*queue).pop_front();
        serve_message(context, message);
    }
}

void serve_socket(uloop_fd *socket, unsigned)
{
    ubus_context *context = container_of(socket, ubus_context, sock);
    door(t_door::bus);
    if (!bus.hangs)
        serve_queue(context, &t_connection::incoming);
    if (connection && connection->hung_up && !connection->loss_told) {
        connection->loss_told = true;
        context->sock.eof = true;
        if (context->connection_lost)
            context->connection_lost(context);
    }
}

void serve_pending(uloop_timeout *timer)
{
    door(t_door::bus);
    serve_queue(container_of(timer, ubus_context, pending_timer), &t_connection::pending);
}

} // namespace sim

using namespace sim;

int ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *message)
{
    door(t_door::bus);
    wait_for_room();
    if (!connection || connection->hung_up || connection->serving.empty())
        return UBUS_STATUS_NO_DATA;
    const int64_t number = connection->serving.back();
    const auto found = calls.find(number);
    if (found != calls.end())
        request_is_replied(number, message);
    saw({.deed = t_deed::bus_replied,
         .number = number,
         .text = found == calls.end() ? "?" : found->second.method.c_str()});
    if (found != calls.end() && found->second.on_reply)
        found->second.on_reply(message);
    return 0;
}

int ubus_notify(ubus_context *, ubus_object *, const char *type, blob_attr *, int)
{
    door(t_door::bus);
    wait_for_room();
    if (!connection || connection->hung_up)
        return UBUS_STATUS_INVALID_ARGUMENT;
    saw({.deed = t_deed::notified, .text = type});
    return 0;
}

// --- objects

static int compare_ids(const void *a, const void *b, void *)
{
    const uint32_t first = *static_cast<const uint32_t *>(a), second = *static_cast<const uint32_t *>(b);
    return first < second ? -1 : first > second;
}

static void publish(ubus_context *context, ubus_object *object)
{
    object->id = ++last_id;
    object->avl.key = &object->id;
    avl_insert(&context->objects, &object->avl);
}

int ubus_add_object(ubus_context *context, ubus_object *object)
{
    const int status = exchange_with_bus();
    if (status != 0)
        return status;
    if (object->name && (service_is_there(object->name) || bus.refused == object->name))
        return UBUS_STATUS_INVALID_ARGUMENT;
    publish(context, object);
    return 0;
}

int ubus_register_event_handler(ubus_context *context, ubus_event_handler *handler, const char *pattern)
{
    if (handler->obj.id == 0 && ubus_add_object(context, &handler->obj) != 0)
        return UBUS_STATUS_INVALID_ARGUMENT;
    const int status = exchange_with_bus();
    if (status == 0)
        connection->patterns.emplace_back(handler, pattern);
    return status;
}

int ubus_lookup_id(ubus_context *context, const char *path, uint32_t *id)
{
    const int status = exchange_with_bus();
    if (status != 0)
        return status;
    if (const ubus_object *own = object_named(context, path)) {
        *id = own->id;
        return 0;
    }
    if (!service_is_there(path) && bus.refused != path)
        return UBUS_STATUS_NOT_FOUND;
    *id = id_of_service(path);
    return 0;
}

// --- the connection

static bool connect_context(ubus_context *context)
{
    if (!bus.is_up)
        return false;
    connection = std::make_shared<t_connection>();
    connection->flags = O_NONBLOCK;
    context->sock.fd = install_descriptor(connection);
    if (context->sock.fd < 0 || !is_greeted())
        return false;
    context->sock.cb = serve_socket;
    context->pending_timer.cb = serve_pending;
    return true;
}

ubus_context *ubus_connect(const char *)
{
    door(t_door::bus);
    auto *context = static_cast<ubus_context *>(calloc(1, sizeof(ubus_context)));
    if (!context)
        return nullptr;
    uloop_init();
    avl_init(&context->objects, compare_ids, false, nullptr);
    INIT_LIST_HEAD(&context->requests);
    INIT_LIST_HEAD(&context->pending);
    if (connect_context(context)) {
        bus_context = context;
        return context;
    }
    if (context->sock.fd > 0)
        close(context->sock.fd);
    free(context);
    return nullptr;
}

static void drop_socket(ubus_context *context)
{
    if (context->sock.registered)
        uloop_fd_delete(&context->sock);
    if (context->sock.fd >= 0)
        close(context->sock.fd);
    context->sock.fd = -1;
    connection.reset();
    calls.clear(); // nobody reads those that it had not taken
    requests_are_lost();
}

static std::vector<ubus_object *> objects_of(ubus_context *context)
{
    std::vector<ubus_object *> all;
    ubus_object *object;
    avl_for_each_element(&context->objects, object, avl)
    {
        all.push_back(object);
    }
    return all;
}

int ubus_reconnect(ubus_context *context, const char *)
{
    door(t_door::bus);
    drop_socket(context);
    const auto handler_socket = context->sock.cb;
    const auto handler_pending = context->pending_timer.cb;
    if (!connect_context(context))
        return UBUS_STATUS_CONNECTION_FAILED;
    context->sock.cb = handler_socket;
    context->pending_timer.cb = handler_pending;
    context->sock.eof = context->sock.error = false;
    for (ubus_object *object : objects_of(context)) {
        avl_delete(&context->objects, &object->avl);
        object->id = 0;
        if (const int status = ubus_add_object(context, object))
            return status;
    }
    return 0;
}

void ubus_free(ubus_context *context)
{
    door(t_door::bus);
    uloop_timeout_cancel(&context->pending_timer);
    drop_socket(context);
    bus_context = nullptr;
    free(context);
}
