// SPDX-License-Identifier: MIT
// What a client may ask: every request is answered with a status, unless the answer is another client's business.
#include "bus.h"

namespace ubusd {
namespace {

using ubus_frame::message;

int ping(const request &req)
{
    ubus_frame::header head = {.type = UBUS_MSG_DATA, .seq = req.head.seq, .peer = req.head.peer};
    send_frame(*req.from, head, req.body);
    return UBUS_STATUS_OK;
}

int invoke(const request &req)
{
    if (!req.attributes[UBUS_ATTR_OBJID] || !req.attributes[UBUS_ATTR_METHOD]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    uint32_t id = blob_get_u32(req.attributes[UBUS_ATTR_OBJID]);
    switch (id) {
    case UBUS_SYSTEM_OBJECT_EVENT:
        return call_event_object(req, blob_get_string(req.attributes[UBUS_ATTR_METHOD]));
    case UBUS_SYSTEM_OBJECT_ACL:
        return UBUS_STATUS_INVALID_COMMAND;
    case UBUS_SYSTEM_OBJECT_MONITOR:
        return UBUS_STATUS_METHOD_NOT_FOUND;
    default:
        break;
    }
    object *obj = find_object(id);
    if (!obj) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (!may_call(*req.from, obj->path, blob_get_string(req.attributes[UBUS_ATTR_METHOD]))) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return forward(req, *obj, false) ? NO_ANSWER : UBUS_STATUS_INVALID_ARGUMENT;
}

// Only the owner of an object speaks for it; a caller that is gone is nobody's concern.
int pass_answer_on(const request &req)
{
    if (!req.attributes[UBUS_ATTR_OBJID]) {
        return NO_ANSWER;
    }
    object *obj = find_object(blob_get_u32(req.attributes[UBUS_ATTR_OBJID]));
    client *caller = find_client(req.head.peer);
    if (!obj || obj->owner != req.from || !caller) {
        return NO_ANSWER;
    }
    ubus_frame::header head = {.type = req.head.type, .seq = req.head.seq, .peer = obj->id.id};
    send_frame(*caller, head, req.body);
    return NO_ANSWER;
}

int run(const request &req)
{
    switch (req.head.type) {
    case UBUS_MSG_PING:
        return ping(req);
    case UBUS_MSG_LOOKUP:
        return look_up(req);
    case UBUS_MSG_INVOKE:
        return invoke(req);
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA:
        return pass_answer_on(req);
    case UBUS_MSG_ADD_OBJECT:
        return add_object(req);
    case UBUS_MSG_REMOVE_OBJECT:
        return remove_object(req);
    case UBUS_MSG_SUBSCRIBE:
        return subscribe(req);
    case UBUS_MSG_UNSUBSCRIBE:
        return unsubscribe(req);
    case UBUS_MSG_NOTIFY:
        return notify(req);
    default:
        return UBUS_STATUS_INVALID_COMMAND;
    }
}

} // namespace

bool forward(const request &req, object &to, bool is_silent)
{
    message call;
    if (is_silent) {
        call.add_flag(UBUS_ATTR_NO_REPLY, true);
    }
    call.add(UBUS_ATTR_OBJID, to.id.id).add(UBUS_ATTR_METHOD, blob_get_string(req.attributes[UBUS_ATTR_METHOD]));
    call.add(UBUS_ATTR_USER, req.from->user).add(UBUS_ATTR_GROUP, req.from->group);
    if (req.attributes[UBUS_ATTR_DATA]) {
        call.add_fields(UBUS_ATTR_DATA, req.attributes[UBUS_ATTR_DATA]);
    }
    if (!call.bytes()) {
        return false;
    }
    ubus_frame::header head = {.type = UBUS_MSG_INVOKE, .seq = req.head.seq, .peer = req.from->id.id};
    send_frame(*to.owner, head, call.bytes());
    return true;
}

void handle_request(const request &req)
{
    int status = run(req);
    if (status == NO_ANSWER) {
        return;
    }
    message answer;
    answer.add(UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
    ubus_frame::header head = {.type = UBUS_MSG_STATUS, .seq = req.head.seq, .peer = req.head.peer};
    send_frame(*req.from, head, answer.bytes());
}

} // namespace ubusd
