// SPDX-License-Identifier: MIT
// What a bus daemon sends to a client of the library. The input is a byte of what the client does, a byte with the size
// in which bytes arrive and leave (0 for all at once), and the daemon's bytes.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <libubus.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr uint8_t OWN_GREETING = 0x01; // the daemon's bytes begin with its greeting
constexpr uint8_t ADD_OBJECT = 0x02;
constexpr uint8_t LISTEN = 0x04;
constexpr uint8_t LOOK_UP = 0x08;
constexpr uint8_t CALL = 0x10;
constexpr uint8_t CALL_LATER = 0x20;
constexpr uint8_t FREE_IN_HANDLER = 0x40;
constexpr uint8_t RECONNECT = 0x80;
constexpr uint8_t SEND_EVENT = 0x01; // these are of the second byte
constexpr uint8_t ABORT = 0x02;
constexpr uint8_t REMOVE_OBJECT = 0x04;
constexpr uint8_t LISTEN_NO_MORE = 0x08;
constexpr uint8_t SUBSCRIBE = 0x10;
constexpr uint8_t NOTIFY = 0x20;
constexpr uint8_t NOTIFY_AND_WAIT = 0x40;
constexpr uint8_t SUBSCRIBE_NO_MORE = 0x80;
constexpr int CALL_TIMEOUT_MS = 1000;
constexpr int MOST_TURNS = 1000;

constexpr uint8_t GREETING[] = {0, 0, 0, 0, 0xa0, 0, 0, 1, 0, 0, 0, 4};

// The connection, while one is open.
t_octets arriving;
size_t piece; // 0 for no limit
std::string sent;
bool context_gone;
bool free_in_handler;

size_t limited(size_t size)
{
    return piece > 0 ? std::min(size, piece) : size;
}

ssize_t arrive(void *buffer, size_t size)
{
    const size_t taken = limited(std::min(size, arriving.size()));
    if (taken > 0)
        memcpy(buffer, arriving.data(), taken);
    arriving = arriving.subspan(taken);
    return static_cast<ssize_t>(taken);
}

// What the library holds by pointers as long as the context lives.
struct t_lent {
    ubus_object object = {};
    ubus_event_handler listener = {};
    ubus_subscriber subscriber = {};
    ubus_request later = {};
};

std::unique_ptr<t_lent> lent;

// User code may free the context in any callback, and then all that it lent. True when it did.
bool free_if_wanted(ubus_context *ctx)
{
    if (free_in_handler) {
        ubus_free(ctx);
        context_gone = true;
        lent.reset();
    }
    return free_in_handler;
}

int handle_call(ubus_context *ctx, ubus_object *, ubus_request_data *request, const char *method, blob_attr *message)
{
    REQUIRE(method && message);
    if (free_if_wanted(ctx))
        return UBUS_STATUS_OK;
    ubus_send_reply(ctx, request, message);
    if (method[0] == 'l') {
        ubus_request_data later;
        ubus_defer_request(ctx, request, &later);
        ubus_complete_deferred_request(ctx, &later, UBUS_STATUS_OK);
    }
    return UBUS_STATUS_OK;
}

void hear_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *message)
{
    REQUIRE(type && message);
}

int hear_notification(ubus_context *ctx, ubus_object *, ubus_request_data *, const char *type, blob_attr *message)
{
    REQUIRE(type && message);
    return free_if_wanted(ctx);
}

void see_removal(ubus_context *ctx, ubus_subscriber *, uint32_t)
{
    free_if_wanted(ctx);
}

void see_subscribers(ubus_context *ctx, ubus_object *)
{
    free_if_wanted(ctx);
}

void take_answer(ubus_request *request, int, blob_attr *message)
{
    REQUIRE(message);
    free_if_wanted(request->ctx);
}

void see_object(ubus_context *, ubus_object_data *object, void *)
{
    REQUIRE(object->path && strlen(object->path) < sent.max_size());
    size_t left;
    blob_attr *method;
    blob_for_each_attr(method, object->signature, left) static_cast<void>(blobmsg_check_attr(method, true));
}

// The stream that left is made of whole frames, but for the end.
void check_sent_frames()
{
    t_octets left(reinterpret_cast<const uint8_t *>(sent.data()), sent.size());
    while (left.size() >= sizeof GREETING) {
        REQUIRE(left[0] == 0 && left[1] <= UBUS_MSG_MONITOR);
        const size_t length = static_cast<size_t>(left[9]) << 16 | static_cast<size_t>(left[10]) << 8 | left[11];
        REQUIRE(length >= sizeof(blob_attr));
        left = left.subspan(std::min(left.size(), sizeof(ubus_msghdr) + length));
    }
    sent.clear();
}

const ubus_method METHODS[] = {
    {.name = "echo", .handler = handle_call, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0},
    {.name = "later", .handler = handle_call, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0},
};

struct t_client {
    ubus_context *ctx;
    ubus_object_type type = {.name = "demo", .id = 0, .methods = METHODS, .n_methods = 2};

    explicit t_client(ubus_context *connected) : ctx(connected)
    {
        lent = std::make_unique<t_lent>();
        lent->object.name = "demo";
        lent->object.type = &type;
        lent->object.methods = METHODS;
        lent->object.n_methods = 2;
        lent->object.subscribe_cb = see_subscribers;
        lent->subscriber.cb = hear_notification;
        lent->subscriber.remove_cb = see_removal;
        lent->listener.cb = hear_event;
    }

