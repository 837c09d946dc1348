// SPDX-License-Identifier: MIT
// Calls to other services; apart from the connection so that tests can answer in their place.
#include "platform/bus.h"

#include <libubus.h>

#include "platform/bus_limit.h"
#include "platform/log.h"
#include "platform/result_codes.h"

// No method of the bus daemon's own objects has this name; being told so is answer enough.
constexpr const char *PING_METHOD = "ping";

// More than two calls that use up their own limits. Only reached when the bus daemon hangs between them, or takes so
// little that even writing to it waits.
constexpr int BUS_LIMIT_MS = 3 * BUS_CALL_TIMEOUT_MS;

// The library looks objects up without a limit, and a bus daemon that hangs would take the loop with it. So it first
// has to answer a call that has a limit.
static bool bus_answers(ubus_context *bus)
{
    int status =
        ubus_invoke(bus, UBUS_SYSTEM_OBJECT_EVENT, PING_METHOD, nullptr, nullptr, nullptr, BUS_CALL_TIMEOUT_MS);
    return status != UBUS_STATUS_TIMEOUT && status != UBUS_STATUS_CONNECTION_FAILED;
}

int ubus_call_method(const char *object, const char *method, blob_buf *message, t_bus_reply_handler reply,
                     void *context)
{
    if (!object || object[0] == '\0') {
        LOG(Error, "Invalid input ubus name!\n");
        return ERR_INVALID_INPUT;
    }
    if (!method || method[0] == '\0') {
        LOG(Error, "Invalid input ubus method!\n");
        return ERR_INVALID_INPUT;
    }
    ubus_context *bus = wan_detect_ubus_context();
    if (!bus) {
        LOG(Error, "Can't find %s\n", object);
        return ERR_BUS_OBJECT;
    }
    // The library calls it success when an object exists but may not be seen; the id then stays 0.
    uint32_t id = 0;
    t_bus_limit limit(bus, BUS_LIMIT_MS);
    if (!limit.is_set() || !bus_answers(bus) || ubus_lookup_id(bus, object, &id) != 0 || id == 0) {
        LOG(Error, "Can't find %s\n", object);
        return ERR_BUS_OBJECT;
    }
    return ubus_invoke(bus, id, method, message ? message->head : nullptr, reply, context, BUS_CALL_TIMEOUT_MS);
}
