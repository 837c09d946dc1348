// SPDX-License-Identifier: MIT
// Calls, events and news of subscriptions that arrive while a synchronous call waits: kept in their order, served soon
// after it.
#include "library.h"

#include <cstdlib>

namespace ubus_library {
namespace {

// Calls that came in during a synchronous call run this long after it.
constexpr int PENDING_DELAY_MS = 1;
// Together they take no more memory than this, whoever sends them.
constexpr size_t PENDING_LIMIT_BYTES = 8 << 20;

// A call or event that arrived while a synchronous call was waiting. Owns the bytes.
struct pending_frame {
    list_head list;
    received_frame frame;
};

size_t memory_of(const received_frame &frame)
{
    return sizeof(pending_frame) + blob_pad_len(frame.data);
}

void free_pending(pending_frame *pending)
{
    free(pending->frame.data);
    free(pending);
}

pending_frame *take_pending(ubus_context *ctx)
{
    pending_frame *pending = list_first_entry(&ctx->pending, pending_frame, list);
    list_del(&pending->list);
    ctx->internal.state.waiting -= memory_of(pending->frame);
    return pending;
}

} // namespace

bool put_off_call(ubus_context *ctx, const received_frame &frame)
{
    size_t &waiting = ctx->internal.state.waiting;
    if (memory_of(frame) > PENDING_LIMIT_BYTES - waiting) {
        return false;
    }
    auto *pending = static_cast<pending_frame *>(calloc(1, sizeof(pending_frame)));
    blob_attr *copy = pending ? blob_memdup(frame.data) : nullptr;
    if (!copy) {
        free(pending);
        return false;
    }
    pending->frame = {.head = frame.head, .data = copy, .capacity = 0};
    list_add_tail(&pending->list, &ctx->pending);
    waiting += memory_of(frame);
    return true;
}

void run_pending_calls(uloop_timeout *timer)
{
    ubus_context *ctx = container_of(timer, ubus_context, pending_timer);
    callback_guard guard(ctx);
    for (int served = 0; served < FRAMES_PER_TURN && !list_empty(&ctx->pending); served++) {
        pending_frame *pending = take_pending(ctx);
        serve(ctx, pending->frame);
        free_pending(pending);
        if (guard.context_is_gone()) {
            return;
        }
    }
    run_pending_soon(ctx);
}

void drop_pending_calls(ubus_context *ctx)
{
    uloop_timeout_cancel(&ctx->pending_timer);
    while (!list_empty(&ctx->pending)) {
        free_pending(take_pending(ctx));
    }
}

void run_pending_soon(ubus_context *ctx)
{
    if (ctx->stack_depth == 0 && !list_empty(&ctx->pending)) {
        uloop_timeout_set(&ctx->pending_timer, PENDING_DELAY_MS);
    }
}

} // namespace ubus_library
