// SPDX-License-Identifier: MIT
// What is asked of the daemon over the bus, and what became of each.
#include <algorithm>
#include <libubus.h>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/router.h"

namespace sim {

static t_request *request_with(int64_t number)
{
    for (t_request &request : world.requests)
        if (request.number == number)
            return &request;
    return nullptr;
}

static bool is_bus_open()
{
    return calls_can_be_made();
}

static void keep(t_request request, int64_t number, bool reaches)
{
    request.number = number;
    request.sent = now();
    request.is_lost = !reaches;
    world.sets_under_way += reaches && request.method == "set";
    world.requests.push_back(std::move(request));
}

void send_request(t_request request, const t_fill &arguments)
{
    const bool reaches = is_bus_open();
    const std::string object = request.object, method = request.method;
    keep(std::move(request), call_daemon(object, method, arguments), reaches);
}

void send_ban(t_request request, const t_fill &fields)
{
    const bool reaches = is_bus_open();
    request.method = "ban";
    keep(std::move(request), send_event("wan_detect_add_banned_dev", fields), reaches);
}

// As the daemon is told: a shorter ban keeps the end of a longer one, and what is no number lifts it.
static void take_ban(const t_request &request)
{
    const int number = port_named(request.device);
    if (number == 0 || request.value < -1)
        return;
    t_port &port = port_at(number);
    if (request.value == 0) {
        port.banned_until = port.banned_at_least = 0;
        return;
    }
    const t_time end = request.value == -1 ? NEVER : now() + request.value * SECOND;
    if (!memory_will_be_refused()) // else there may be none for it
        port.banned_at_least = link_was_settled(port) ? std::max(port.banned_at_least, end) : end;
    else if (!link_was_settled(port))
        port.banned_at_least = 0; // nor is there one of before
    port.banned_at = now();
    port.banned_until = std::max(port.banned_until, end);
    if (end != NEVER)
        happen_at(end, note_truth);
}

void request_is_served(int64_t number)
{
    t_request *request = request_with(number);
    if (!request)
        return;
    request->served = now();
    if (request->is_lost && request->method == "set")
        world.detection_in_doubt = true;
    saw({.deed = t_deed::request_served, .number = number, .text = request->method.c_str()});
    if (request->method == "ban")
        take_ban(*request);
    if (const int port = request->method == "hotplug" ? port_named(request->device) : 0)
        port_at(port).hotplugged = now();
    note_truth();
}

void request_is_replied(int64_t number, blob_attr *message)
{
    t_request *request = request_with(number);
    if (!request)
        return;
    request->replies++;
    constexpr blobmsg_policy POLICY[] = {{"err_code", BLOBMSG_TYPE_INT32}};
    blob_attr *field[1] = {};
    if (request->object != "wan_detect" ||
        blobmsg_parse(POLICY, 1, field, blobmsg_data(message), blobmsg_len(message)) != 0 || !field[0])
        return;
    request->has_code = true;
    request->code = static_cast<int32_t>(blobmsg_get_u32(field[0]));
}

void request_is_over(int64_t number, int status)
{
    t_request *request = request_with(number);
    if (!request)
        return;
    if (request->is_lost)
        return;
    request->over = now();
    request->status = status;
    if (request->method != "set")
        return;
    world.sets_under_way--;
    if (!request->has_code)
        world.detection_in_doubt = true; // it may be done, and the daemon had no memory for its reply
    if (!request->has_code || request->code != 0)
        return;
    world.detection_in_doubt = false;
    if (world.detection_on != (request->value != 0))
        world.detection_since = now();
    world.detection_on = request->value != 0;
}

void requests_are_lost()
{
    for (t_request &request : world.requests) {
        const bool is_done = request.method == "ban" ? request.served != NEVER : request.over != NEVER;
        if (is_done || request.is_lost)
            continue;
        request.is_lost = true;
        world.sets_under_way -= request.method == "set";
        world.detection_in_doubt = world.detection_in_doubt || (request.method == "set" && request.served != NEVER);
    }
}

} // namespace sim
