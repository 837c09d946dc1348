// SPDX-License-Identifier: MIT
// Texts of the status codes, and the record layout that programs built against the library rely on.
#include "library.h"

#include <cstdio>

namespace {

constexpr const char *TEXTS[] = {
    "Success",
    "Invalid command",
    "Invalid argument",
    "Method not found",
    "Not found",
    "No response",
    "Permission denied",
    "Request timed out",
    "Operation not supported",
    "Unknown error",
    "Connection failed",
    "Out of memory",
    "Parsing message data failed",
    "System error",
};
constexpr int TEXT_COUNT = sizeof(TEXTS) / sizeof(TEXTS[0]);
static_assert(TEXT_COUNT == UBUS_STATUS_SYSTEM_ERROR + 1);

char unknown_error[sizeof("Unknown error: ") + 3 * sizeof(int)];

#if defined(__LP64__)
static_assert(sizeof(ubus_msghdr_buf) == 16 && offsetof(ubus_msghdr_buf, data) == 8);
static_assert(sizeof(ubus_method) == 48 && offsetof(ubus_method, handler) == 8 && offsetof(ubus_method, mask) == 16);
static_assert(offsetof(ubus_method, tags) == 24 && offsetof(ubus_method, policy) == 32);
static_assert(offsetof(ubus_method, n_policy) == 40);
static_assert(sizeof(ubus_object_type) == 32 && offsetof(ubus_object_type, id) == 8);
static_assert(offsetof(ubus_object_type, methods) == 16 && offsetof(ubus_object_type, n_methods) == 24);
static_assert(sizeof(ubus_object) == 120 && offsetof(ubus_object, name) == 56 && offsetof(ubus_object, id) == 64);
static_assert(offsetof(ubus_object, path) == 72 && offsetof(ubus_object, type) == 80);
static_assert(offsetof(ubus_object, subscribe_cb) == 88 && offsetof(ubus_object, has_subscribers) == 96);
static_assert(offsetof(ubus_object, methods) == 104 && offsetof(ubus_object, n_methods) == 112);
static_assert(sizeof(ubus_event_handler) == 128 && offsetof(ubus_event_handler, cb) == 120);
static_assert(sizeof(ubus_subscriber) == 160 && offsetof(ubus_subscriber, obj) == 16);
static_assert(offsetof(ubus_subscriber, cb) == 136 && offsetof(ubus_subscriber, remove_cb) == 144);
static_assert(offsetof(ubus_subscriber, new_obj_cb) == 152);
static_assert(sizeof(ubus_context) == 344 && offsetof(ubus_context, objects) == 16);
static_assert(offsetof(ubus_context, pending) == 64 && offsetof(ubus_context, sock) == 80);
static_assert(offsetof(ubus_context, pending_timer) == 96 && offsetof(ubus_context, local_id) == 144);
static_assert(offsetof(ubus_context, request_seq) == 148 && offsetof(ubus_context, cancel_poll) == 150);
static_assert(offsetof(ubus_context, stack_depth) == 152 && offsetof(ubus_context, connection_lost) == 160);
static_assert(offsetof(ubus_context, monitor_cb) == 168 && offsetof(ubus_context, msgbuf) == 176);
static_assert(offsetof(ubus_context, msgbuf_data_len) == 192 && offsetof(ubus_context, internal) == 200);
static_assert(sizeof(ubus_object_data) == 24 && offsetof(ubus_object_data, type_id) == 4);
static_assert(offsetof(ubus_object_data, path) == 8 && offsetof(ubus_object_data, signature) == 16);
static_assert(sizeof(ubus_request_data) == 56 && offsetof(ubus_request_data, peer) == 4);
static_assert(offsetof(ubus_request_data, seq) == 8 && offsetof(ubus_request_data, acl) == 16);
static_assert(offsetof(ubus_request_data, deferred) == 40 && offsetof(ubus_request_data, fd) == 44);
static_assert(offsetof(ubus_request_data, req_fd) == 48);
static_assert(sizeof(ubus_request) == 104 && offsetof(ubus_request, pending) == 16);
static_assert(offsetof(ubus_request, status_code) == 32 && offsetof(ubus_request, status_msg) == 36);
static_assert(offsetof(ubus_request, notify) == 39 && offsetof(ubus_request, peer) == 40);
static_assert(offsetof(ubus_request, seq) == 44 && offsetof(ubus_request, raw_data_cb) == 48);
static_assert(offsetof(ubus_request, data_cb) == 56 && offsetof(ubus_request, fd_cb) == 64);
static_assert(offsetof(ubus_request, complete_cb) == 72 && offsetof(ubus_request, fd) == 80);
static_assert(offsetof(ubus_request, ctx) == 88 && offsetof(ubus_request, priv) == 96);
#endif

} // namespace

const char *ubus_strerror(int error)
{
    if (error >= 0 && error < TEXT_COUNT) {
        return TEXTS[error];
    }
    snprintf(unknown_error, sizeof(unknown_error), "Unknown error: %d", error);
    return unknown_error;
}
