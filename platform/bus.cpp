// SPDX-License-Identifier: MIT
// The one connection to the bus. When the bus daemon goes away the event loop goes on, and the connection comes back
// with everything that was offered on it.
#include "platform/bus.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include <libubus.h>

#include "platform/bus_limit.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/tallies.h"
#include "platform/text.h"

constexpr int BUS_RECONNECT_FIRST_MS = 100;
constexpr int BUS_OFFER_LIMIT_MS = 1000;
constexpr int BUS_START_LIMIT_MS = 30000; // a router that boots may keep its bus daemon busy

namespace {

struct t_bus {
    ubus_context *context;                 // owns; null before the set-up and after the shutdown
    bool connected;                        // the context can be used
    const t_bus_exports *offer;            // borrowed for the life of the connection
    const char *path;                      // that the library is given; null leaves it to the library
    uloop_fd_handler library_serve_socket; // what the library would do without a limit
    uloop_timeout_handler library_serve_waiting;
    uloop_timeout retry_timer;
    uloop_fd knock; // a connection that only asks whether the bus daemon answers
};

} // namespace

static t_bus bus;

// A shutdown like any other: the signal handler releases what was built so far.
static int give_up()
{
    if (raise(SIGTERM) != 0)
        exit(EXIT_FAILURE);
    return -1;
}

static void drop_knock()
{
    if (!bus.knock.cb)
        return;
    uloop_fd_delete(&bus.knock);
    close(bus.knock.fd);
    bus.knock = {};
}

// True when this process, and nobody else, answers under the object's name again and hears the event again. The library
// publishes objects anew, unless it gave one up that was refused at an earlier attempt; that each of them was accepted
// is better asked for; events it does not register anew.
static bool exports_are_back()
{
    ubus_object *object = bus.offer->object;
    if (object->id == 0 && ubus_add_object(bus.context, object) != 0)
        return false;
    uint32_t id = 0;
    if (ubus_lookup_id(bus.context, object->name, &id) != 0 || id != object->id)
        return false;
    return ubus_register_event_handler(bus.context, bus.offer->event_handler, bus.offer->event_pattern) == 0;
}

// 0, or why it was refused.
static int offer_object_beside()
{
    return bus.offer->beside ? ubus_add_object(bus.context, bus.offer->beside) : 0;
}

// So that the library does not publish it anew: it would take a refusal for a failure of the whole.
static void withdraw_object_beside()
{
    ubus_object *beside = bus.offer->beside;
    if (!beside)
        return;
    if (avl_find(&bus.context->objects, &beside->id) == &beside->avl)
        avl_delete(&bus.context->objects, &beside->avl);
    beside->id = beside->type->id = 0;
}

// A hang-up is always told.
static bool other_end_is_gone()
{
    pollfd other_end = {bus.context->sock.fd, 0, 0};
    return poll(&other_end, 1, 0) > 0;
}

static bool somebody_offers(const char *name)
{
    uint32_t id = 0;
    return ubus_lookup_id(bus.context, name, &id) == 0;
}

const char *bus_path()
{
    return access(BUS_SOCKET_PATH, F_OK) == 0 ? BUS_SOCKET_PATH : nullptr;
}

static void serve_socket(uloop_fd *socket, unsigned int events)
{
    t_bus_write_limit limit(bus.context);
    bus.library_serve_socket(socket, events);
}

// What came in during a call to another service is served by a timer of the library.
static void serve_waiting(uloop_timeout *timer)
{
    t_bus_write_limit limit(bus.context);
    bus.library_serve_waiting(timer);
}

static void limit_callbacks()
{
    if (bus.context->sock.cb != serve_socket)
        bus.library_serve_socket = std::exchange(bus.context->sock.cb, serve_socket);
    if (bus.context->pending_timer.cb != serve_waiting)
        bus.library_serve_waiting = std::exchange(bus.context->pending_timer.cb, serve_waiting);
}

// The library's call does not tell when there is no room for it, and an object that nobody listens for would stay
// silent for good.
static bool watch_bus()
{
    limit_callbacks();
    ubus_add_uloop(bus.context);
    return bus.context->sock.registered;
}

// A bus daemon that greets may hang all the same.
static bool reconnect_within_limit()
{
    t_bus_limit limit(bus.context, BUS_OFFER_LIMIT_MS);
    withdraw_object_beside();
    if (!limit.is_set() || ubus_reconnect(bus.context, bus.path) != 0 || !exports_are_back())
        return false;
    offer_object_beside();
    return !other_end_is_gone();
}

// After a failure the library may leave the number of a socket that it closed. It closes that number again the next
// time, and by then another thread may have it.
static void forget_closed_socket()
{
    sockaddr_storage peer = {};
    socklen_t size = sizeof peer;
    int &fd = bus.context->sock.fd;
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &size) != 0 || peer.ss_family != AF_UNIX)
        fd = -1;
}

