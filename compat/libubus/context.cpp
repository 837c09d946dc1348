// SPDX-License-Identifier: MIT
// The life of a bus connection: connecting, serving the socket, losing the connection, connecting again.
#include "library.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace ubus_library {
namespace {

ubus_context *context_of(uloop_fd *sock)
{
    return container_of(sock, ubus_context, sock);
}

// Calls keep their order, so one that arrives behind a waiting one waits, too.
void dispatch(ubus_context *ctx, const received_frame &frame)
{
    switch (frame.head.type) {
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA:
        handle_answer(ctx, frame);
        return;
    case UBUS_MSG_INVOKE:
    case UBUS_MSG_UNSUBSCRIBE:
    case UBUS_MSG_NOTIFY:
        if (ctx->stack_depth == 0 && list_empty(&ctx->pending)) {
            serve(ctx, frame);
        } else if (!put_off_call(ctx, frame)) {
            refuse_call(ctx, frame, UBUS_STATUS_NO_MEMORY);
        }
        return;
    default:
        return;
    }
}

void handle_socket(uloop_fd *sock, unsigned int)
{
    ubus_context *ctx = context_of(sock);
    callback_guard guard(ctx);
    bool has_more;
    do { // after a hang-up the loop calls no more, so everything that is left is handled at once
        has_more = handle_arrivals(ctx, nullptr);
    } while (has_more && !guard.context_is_gone() && sock->error && !sock->registered);
    if (guard.context_is_gone() || has_more || !sock->eof) {
        return;
    }
    if (sock->registered && !sock->error) {
        return; // the hang-up is still to come: the loss is told then, once
    }
    fail_requests(ctx);
    if (!guard.context_is_gone() && ctx->connection_lost) {
        ctx->connection_lost(ctx);
    }
}

// The loop takes a socket out after a hang-up, so the process outlives the bus unless the user asked for error
// callbacks.
void end_loop_if_registered(ubus_context *ctx)
{
    if (ctx->sock.registered) {
        uloop_end();
    }
}

bool receive_greeting(int fd, ubus_msghdr &head)
{
    struct {
        ubus_msghdr head;
        blob_attr blob;
    } greeting = {};
    static_assert(sizeof(greeting) == ubus_frame::SMALLEST_FRAME_BYTES);
    if (read(fd, &greeting, sizeof(greeting)) != sizeof(greeting)) {
        return false;
    }
    head = greeting.head;
    return head.version == ubus_frame::VERSION && head.type == UBUS_MSG_HELLO;
}

bool open_connection(ubus_context *ctx, const char *path)
{
    int fd = open_socket(path ? path : ubus_frame::DEFAULT_SOCKET);
    if (fd < 0) {
        return false;
    }
    ubus_msghdr greeting = {};
    if (!receive_greeting(fd, greeting) || fcntl(fd, F_SETFL, O_NONBLOCK) < 0) {
        close(fd);
        return false;
    }
    ctx->sock.fd = fd;
    ctx->sock.eof = false;
    ctx->sock.error = false;
    ctx->local_id = greeting.peer;
    return true;
}

void close_connection(ubus_context *ctx)
{
    uloop_fd_delete(&ctx->sock);
    if (ctx->sock.fd >= 0) {
        close(ctx->sock.fd);
    }
    ctx->sock.fd = -1;
    reset_receiver(ctx);
    drop_pending_calls(ctx);
}

void initialise(ubus_context *ctx)
{
    memset(ctx, 0, sizeof(*ctx));
    INIT_LIST_HEAD(&ctx->requests);
    INIT_LIST_HEAD(&ctx->pending);
    INIT_LIST_HEAD(&ctx->internal.state.lost);
    initialise_objects(ctx);
    ctx->sock.fd = -1;
    ctx->sock.cb = handle_socket;
    ctx->pending_timer.cb = run_pending_calls;
    ctx->connection_lost = end_loop_if_registered;
}

// The type ids of the old connection mean nothing to the new one.
void forget_type_ids(list_head *objects)
{
    list_head *link;
    list_for_each(link, objects)
    {
        ubus_object *obj = container_of(container_of(link, avl_node, list), ubus_object, avl);
        if (obj->type) {
            obj->type->id = 0;
        }
    }
}

// 0, or the status of the first object the bus refused; that one stays listed and is tried again at the next reconnect.
// With the context gone, the objects may be, too.
int publish_again(ubus_context *ctx)
{
    LIST_HEAD(objects);
    list_splice_init(&ctx->objects.list_head, &objects);
    initialise_objects(ctx);
    forget_type_ids(&objects);
    int result = UBUS_STATUS_OK;
    callback_guard guard(ctx);
    while (!list_empty(&objects)) {
        ubus_object *obj = container_of(container_of(objects.next, avl_node, list), ubus_object, avl);
        list_del(&obj->avl.list);
        obj->id = 0;
        int status = publish(ctx, obj);
        if (guard.context_is_gone()) {
            return status;
        }
        if (status != UBUS_STATUS_OK) {
            list_object(ctx, obj);
            result = result == UBUS_STATUS_OK ? status : result;
        }
    }
    return result;
}

// As publish_again() tells it.
int state_of_connection(ubus_context *ctx)
{
    if (ctx->sock.eof) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    ubus_object *obj;
    avl_for_each_element(&ctx->objects, obj, avl)
    {
        if (obj->id == 0) {
            return UBUS_STATUS_INVALID_ARGUMENT;
        }
    }
    return UBUS_STATUS_OK;
}

} // namespace

bool handle_arrivals(ubus_context *ctx, const bool *enough)
{
    callback_guard guard(ctx);
    for (int handled = 0; handled < FRAMES_PER_TURN; handled++) {
        received_frame frame;
        receive_result result = receive_frame(ctx, frame);
        if (result == receive_result::connection_lost) {
            give_up_connection(ctx);
        }
        if (result != receive_result::frame) {
            return false;
        }
        dispatch(ctx, frame);
        if (guard.context_is_gone()) {
            free(frame.data);
            return false;
        }
        recycle_frame(ctx, frame);
        if (enough && *enough) {
            return false;
        }
    }
    return true;
}

} // namespace ubus_library

using namespace ubus_library;

int ubus_connect_ctx(ubus_context *ctx, const char *path)
{
    uloop_init();
    initialise(ctx);
    return open_connection(ctx, path) ? 0 : -1;
}

ubus_context *ubus_connect(const char *path)
{
    auto *ctx = static_cast<ubus_context *>(calloc(1, sizeof(ubus_context)));
    if (ctx && ubus_connect_ctx(ctx, path) < 0) {
        free(ctx);
        return nullptr;
    }
    return ctx;
}

int ubus_reconnect(ubus_context *ctx, const char *path)
{
    close_connection(ctx);
    callback_guard guard(ctx);
    fail_requests(ctx);
    if (guard.context_is_gone()) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    if (ctx->sock.fd >= 0) { // a callback connected anew already
        return state_of_connection(ctx);
    }
    return open_connection(ctx, path) ? publish_again(ctx) : UBUS_STATUS_CONNECTION_FAILED;
}

void ubus_shutdown(ubus_context *ctx)
{
    callback_guard::context_goes(ctx);
    forget_requests(ctx);
    close_connection(ctx);
    ubus_frame::give_back_work_buffer();
}

void ubus_free(ubus_context *ctx)
{
    if (!ctx) {
        return;
    }
    ubus_shutdown(ctx);
    free(ctx);
}
