// SPDX-License-Identifier: MIT
// Requests to the bus: sending, waiting, answers, loss of the connection.
#include "library.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>

namespace ubus_library {
namespace {

constexpr int64_t NS_PER_MS = 1000000;
constexpr int64_t MS_PER_S = 1000;

// An answer that came while a data callback of the same request was running. Owns the bytes.
struct pending_answer {
    list_head list;
    uint8_t type;
    blob_attr *data;
};

int64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * MS_PER_S + now.tv_nsec / NS_PER_MS;
}

void drop_pending_answers(ubus_request *req)
{
    while (!list_empty(&req->pending)) {
        pending_answer *answer = list_first_entry(&req->pending, pending_answer, list);
        list_del(&answer->list);
        free(answer->data);
        free(answer);
    }
}

void leave(ubus_request *req)
{
    if (!list_empty(&req->list)) {
        list_del_init(&req->list);
    }
    drop_pending_answers(req);
}

// The callback may free the request.
void complete(ubus_context *ctx, ubus_request *req, int status)
{
    leave(req);
    req->status_msg = true;
    req->status_code = status;
    callback_guard::request_goes(ctx, req);
    if (req->complete_cb) {
        req->complete_cb(req, status);
    }
}

void complete_with(ubus_context *ctx, ubus_request *req, blob_attr *answer)
{
    blob_attr *status = ubus_frame::parse(answer)[UBUS_ATTR_STATUS];
    complete(ctx, req, status ? blob_get_int32(status) : UBUS_STATUS_INVALID_ARGUMENT);
}

void hand_over(ubus_request *req, uint8_t type, blob_attr *data)
{
    if (req->raw_data_cb) {
        req->raw_data_cb(req, type, data);
        return;
    }
    blob_attr *fields = ubus_frame::parse(data)[UBUS_ATTR_DATA];
    if (req->data_cb && fields) {
        req->data_cb(req, type, fields);
    }
}

void put_off(ubus_request *req, uint8_t type, const blob_attr *data)
{
    auto *answer = static_cast<pending_answer *>(calloc(1, sizeof(pending_answer)));
    blob_attr *copy = answer ? blob_memdup(data) : nullptr;
    if (!copy) {
        free(answer);
        return;
    }
    answer->type = type;
    answer->data = copy;
    list_add_tail(&answer->list, &req->pending);
}

void deliver_pending(ubus_context *ctx, ubus_request *req, const callback_guard &guard)
{
    while (!guard.request_is_gone() && !list_empty(&req->pending)) {
        pending_answer *answer = list_first_entry(&req->pending, pending_answer, list);
        list_del(&answer->list);
        if (answer->type == UBUS_MSG_STATUS) {
            complete_with(ctx, req, answer->data);
        } else {
            hand_over(req, answer->type, answer->data);
        }
        free(answer->data);
        free(answer);
    }
}

// A request's data callback is never entered twice: what comes in while it runs follows afterwards.
void deliver(ubus_context *ctx, ubus_request *req, uint8_t type, blob_attr *data)
{
    if (type == UBUS_MSG_STATUS) {
        complete_with(ctx, req, data);
        return;
    }
    callback_guard guard(ctx, req);
    req->blocked = true;
    hand_over(req, type, data);
    deliver_pending(ctx, req, guard);
    if (!guard.request_is_gone()) {
        req->blocked = false;
    }
}

ubus_request *find_request(ubus_context *ctx, const ubus_frame::header &head)
{
    ubus_request *req;
    list_for_each_entry(req, &ctx->requests, list)
    {
        if (req->seq == head.seq && (req->peer == head.peer || req->notify)) {
            return req;
        }
    }
    return nullptr;
}

// Subscribers answer with their status only.
void handle_notification_answer(ubus_context *ctx, ubus_request *req, const received_frame &frame)
{
    int status;
    if (frame.head.type == UBUS_MSG_STATUS &&
        take_notification_answer(req, frame.head.peer, ubus_frame::parse(frame.data), status)) {
        complete(ctx, req, status);
    }
}

// The poll timeout that is left until the deadline; 0 when it has passed.
int time_left(int timeout, int64_t deadline_ms)
{
    if (timeout == 0) {
        return -1;
    }
    int64_t left = deadline_ms - now_ms();
    return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

// 0 once the answer is there, otherwise why it is not. `guard` watches the context.
int wait_for_answer(ubus_context *ctx, ubus_request *req, int timeout, const callback_guard &guard)
{
    int64_t deadline_ms = now_ms() + timeout + (timeout > 0 ? 1 : 0); // now_ms() is cut to whole milliseconds
    while (!req->status_msg) {
        if (ctx->sock.eof || ctx->sock.fd < 0) {
            return UBUS_STATUS_CONNECTION_FAILED;
        }
        int left = time_left(timeout, deadline_ms);
        if (left == 0) {
            return UBUS_STATUS_TIMEOUT;
        }
        pollfd readable = {.fd = ctx->sock.fd, .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, left) <= 0) {
            continue;
        }
        handle_arrivals(ctx, &req->status_msg);
        if (guard.context_is_gone()) {
            return UBUS_STATUS_CONNECTION_FAILED;
        }
        if (req->cancelled) {
            return UBUS_STATUS_TIMEOUT;
        }
    }
    return UBUS_STATUS_OK;
}

} // namespace