static void restore_connection()
{
    if (!reconnect_within_limit() || !watch_bus()) {
        // The bus daemon must forget this attempt before the next one, or the name would still be in use.
        forget_closed_socket();
        shutdown(bus.context->sock.fd, SHUT_RDWR);
        // However long it took, the loop has its time before the next one.
        uloop_timeout_set(&bus.retry_timer, BUS_RECONNECT_INTERVAL_MS);
        return;
    }
    uloop_timeout_cancel(&bus.retry_timer);
    bus.connected = true;
    tallies.bus_reconnects.add(1);
    LOG(Notice, "ubus connection restored\n");
}

static void knock_answered(uloop_fd *knock, unsigned int)
{
    char greeting;
    bool alive = recv(knock->fd, &greeting, sizeof greeting, MSG_PEEK | MSG_DONTWAIT) > 0;
    drop_knock();
    if (alive)
        restore_connection();
}

// Waits in the loop for the greeting of whoever listens at the path.
static void knock_at(const char *path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    bounded_copy(address.sun_path, path, sizeof address.sun_path);
    bus.knock.fd = fd;
    bus.knock.cb = knock_answered;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        uloop_fd_add(&bus.knock, ULOOP_READ) != 0)
        drop_knock();
}

// The library waits for the greeting without a limit, and a bus daemon that hangs would take this one with it. So the
// loop waits for the greeting on a connection of its own, and the library is asked only when there was one; unless its
// default is a path that we do not know, where only the library itself can look.
static void look_for_bus()
{
    drop_knock();
    bus.path = bus_path();
    if (bus.path)
        knock_at(bus.path);
    else if (access(BUS_DEFAULT_SOCKET_PATH, F_OK) == 0)
        knock_at(BUS_DEFAULT_SOCKET_PATH);
    else
        restore_connection();
}

static void retry(uloop_timeout *timer)
{
    uloop_timeout_set(timer, BUS_RECONNECT_INTERVAL_MS);
    look_for_bus();
}

static ubus_context *connect_within_limit()
{
    t_bus_limit limit(nullptr, BUS_START_LIMIT_MS);
    return ubus_connect(bus_path());
}

// May be called in the middle of a call to another service, so it only asks for what comes next.
static void connection_lost(ubus_context *context)
{
    LOG(Notice, "ubus connection lost\n");
    bus.connected = false;
    if (bus.offer->beside)
        bus.offer->beside->has_subscribers = false; // they subscribe anew
    uloop_fd_delete(&context->sock);
    uloop_timeout_set(&bus.retry_timer, BUS_RECONNECT_FIRST_MS);
}

int wan_detect_ubus_init(const t_bus_exports *offer)
{
    bus.offer = offer;
    bus.retry_timer.cb = retry;
    bus.context = connect_within_limit();
    if (!bus.context || !watch_bus()) {
        LOG(Critical, "ubus connect fail!\n");
        return give_up();
    }
    bus.connected = true;
    bus.context->connection_lost = connection_lost;
    t_bus_limit limit(bus.context, BUS_START_LIMIT_MS);
    int status = ubus_add_object(bus.context, offer->object);
    if (status != 0) {
        if (somebody_offers(offer->object->name))
            log_stay_on_standard_output(); // the log file is his
        LOG(Critical, "ubus_add_object: %s\n", ubus_strerror(status));
        return give_up();
    }
    if (ubus_register_event_handler(bus.context, offer->event_handler, offer->event_pattern) != 0) {
        LOG(Critical, "Failed to add event to ubusd");
        return give_up();
    }
    if (const int refused = offer_object_beside())
        LOG(Error, "no object %s: %s\n", offer->beside->name, ubus_strerror(refused));
    return OK;
}

void wan_detect_ubus_done()
{
    uloop_timeout_cancel(&bus.retry_timer);
    drop_knock();
    if (!bus.context)
        return;
    if (bus.connected)
        LOG(Debug, "wan_detect_ubus closed\n");
    ubus_free(bus.context);
    bus.context = nullptr;
    bus.connected = false;
}

ubus_context *wan_detect_ubus_context()
{
    return bus.connected ? bus.context : nullptr;
}

bool wan_detect_ubus_is_lost()
{
    return !bus.connected || other_end_is_gone();
}

int wan_detect_ubus_socket()
{
    return wan_detect_ubus_is_lost() ? -1 : bus.context->sock.fd;
}

void wan_detect_ubus_serve()
{
    if (wan_detect_ubus_is_lost())
        return;
    bus.context->sock.cb(&bus.context->sock, ULOOP_READ);
    uloop_timeout &waiting = bus.context->pending_timer;
    while (bus.connected && waiting.pending) {
        uloop_timeout_cancel(&waiting);
        waiting.cb(&waiting);
    }
}
