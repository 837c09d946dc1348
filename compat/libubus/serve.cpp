// SPDX-License-Identifier: MIT
// What others ask or tell a client: its methods run, their answers go out, at once or later.
#include "library.h"

#include <cstring>

namespace ubus_library {
namespace {

const ubus_method *find_method(const ubus_object *obj, const char *name)
{
    for (int i = 0; i < obj->n_methods; i++) {
        const ubus_method *method = &obj->methods[i];
        if (!method->name || strcmp(method->name, name) == 0) {
            return method;
        }
    }
    return nullptr;
}

const char *text_of(const blob_attr *attribute)
{
    return attribute ? blob_get_string(attribute) : nullptr;
}

// The call has an object.
ubus_request_data make_request(const received_frame &frame, const ubus_frame::attributes &attributes)
{
    ubus_request_data req = {};
    req.object = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    req.peer = frame.head.peer;
    req.seq = frame.head.seq;
    req.fd = -1;
    req.req_fd = -1;
    return req;
}

bool expects_answer(const ubus_frame::attributes &attributes)
{
    return !attributes[UBUS_ATTR_NO_REPLY] || blob_get_u8(attributes[UBUS_ATTR_NO_REPLY]) == 0;
}

int run_method(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const ubus_frame::attributes &attributes)
{
    if (!obj) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (!attributes[UBUS_ATTR_METHOD] || !attributes[UBUS_ATTR_DATA]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const char *name = blob_get_string(attributes[UBUS_ATTR_METHOD]);
    const ubus_method *method = find_method(obj, name);
    if (!method || !method->handler) {
        return UBUS_STATUS_METHOD_NOT_FOUND;
    }
    req->acl = {.user = text_of(attributes[UBUS_ATTR_USER]),
                .group = text_of(attributes[UBUS_ATTR_GROUP]),
                .object = obj->name};
    return method->handler(ctx, obj, req, name, attributes[UBUS_ATTR_DATA]);
}

bool answer(ubus_context *ctx, const ubus_request_data &req, ubus_msg_type type, const message &body)
{
    const blob_attr *bytes = body.bytes();
    ubus_frame::header head = {.type = static_cast<uint8_t>(type), .seq = req.seq, .peer = req.peer};
    return bytes && send_frame(ctx, head, bytes);
}

void send_status(ubus_context *ctx, const ubus_request_data &req, int status)
{
    message body;
    body.add(UBUS_ATTR_STATUS, static_cast<uint32_t>(status)).add(UBUS_ATTR_OBJID, req.object);
    answer(ctx, req, UBUS_MSG_STATUS, body);
}

void handle_call(ubus_context *ctx, ubus_object *obj, const received_frame &frame,
                 const ubus_frame::attributes &attributes)
{
    ubus_request_data req = make_request(frame, attributes);
    callback_guard guard(ctx);
    int status = run_method(ctx, obj, &req, attributes);
    if (!guard.context_is_gone() && !req.deferred && expects_answer(attributes)) {
        send_status(ctx, req, status);
    }
}

} // namespace

void serve(ubus_context *ctx, const received_frame &frame)
{
    ubus_frame::attributes attributes = ubus_frame::parse(frame.data);
    if (!attributes[UBUS_ATTR_OBJID]) {
        return;
    }
    uint32_t id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    ubus_object *obj;
    obj = avl_find_element(&ctx->objects, &id, obj, avl);
    if (frame.head.type == UBUS_MSG_INVOKE) {
        handle_call(ctx, obj, frame, attributes);
    } else if (obj && frame.head.type == UBUS_MSG_NOTIFY) {
        take_subscriber_state(ctx, obj, attributes);
    } else if (obj) {
        end_subscription(ctx, obj, attributes);
    }
}

void refuse_call(ubus_context *ctx, const received_frame &frame, int status)
{
    ubus_frame::attributes attributes = ubus_frame::parse(frame.data);
    bool is_call = frame.head.type == UBUS_MSG_INVOKE;
    if (is_call && attributes[UBUS_ATTR_OBJID] && expects_answer(attributes)) {
        send_status(ctx, make_request(frame, attributes), status);
    }
}

} // namespace ubus_library

using namespace ubus_library;

int ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *msg)
{
    message body;
    body.add(UBUS_ATTR_OBJID, req->object).add_fields(UBUS_ATTR_DATA, msg);
    return answer(ctx, *req, UBUS_MSG_DATA, body) ? UBUS_STATUS_OK : UBUS_STATUS_NO_DATA;
}

void ubus_defer_request(ubus_context *, ubus_request_data *req, ubus_request_data *new_req)
{
    *new_req = *req;
    new_req->acl = {};
    new_req->fd = -1;
    new_req->req_fd = -1;
    req->deferred = true;
}

void ubus_complete_deferred_request(ubus_context *ctx, ubus_request_data *req, int ret)
{
    send_status(ctx, *req, ret);
}
