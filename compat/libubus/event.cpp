// SPDX-License-Identifier: MIT
// Events: an anonymous object per handler, patterns registered with the daemon's event object, and sending.
#include "library.h"

using namespace ubus_library;

namespace {

int receive_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *method, blob_attr *msg)
{
    ubus_event_handler *ev = container_of(obj, ubus_event_handler, obj);
    ev->cb(ctx, ev, method, msg);
    return UBUS_STATUS_OK;
}

constexpr ubus_method EVERY_EVENT = {
    .name = nullptr, .handler = receive_event, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0};

int call_event_object(ubus_context *ctx, const message &request)
{
    return run_request(ctx, request, UBUS_MSG_INVOKE, UBUS_SYSTEM_OBJECT_EVENT, nullptr, nullptr);
}

bool add_registration(blob_buf *buffer, uint32_t object, const char *pattern)
{
    return blobmsg_add_u32(buffer, "object", object) == 0 &&
           (!pattern || blobmsg_add_string(buffer, "pattern", pattern) == 0);
}

bool add_event(blob_buf *buffer, const char *id, const blob_attr *data)
{
    const void *fields = data ? blob_data(data) : nullptr;
    auto length = static_cast<unsigned int>(data ? blob_len(data) : 0);
    return blobmsg_add_string(buffer, "id", id) == 0 &&
           blobmsg_add_field(buffer, BLOBMSG_TYPE_TABLE, "data", fields, length) == 0;
}

} // namespace

int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *pattern)
{
    if (ev->obj.id == 0) {
        ev->obj.methods = &EVERY_EVENT;
        ev->obj.n_methods = 1;
        int status = ubus_add_object(ctx, &ev->obj);
        if (status != UBUS_STATUS_OK) {
            return status;
        }
    }
    message request;
    request.add(UBUS_ATTR_OBJID, uint32_t{UBUS_SYSTEM_OBJECT_EVENT}).add(UBUS_ATTR_METHOD, "register");
    blob_buf *buffer = request.open(UBUS_ATTR_DATA);
    request.finish(buffer && add_registration(buffer, ev->obj.id, pattern));
    return call_event_object(ctx, request);
}

int ubus_unregister_event_handler(ubus_context *ctx, ubus_event_handler *ev)
{
    return ubus_remove_object(ctx, &ev->obj);
}

int ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data)
{
    message request;
    request.add(UBUS_ATTR_OBJID, uint32_t{UBUS_SYSTEM_OBJECT_EVENT}).add(UBUS_ATTR_METHOD, "send");
    blob_buf *buffer = request.open(UBUS_ATTR_DATA);
    request.finish(buffer && add_event(buffer, id, data));
    return call_event_object(ctx, request);
}