    void act(uint8_t actions)
    {
        uint32_t id = 1;
        if (actions & ADD_OBJECT)
            ubus_add_object(ctx, &lent->object);
        if (actions & LISTEN)
            ubus_register_event_handler(ctx, &lent->listener, "demo.*");
        if (actions & LOOK_UP)
            ubus_lookup(ctx, nullptr, see_object, nullptr);
        if (actions & LOOK_UP)
            ubus_lookup_id(ctx, "demo", &id);
        if (actions & CALL)
            ubus_invoke(ctx, id, "echo", nullptr, take_answer, nullptr, CALL_TIMEOUT_MS);
        if (!context_gone && (actions & CALL_LATER) &&
            ubus_invoke_async(ctx, id, "echo", nullptr, &lent->later) == UBUS_STATUS_OK) {
            lent->later.data_cb = take_answer;
            ubus_complete_request_async(ctx, &lent->later);
        }
    }

    void act_on_subscriptions(uint8_t actions)
    {
        constexpr uint32_t TARGET = 1;
        if (!context_gone && (actions & SUBSCRIBE))
            ubus_register_subscriber(ctx, &lent->subscriber);
        if (!context_gone && (actions & SUBSCRIBE))
            ubus_subscribe(ctx, &lent->subscriber, TARGET);
        if (!context_gone && (actions & NOTIFY))
            ubus_notify(ctx, &lent->object, "news", nullptr, -1);
        if (!context_gone && (actions & NOTIFY_AND_WAIT))
            ubus_notify(ctx, &lent->object, "news", nullptr, CALL_TIMEOUT_MS);
        if (!context_gone && (actions & SUBSCRIBE_NO_MORE))
            ubus_unsubscribe(ctx, &lent->subscriber, TARGET);
    }

    void serve()
    {
        for (int turn = 0; !context_gone && !ctx->sock.eof; turn++) {
            REQUIRE(turn < MOST_TURNS);
            ubus_handle_event(ctx);
            if (context_gone || !ctx->pending_timer.pending)
                continue;
            uloop_timeout_cancel(&ctx->pending_timer);
            ctx->pending_timer.cb(&ctx->pending_timer);
        }
    }

    void end(uint8_t actions)
    {
        if (!context_gone && (actions & SEND_EVENT))
            ubus_send_event(ctx, "demo.x", nullptr);
        if (!context_gone && (actions & ABORT) && lent->later.ctx)
            ubus_abort_request(ctx, &lent->later);
        if (!context_gone && (actions & REMOVE_OBJECT))
            ubus_remove_object(ctx, &lent->object);
        if (!context_gone && (actions & LISTEN_NO_MORE))
            ubus_unregister_event_handler(ctx, &lent->listener);
    }
};

} // namespace

extern "C" int __wrap_connect(int, const sockaddr *, socklen_t)
{
    return 0;
}

extern "C" int __wrap_poll(pollfd *sockets, nfds_t count, int)
{
    for (nfds_t i = 0; i < count; i++)
        sockets[i].revents = sockets[i].events;
    return static_cast<int>(count);
}

extern "C" ssize_t __wrap_read(int, void *buffer, size_t size)
{
    return arrive(buffer, size);
}

extern "C" ssize_t __wrap_readv(int, const iovec *parts, int count)
{
    ssize_t total = 0;
    for (int i = 0; i < count; i++) {
        const ssize_t got = arrive(parts[i].iov_base, parts[i].iov_len);
        total += got;
        if (static_cast<size_t>(got) < parts[i].iov_len)
            break;
    }
    return total;
}

extern "C" ssize_t __wrap_sendmsg(int, const msghdr *message, int)
{
    size_t total = 0;
    for (size_t i = 0; i < message->msg_iovlen; i++) {
        const size_t taken = limited(message->msg_iov[i].iov_len);
        sent.append(static_cast<const char *>(message->msg_iov[i].iov_base), taken);
        total += taken;
        if (taken < message->msg_iov[i].iov_len)
            break;
    }
    return static_cast<ssize_t>(total);
}

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const uint8_t actions = input.byte();
    const uint8_t endings = input.byte();
    piece = input.byte();
    std::vector<uint8_t> stream;
    if (!(actions & OWN_GREETING))
        stream.assign(GREETING, GREETING + sizeof GREETING);
    const t_octets rest = input.rest();
    stream.insert(stream.end(), rest.begin(), rest.end());
    arriving = stream;
    sent.clear();
    context_gone = false;
    free_in_handler = (actions & FREE_IN_HANDLER) != 0;
    if (piece > 0)
        piece = std::max(piece, (actions & OWN_GREETING) ? size_t{1} : sizeof GREETING); // it is read in one go

    ubus_context *ctx = ubus_connect("bus");
    if (!ctx)
        return 0;
    t_client client(ctx);
    client.act(actions);
    client.act_on_subscriptions(endings);
    client.end(endings);
    client.serve();
    check_sent_frames();
    if (!context_gone && (actions & RECONNECT)) {
        arriving = stream;
        if (ubus_reconnect(ctx, "bus") == UBUS_STATUS_OK)
            client.act(actions);
        client.serve();
        check_sent_frames();
    }
    if (!context_gone)
        ubus_free(ctx);
    return 0;
}
