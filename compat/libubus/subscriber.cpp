// SPDX-License-Identifier: MIT
// Subscribers: an anonymous object each, through which the notifications of other clients' objects come.
#include "library.h"

using namespace ubus_library;

namespace {

int receive_notification(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *type, blob_attr *msg)
{
    ubus_subscriber *sub = container_of(obj, ubus_subscriber, obj);
    return sub->cb ? sub->cb(ctx, obj, req, type, msg) : UBUS_STATUS_OK;
}

// Tells a subscriber's object from others, too.
constexpr ubus_method EVERY_NOTIFICATION = {
    .name = nullptr, .handler = receive_notification, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0};

int ask(ubus_context *ctx, ubus_msg_type what, const ubus_subscriber *sub, uint32_t target)
{
    message request;
    request.add(UBUS_ATTR_OBJID, sub->obj.id).add(UBUS_ATTR_TARGET, target);
    return run_request(ctx, request, what, 0, nullptr, nullptr);
}

} // namespace

void ubus_library::end_subscription(ubus_context *ctx, ubus_object *obj, const ubus_frame::attributes &attributes)
{
    if (obj->methods != &EVERY_NOTIFICATION || !attributes[UBUS_ATTR_TARGET]) {
        return;
    }
    ubus_subscriber *sub = container_of(obj, ubus_subscriber, obj);
    if (sub->remove_cb) {
        sub->remove_cb(ctx, sub, blob_get_u32(attributes[UBUS_ATTR_TARGET]));
    }
}

int ubus_register_subscriber(ubus_context *ctx, ubus_subscriber *sub)
{
    INIT_LIST_HEAD(&sub->list);
    sub->obj.methods = &EVERY_NOTIFICATION;
    sub->obj.n_methods = 1;
    return ubus_add_object(ctx, &sub->obj);
}

int ubus_unregister_subscriber(ubus_context *ctx, ubus_subscriber *sub)
{
    return ubus_remove_object(ctx, &sub->obj);
}

int ubus_subscribe(ubus_context *ctx, ubus_subscriber *sub, uint32_t id)
{
    return ask(ctx, UBUS_MSG_SUBSCRIBE, sub, id);
}

int ubus_unsubscribe(ubus_context *ctx, ubus_subscriber *sub, uint32_t id)
{
    return ask(ctx, UBUS_MSG_UNSUBSCRIBE, sub, id);
}
