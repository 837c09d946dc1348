// SPDX-License-Identifier: MIT
// Events: who registered which pattern, and the delivery of what clients and the daemon itself send.
#include "bus.h"

#include <cstdlib>
#include <cstring>

namespace ubusd {
namespace {

using ubus_frame::message;

constexpr char RESERVED_PREFIX[] = "ubus.";

struct pattern {
    list_head of_all;
    list_head of_object;
    object *listener; // borrowed
    bool is_prefix;
    size_t length; // without the final star
    char text[];
};

struct event {
    const client *sender; // gets nothing; null for none
    const char *id;
    const void *fields;
    size_t length;
};

LIST_HEAD(patterns);
uint64_t event_count;
uint16_t delivery_count;
blob_buf announcement;

bool matches(const pattern &wanted, const char *id)
{
    return wanted.is_prefix ? strncmp(wanted.text, id, wanted.length) == 0 : strcmp(wanted.text, id) == 0;
}

void deliver(object &listener, const event &what)
{
    message call;
    call.add(UBUS_ATTR_OBJID, listener.id.id).add(UBUS_ATTR_METHOD, what.id);
    call.add_fields(UBUS_ATTR_DATA, what.fields, what.length);
    ubus_frame::header head = {.type = UBUS_MSG_INVOKE, .seq = ++delivery_count, .peer = 0};
    send_frame(*listener.owner, head, call.bytes());
}

// Several patterns of one listener may match, but it hears of the event once.
void publish(const event &what)
{
    event_count++;
    pattern *wanted;
    list_for_each_entry(wanted, &patterns, of_all)
    {
        object &listener = *wanted->listener;
        if (listener.owner == what.sender || listener.last_event == event_count || !matches(*wanted, what.id)) {
            continue;
        }
        listener.last_event = event_count;
        deliver(listener, what);
    }
}

bool has_pattern(const object &listener, const char *text, size_t length, bool is_prefix)
{
    const pattern *known;
    list_for_each_entry(known, &listener.patterns, of_object)
    {
        if (known->is_prefix == is_prefix && known->length == length && memcmp(known->text, text, length) == 0) {
            return true;
        }
    }
    return false;
}

int add_pattern(object &listener, const char *text)
{
    size_t length = strlen(text);
    bool is_prefix = text[length - 1] == '*';
    length -= is_prefix ? 1 : 0;
    if (has_pattern(listener, text, length, is_prefix)) {
        return UBUS_STATUS_OK;
    }
    auto *wanted = static_cast<pattern *>(calloc(1, sizeof(pattern) + length + 1));
    if (!wanted) {
        return UBUS_STATUS_NO_MEMORY;
    }
    memcpy(wanted->text, text, length); // NOLINT(bugprone-not-null-terminated-result): calloc terminated it
    wanted->length = length;
    wanted->is_prefix = is_prefix;
    wanted->listener = &listener;
    list_add_tail(&wanted->of_all, &patterns);
    list_add_tail(&wanted->of_object, &listener.patterns);
    return UBUS_STATUS_OK;
}

int register_pattern(const request &req, const blob_attr *arguments)
{
    enum { OBJECT, PATTERN, COUNT };
    static constexpr blobmsg_policy POLICY[] = {{"object", BLOBMSG_TYPE_INT32}, {"pattern", BLOBMSG_TYPE_STRING}};
    blob_attr *fields[COUNT] = {};
    blobmsg_parse(POLICY, COUNT, fields, blob_data(arguments), static_cast<unsigned int>(blob_len(arguments)));
    if (!fields[OBJECT] || !fields[PATTERN]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    uint32_t id = blobmsg_get_u32(fields[OBJECT]);
    if (id < UBUS_SYSTEM_OBJECT_MAX) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    object *listener = find_object(id);
    if (!listener) {
        return UBUS_STATUS_NOT_FOUND;
    }
    const char *text = blobmsg_get_string(fields[PATTERN]);
    if (listener->owner != req.from || !*text || !may_listen(*req.from, text)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return add_pattern(*listener, text);
}

int send_event(const request &req, const blob_attr *arguments)
{
    enum { ID, FIELDS, COUNT };
    static constexpr blobmsg_policy POLICY[] = {{"id", BLOBMSG_TYPE_STRING}, {"data", BLOBMSG_TYPE_TABLE}};
    blob_attr *fields[COUNT] = {};
    blobmsg_parse(POLICY, COUNT, fields, blob_data(arguments), static_cast<unsigned int>(blob_len(arguments)));
    if (!fields[ID] || !fields[FIELDS]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const char *id = blobmsg_get_string(fields[ID]);
    if (strncmp(id, RESERVED_PREFIX, strlen(RESERVED_PREFIX)) == 0 || !may_send(*req.from, id)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    publish({.sender = req.from,
             .id = id,
             .fields = blobmsg_data(fields[FIELDS]),
             .length = blobmsg_data_len(fields[FIELDS])});
    return UBUS_STATUS_OK;
}

} // namespace

int call_event_object(const request &req, const char *method)
{
    bool is_registration = strcmp(method, "register") == 0;
    if (!is_registration && strcmp(method, "send") != 0) {
        return UBUS_STATUS_INVALID_COMMAND;
    }
    const blob_attr *arguments = req.attributes[UBUS_ATTR_DATA];
    if (!arguments) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return is_registration ? register_pattern(req, arguments) : send_event(req, arguments);
}

void announce(const object &obj, const char *event_id)
{
    if (blob_buf_init(&announcement, 0) != 0 || blobmsg_add_u32(&announcement, "id", obj.id.id) != 0 ||
        blobmsg_add_string(&announcement, "path", obj.path) != 0) {
        return;
    }
    publish({.sender = obj.owner,
             .id = event_id,
             .fields = blob_data(announcement.head),
             .length = blob_len(announcement.head)});
}

void forget_patterns(object &obj)
{
    while (!list_empty(&obj.patterns)) {
        pattern *wanted = list_first_entry(&obj.patterns, pattern, of_object);
        list_del(&wanted->of_object);
        list_del(&wanted->of_all);
        free(wanted);
    }
}

} // namespace ubusd
