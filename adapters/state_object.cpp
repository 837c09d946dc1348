// SPDX-License-Identifier: MIT
#include "adapters/state_object.h"

#include <iterator>

#include <libubus.h>

#include "adapters/bus_message.h"
#include "adapters/bus_reply.h"
#include "adapters/state_reasons.h"
#include "adapters/state_report.h"

namespace {

constexpr const char *STATE_OBJECT_NAME = "wan_detect.state";

enum { EXPLAIN_DEVICE, EXPLAIN_ARGUMENTS };
constexpr blobmsg_policy EXPLAIN_POLICY[EXPLAIN_ARGUMENTS] = {{"device", BLOBMSG_TYPE_STRING}};

using t_report = void(t_bus_reply &);

// The part of an answer that is the same for all.
[[gnu::noinline]] int send_report(ubus_context *context, ubus_request_data *request, t_report *report)
{
    t_bus_reply reply;
    report(reply);
    return reply.send(context, request);
}

template <t_report report>
int answer(ubus_context *context, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    return send_report(context, request, report);
}

int explain(ubus_context *context, ubus_object *, ubus_request_data *request, const char *, blob_attr *message)
{
    blob_attr *arguments[EXPLAIN_ARGUMENTS];
    if (!parse_bus_message(EXPLAIN_POLICY, arguments, message) || !arguments[EXPLAIN_DEVICE])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const t_device *dev = port_named(blobmsg_get_string(arguments[EXPLAIN_DEVICE]));
    if (!dev)
        return UBUS_STATUS_NOT_FOUND;
    t_bus_reply reply;
    report_reasons(reply, *dev);
    return reply.send(context, request);
}

constexpr ubus_method METHODS[] = {
    {.name = "status", .handler = answer<report_status>, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0},
    {.name = "history", .handler = answer<report_history>, .mask = 0, .tags = 0, .policy = nullptr, .n_policy = 0},
    {.name = "explain",
     .handler = explain,
     .mask = 0,
     .tags = 0,
     .policy = EXPLAIN_POLICY,
     .n_policy = EXPLAIN_ARGUMENTS},
};
constexpr int METHOD_COUNT = std::size(METHODS);

ubus_object_type object_type = {.name = STATE_OBJECT_NAME, .id = 0, .methods = METHODS, .n_methods = METHOD_COUNT};

} // namespace

ubus_object state_object;

void prepare_state_object()
{
    // What an earlier connection left in the records would be taken for an object that is published already.
    state_object = {};
    object_type.id = 0;
    state_object.name = STATE_OBJECT_NAME;
    state_object.type = &object_type;
    state_object.methods = METHODS;
    state_object.n_methods = METHOD_COUNT;
}
