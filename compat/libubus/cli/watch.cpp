// SPDX-License-Identifier: MIT
// `ubus listen`, `ubus subscribe` and `ubus wait_for`: events and notifications as they come.
#include "commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/blobmsg_json.h>
}
#pragma GCC visibility pop

namespace ubus_cli {
namespace {

void end_loop(uloop_timeout *)
{
    uloop_end();
}

void run_loop(ubus_context *ctx, std::optional<int> timeout_s)
{
    uloop_timeout limit = {};
    limit.cb = end_loop;
    if (timeout_s) {
        uloop_timeout_set(&limit, timeout_ms(*timeout_s));
    }
    ubus_add_uloop(ctx);
    uloop_run();
    uloop_timeout_cancel(&limit);
}

// 0 seconds are no limit.
void run_loop_up_to(ubus_context *ctx, std::optional<int> timeout_s)
{
    run_loop(ctx, timeout_s == 0 ? std::nullopt : timeout_s);
}

void print_line(const char *type, blob_attr *msg)
{
    char *text = blobmsg_format_json(msg, true);
    if (text) {
        printf("{ \"%s\": %s }\n", type, text);
        fflush(stdout);
        free(text);
    }
}

void print_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    print_line(type, msg);
}

int print_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *type, blob_attr *msg)
{
    print_line(type, msg);
    return UBUS_STATUS_OK;
}

bool listen_to(ubus_context *ctx, ubus_event_handler &handler, const char *pattern)
{
    int status = ubus_register_event_handler(ctx, &handler, pattern);
    if (status != UBUS_STATUS_OK) {
        fprintf(stderr, "Error while registering for event '%s': %s\n", pattern, ubus_strerror(status));
    }
    return status == UBUS_STATUS_OK;
}

// The objects that are still missing: names of the command line, crossed out (null) as they turn up.
struct awaited_objects {
    ubus_event_handler handler;
    arguments names;
    int missing_count;
};

void cross_out(awaited_objects &awaited, const char *path)
{
    for (int i = 0; i < awaited.names.count; i++) {
        char *&name = awaited.names.text[i];
        if (name && strcmp(name, path) == 0) {
            name = nullptr;
            awaited.missing_count--;
        }
    }
    if (awaited.missing_count == 0) {
        uloop_end();
    }
}

void notice_present(ubus_context *, ubus_object_data *object, void *priv)
{
    cross_out(*static_cast<awaited_objects *>(priv), object->path);
}

void notice_added(ubus_context *, ubus_event_handler *handler, const char *, blob_attr *msg)
{
    static constexpr blobmsg_policy POLICY = {"path", BLOBMSG_TYPE_STRING};
    blob_attr *path = nullptr;
    blobmsg_parse(&POLICY, 1, &path, blob_data(msg), static_cast<unsigned int>(blob_len(msg)));
    if (path) {
        cross_out(*container_of(handler, awaited_objects, handler), blobmsg_get_string(path));
    }
}

} // namespace

int listen(bus_link &bus, const arguments &args)
{
    ubus_event_handler handler = {};
    handler.cb = print_event;
    if (args.count == 0 && !listen_to(bus.ctx, handler, "*")) {
        return FAILED;
    }
    for (int i = 0; i < args.count; i++) {
        if (!listen_to(bus.ctx, handler, args.text[i])) {
            return FAILED;
        }
    }
    run_loop_up_to(bus.ctx, bus.wanted.timeout_s);
    return UBUS_STATUS_OK;
}

// An object that goes away is silent from then on, like one that never notifies.
int subscribe(bus_link &bus, const arguments &args)
{
    if (args.count < 1) {
        return WRONG_USAGE;
    }
    ubus_subscriber subscriber = {};
    subscriber.cb = print_notification;
    int status = ubus_register_subscriber(bus.ctx, &subscriber);
    for (int i = 0; status == UBUS_STATUS_OK && i < args.count; i++) {
        uint32_t id = 0; // stays so when the object is hidden from us, and no object has this id
        status = ubus_lookup_id(bus.ctx, args.text[i], &id);
        status = status == UBUS_STATUS_OK ? ubus_subscribe(bus.ctx, &subscriber, id) : status;
    }
    if (status == UBUS_STATUS_OK) {
        run_loop_up_to(bus.ctx, bus.wanted.timeout_s);
    }
    return status;
}

// Listens before it looks, so that no object slips in between.
int wait_for(bus_link &bus, const arguments &args)
{
    if (args.count < 1) {
        return WRONG_USAGE;
    }
    awaited_objects awaited = {.handler = {}, .names = args, .missing_count = args.count};
    awaited.handler.cb = notice_added;
    int status = ubus_register_event_handler(bus.ctx, &awaited.handler, "ubus.object.add");
    if (status == UBUS_STATUS_OK) {
        status = ubus_lookup(bus.ctx, nullptr, notice_present, &awaited);
    }
    if (status != UBUS_STATUS_OK) {
        return status;
    }
    if (awaited.missing_count > 0) {
        run_loop(bus.ctx, bus.wanted.timeout_s.value_or(DEFAULT_TIMEOUT_S));
    }
    return awaited.missing_count > 0 ? UBUS_STATUS_TIMEOUT : UBUS_STATUS_OK;
}

} // namespace ubus_cli
