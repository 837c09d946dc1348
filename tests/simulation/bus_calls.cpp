// SPDX-License-Identifier: MIT
// The daemon's calls to other services, and the waits that the library makes meanwhile.
#include <algorithm>
#include <cstring>

#include "tests/simulation/bus.h"
#include "tests/simulation/bus_connection.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/memory.h"

namespace sim {

constexpr uint32_t FIRST_SERVICE_ID = 0x2000;
constexpr t_time PENDING_AFTER_MS = 1;
static const char *const SERVICES[] = {"network.interface", "network.device"};

ubus_context *bus_context = nullptr;

namespace {

struct t_exchange {
    const t_connection *with;
    t_time answered_at;
};

bool is_answered(const void *of)
{
    const auto *exchange = static_cast<const t_exchange *>(of);
    return exchange->with->hung_up || (!bus.hangs && exchange->answered_at <= now());
}

} // namespace

// What came in meanwhile is served by a timer, as the library does it.
static void put_aside_incoming()
{
    if (!bus_context || connection->incoming.empty())
        return;
    std::move(connection->incoming.begin(), connection->incoming.end(), std::back_inserter(connection->pending));
    connection->incoming.clear();
    uloop_timeout_set(&bus_context->pending_timer, PENDING_AFTER_MS);
}

static int wait_for_answer(t_time after, t_time limit)
{
    const std::shared_ptr<t_connection> with = connection;
    const t_exchange exchange = {with.get(), after == NEVER ? NEVER : now() + after};
    const t_time over_at = limit == NEVER ? NEVER : now() + limit;
    while (!is_answered(&exchange) && now() < over_at)
        wait_for({.is_over = is_answered,
                  .of = &exchange,
                  .deadline = exchange.answered_at > now() ? std::min(over_at, exchange.answered_at) : over_at,
                  .by_signals = true,
                  .what = "an answer on the bus"});
    if (with->hung_up)
        return UBUS_STATUS_CONNECTION_FAILED;
    put_aside_incoming();
    return is_answered(&exchange) ? 0 : static_cast<int>(UBUS_STATUS_TIMEOUT);
}

int exchange_with_bus()
{
    door(t_door::bus);
    if (!connection || connection->hung_up)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return wait_for_answer(bus.latency, NEVER);
}

bool is_greeted()
{
    door(t_door::bus);
    const std::shared_ptr<t_connection> with = connection;
    const t_exchange exchange = {with.get(), now() + bus.latency};
    const auto wait_until = [&](t_time deadline) {
        return wait_for({.is_over = is_answered,
                         .of = &exchange,
                         .deadline = deadline,
                         .by_signals = true,
                         .what = "an answer on the bus"});
    };
    if (wait_until(exchange.answered_at) == t_woken::signal || is_answered(&exchange))
        return is_answered(&exchange) && !with->hung_up;
    return wait_until(NEVER) == t_woken::ready && !with->hung_up;
}

uint32_t id_of_service(const std::string &object)
{
    const auto *found = std::find(std::begin(SERVICES), std::end(SERVICES), object);
    return FIRST_SERVICE_ID + static_cast<uint32_t>(found - std::begin(SERVICES));
}

static const char *service_with(uint32_t id)
{
    const size_t place = id - FIRST_SERVICE_ID;
    return id >= FIRST_SERVICE_ID && place < std::size(SERVICES) ? SERVICES[place] : nullptr;
}

} // namespace sim

using namespace sim;

static void hand_over(const t_fill &data, ubus_data_handler_t handler, void *context)
{
    if (!data || !handler)
        return;
    blob_buf buffer = {};
    {
        const t_own_memory own;
        blob_buf_init(&buffer, 0);
        data(&buffer);
    }
    ubus_request request = {};
    request.ctx = bus_context;
    request.priv = context;
    handler(&request, UBUS_MSG_DATA, buffer.head);
    blob_buf_free(&buffer);
}

int ubus_invoke_fd(ubus_context *, uint32_t object, const char *method, blob_attr *message, ubus_data_handler_t handler,
                   void *context, int timeout, int)
{
    door(t_door::bus);
    if (!connection || connection->hung_up)
        return UBUS_STATUS_INVALID_ARGUMENT;
    const t_time limit = timeout > 0 ? timeout * MILLISECOND : NEVER;
    const char *service = service_with(object);
    if (!service || !service_is_there(service)) {
        const int status = wait_for_answer(bus.latency, limit);
        return status ? status : object < UBUS_SYSTEM_OBJECT_MAX ? UBUS_STATUS_INVALID_COMMAND : UBUS_STATUS_NOT_FOUND;
    }
    const t_service_answer answer = ask_service(service, method, message);
    const int status = wait_for_answer(answer.after, limit);
    log_line("bus", "the daemon asked %s %s, which ended with status %d", service, method,
             status ? status : answer.status);
    if (status != 0)
        return status;
    hand_over(answer.data, handler, context);
    return answer.status;
}

// --- what only `wan_detect --status` calls, which is another program in the same file

#define NOT_OF_THE_DAEMON fail("%s is none of the daemon's calls", __func__)

int ubus_register_subscriber(ubus_context *, ubus_subscriber *)
{
    NOT_OF_THE_DAEMON;
}

int ubus_subscribe(ubus_context *, ubus_subscriber *, uint32_t)
{
    NOT_OF_THE_DAEMON;
}

int ubus_lookup(ubus_context *, const char *, ubus_lookup_handler_t, void *)
{
    NOT_OF_THE_DAEMON;
}