int start_request(ubus_context *ctx, ubus_request *req, const message &body, ubus_msg_type type, uint32_t peer)
{
    memset(req, 0, sizeof(*req));
    INIT_LIST_HEAD(&req->list);
    INIT_LIST_HEAD(&req->pending);
    req->ctx = ctx;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    req->fd = -1;
    const blob_attr *bytes = body.bytes();
    ubus_frame::header head = {.type = static_cast<uint8_t>(type), .seq = req->seq, .peer = peer};
    return bytes && send_frame(ctx, head, bytes) ? UBUS_STATUS_OK : UBUS_STATUS_INVALID_ARGUMENT;
}

int run_request(ubus_context *ctx, const message &body, ubus_msg_type type, uint32_t peer,
                ubus_data_handler_t raw_data_cb, void *priv)
{
    ubus_request req;
    int status = start_request(ctx, &req, body, type, peer);
    if (status != UBUS_STATUS_OK) {
        return status;
    }
    req.raw_data_cb = raw_data_cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, 0);
}

void handle_answer(ubus_context *ctx, const received_frame &frame)
{
    ubus_request *req = find_request(ctx, frame.head);
    if (!req) {
        return;
    }
    if (req->notify) {
        handle_notification_answer(ctx, req, frame);
    } else if (req->blocked) {
        put_off(req, frame.head.type, frame.data);
    } else {
        deliver(ctx, req, frame.head.type, frame.data);
    }
}

// Apart from those that a callback begins on a new connection.
void fail_requests(ubus_context *ctx)
{
    list_head *lost = &ctx->internal.state.lost;
    list_splice_tail_init(&ctx->requests, lost);
    callback_guard guard(ctx);
    while (!guard.context_is_gone() && !list_empty(lost)) {
        complete(ctx, list_first_entry(lost, ubus_request, list), UBUS_STATUS_TIMEOUT);
    }
}

void forget_requests(ubus_context *ctx)
{
    list_splice_tail_init(&ctx->internal.state.lost, &ctx->requests);
    while (!list_empty(&ctx->requests)) {
        ubus_request *req = list_first_entry(&ctx->requests, ubus_request, list);
        leave(req);
        req->cancelled = true;
    }
}

} // namespace ubus_library

using namespace ubus_library;

void ubus_complete_request_async(ubus_context *ctx, ubus_request *req)
{
    if (list_empty(&req->list)) {
        list_add_tail(&req->list, &ctx->requests);
    }
}

int ubus_complete_request(ubus_context *ctx, ubus_request *req, int timeout)
{
    ubus_complete_request_async(ctx, req);
    callback_guard guard(ctx);
    ctx->stack_depth++;
    int status = wait_for_answer(ctx, req, timeout, guard);
    if (guard.context_is_gone()) {
        return status;
    }
    ctx->stack_depth--;
    run_pending_soon(ctx);
    if (status == UBUS_STATUS_OK) {
        return req->status_code;
    }
    leave(req);
    return status;
}

void ubus_abort_request(ubus_context *ctx, ubus_request *req)
{
    if (list_empty(&req->list)) {
        return;
    }
    leave(req);
    req->cancelled = true;
    callback_guard::request_goes(ctx, req);
}
