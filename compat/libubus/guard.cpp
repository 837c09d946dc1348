// SPDX-License-Identifier: MIT
// Guards that notice when user code frees a context or a request from within its own callback.
#include "library.h"

namespace ubus_library {
namespace {

callback_guard *first_guard(const ubus_context *ctx)
{
    return static_cast<callback_guard *>(ctx->internal.state.first_guard);
}

} // namespace

callback_guard::callback_guard(ubus_context *ctx, const ubus_request *req)
    : context_(ctx), request_(req), outer_(first_guard(ctx))
{
    ctx->internal.state.first_guard = this;
}

callback_guard::~callback_guard()
{
    if (context_) {
        context_->internal.state.first_guard = outer_;
    }
}

void callback_guard::context_goes(ubus_context *ctx)
{
    for (callback_guard *guard = first_guard(ctx); guard; guard = guard->outer_) {
        guard->context_ = nullptr;
    }
    ctx->internal.state.first_guard = nullptr;
}

void callback_guard::request_goes(ubus_context *ctx, const ubus_request *req)
{
    for (callback_guard *guard = first_guard(ctx); guard; guard = guard->outer_) {
        if (guard->request_ == req) {
            guard->request_gone_ = true;
        }
    }
}

} // namespace ubus_library
