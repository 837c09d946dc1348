// SPDX-License-Identifier: MIT
// Notifications a client's objects send: whether anybody is there to hear them, sending, and waiting for all answers.
#include "library.h"

#include <cstdlib>
#include <cstring>

namespace ubus_library {
namespace {

// A notification that waits for answers.
struct notification {
    ubus_request req;
    // Owned; ids of those that have yet to answer, 0 in the place of one that has. Null until the bus has named them.
    blob_attr *subscribers;
};

// 0, or why there is nobody to wait for.
int take_names(notification &sent, const ubus_frame::attributes &attributes)
{
    const blob_attr *status = attributes[UBUS_ATTR_STATUS];
    const blob_attr *subscribers = attributes[UBUS_ATTR_SUBSCRIBERS];
    if (!status || (blob_get_int32(status) == UBUS_STATUS_OK && !subscribers)) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (blob_get_int32(status) != UBUS_STATUS_OK) {
        return blob_get_int32(status);
    }
    sent.subscribers = blob_memdup(subscribers);
    return sent.subscribers ? UBUS_STATUS_OK : UBUS_STATUS_NO_MEMORY;
}

// Whether anybody is left who has to answer when this one has; no id is 0.
bool is_awaited_after(notification &sent, uint32_t answered)
{
    bool is_awaited = false;
    blob_attr *id;
    size_t left;
    blob_for_each_attr(id, sent.subscribers, left)
    {
        if (blob_len(id) != sizeof(answered)) {
            continue;
        }
        if (blob_get_u32(id) == answered) {
            memset(blob_data(id), 0, sizeof(answered));
        }
        is_awaited = is_awaited || blob_get_u32(id) != 0;
    }
    return is_awaited;
}

int wait_for_subscribers(ubus_context *ctx, const message &request, const ubus_object *obj, int timeout)
{
    notification sent = {};
    int status = start_request(ctx, &sent.req, request, UBUS_MSG_NOTIFY, obj->id);
    if (status != UBUS_STATUS_OK) {
        return status;
    }
    sent.req.notify = true;
    status = ubus_complete_request(ctx, &sent.req, timeout);
    free(sent.subscribers);
    return status;
}

} // namespace

void take_subscriber_state(ubus_context *ctx, ubus_object *obj, const ubus_frame::attributes &attributes)
{
    if (!attributes[UBUS_ATTR_ACTIVE]) {
        return;
    }
    obj->has_subscribers = blob_get_u8(attributes[UBUS_ATTR_ACTIVE]) != 0;
    if (obj->subscribe_cb) {
        obj->subscribe_cb(ctx, obj);
    }
}

bool take_notification_answer(ubus_request *req, uint32_t peer, const ubus_frame::attributes &attributes, int &status)
{
    notification &sent = *container_of(req, notification, req);
    status = UBUS_STATUS_OK;
    if (sent.subscribers) {
        return !is_awaited_after(sent, peer);
    }
    if (peer != req->peer) {
        return false;
    }
    status = take_names(sent, attributes);
    return status != UBUS_STATUS_OK || !is_awaited_after(sent, 0);
}

} // namespace ubus_library

using namespace ubus_library;

int ubus_notify(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg, int timeout)
{
    message request;
    request.add(UBUS_ATTR_OBJID, obj->id).add(UBUS_ATTR_METHOD, type).add_fields(UBUS_ATTR_DATA, msg);
    if (timeout >= 0) {
        return wait_for_subscribers(ctx, request, obj, timeout);
    }
    request.add_flag(UBUS_ATTR_NO_REPLY, true);
    ubus_request unanswered;
    return start_request(ctx, &unanswered, request, UBUS_MSG_NOTIFY, obj->id);
}
