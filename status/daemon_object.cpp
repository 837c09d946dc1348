// SPDX-License-Identifier: MIT
#include "status/daemon_object.h"

#include <csignal>
#include <cstdlib>

#include <libubus.h>

#include "platform/bus.h"
#include "platform/bus_limit.h"

constexpr const char *OBJECT = "wan_detect.state";
constexpr int BUS_LIMIT_MS = 3000; // for what the bus daemon itself answers

namespace {

struct t_client {
    ubus_context *bus; // owns; null while there is no connection
    bool lost;
    uint32_t listened_to; // the object's number; 0 for none
    ubus_subscriber subscriber;
    void (*changed)(); // null for a client that does not listen
};

} // namespace

static t_client client;

const char *outcome_text(t_outcome outcome)
{
    switch (outcome) {
    case t_outcome::answered:
        return "the daemon answers";
    case t_outcome::no_bus:
        return "there is no bus";
    case t_outcome::no_daemon:
        return "the daemon is not on the bus";
    case t_outcome::not_allowed:
        return "the bus does not let this user ask the daemon";
    case t_outcome::silent:
        break;
    }
    return "the daemon does not answer";
}

void leave_daemon()
{
    if (client.bus) {
        uloop_fd_delete(&client.bus->sock);
        ubus_free(client.bus);
    }
    client = {nullptr, false, 0, {}, client.changed};
}

// The library's own would end the loop.
static void connection_lost(ubus_context *)
{
    client.lost = true;
}

static bool connect_to_bus()
{
    if (client.lost)
        leave_daemon();
    if (client.bus)
        return true;
    t_bus_limit limit(nullptr, BUS_LIMIT_MS);
    client.bus = ubus_connect(bus_path());
    if (!client.bus)
        return false;
    client.bus->connection_lost = connection_lost;
    if (client.changed) {
        ubus_add_uloop(client.bus);
        return true;
    }
    signal(SIGINT, SIG_DFL); // the library catches them for its loop, which does not run
    signal(SIGTERM, SIG_DFL);
    return true;
}

static int take_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    client.changed();
    return UBUS_STATUS_OK;
}

static void object_is_gone(ubus_context *, ubus_subscriber *, uint32_t)
{
    client.listened_to = 0;
    client.changed();
}

static void subscribe(uint32_t id)
{
    ubus_subscriber *subscriber = &client.subscriber;
    subscriber->cb = take_notification;
    subscriber->remove_cb = object_is_gone;
    const bool is_there = subscriber->obj.id != 0 || ubus_register_subscriber(client.bus, subscriber) == 0;
    client.listened_to = is_there && ubus_subscribe(client.bus, subscriber, id) == 0 ? id : 0;
}

// The library calls it success, too, when an object may not be seen; its number then stays 0.
static t_outcome find_object(uint32_t *id)
{
    t_bus_limit limit(client.bus, BUS_LIMIT_MS);
    const int status = ubus_lookup_id(client.bus, OBJECT, id);
    if (status == UBUS_STATUS_NOT_FOUND)
        return t_outcome::no_daemon;
    if (status != UBUS_STATUS_OK)
        return t_outcome::no_bus;
    if (*id == 0)
        return t_outcome::not_allowed;
    if (client.changed && client.listened_to != *id)
        subscribe(*id);
    return t_outcome::answered;
}

static void keep_answer(ubus_request *request, int, blob_attr *message)
{
    blob_attr **answer = static_cast<blob_attr **>(request->priv);
    free(*answer);
    *answer = message ? blob_memdup(message) : nullptr;
}

static t_outcome call(uint32_t id, const char *method, blob_attr **answer, int timeout_ms)
{
    switch (ubus_invoke(client.bus, id, method, nullptr, keep_answer, answer, timeout_ms)) {
    case UBUS_STATUS_OK:
        return *answer ? t_outcome::answered : t_outcome::silent;
    case UBUS_STATUS_TIMEOUT:
        return t_outcome::silent;
    case UBUS_STATUS_PERMISSION_DENIED:
        return t_outcome::not_allowed;
    case UBUS_STATUS_INVALID_ARGUMENT: // what it says when it could not send
    case UBUS_STATUS_CONNECTION_FAILED:
        return t_outcome::no_bus;
    default:
        return t_outcome::no_daemon;
    }
}

t_outcome ask_daemon(t_answers *answers, bool with_history, int timeout_ms)
{
    if (!connect_to_bus())
        return t_outcome::no_bus;
    uint32_t id = 0;
    t_outcome outcome = find_object(&id);
    if (outcome == t_outcome::answered)
        outcome = call(id, "status", &answers->status, timeout_ms);
    if (outcome == t_outcome::answered && with_history)
        outcome = call(id, "history", &answers->history, timeout_ms);
    if (outcome == t_outcome::no_bus)
        leave_daemon();
    return outcome;
}

void listen_to_daemon(void (*changed)())
{
    client.changed = changed;
}

bool hears_daemon()
{
    return client.listened_to != 0;
}
