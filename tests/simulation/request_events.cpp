// SPDX-License-Identifier: MIT
// What others ask of the daemon over the bus, rightly and in odd ways: the word of an event says what is odd. A request
// without an own word of its own for the argument has "right".
#include "tests/simulation/bus.h"
#include "tests/simulation/events.h"
#include "tests/simulation/router.h"

namespace sim {

constexpr const char *OBJECT = "wan_detect";
constexpr const char *UNKNOWN_PORT = "eth77";

static std::string name_of(int port)
{
    return port == 0 ? "" : is_port(port) ? port_at(port).name : UNKNOWN_PORT;
}

// A number as it should be, in quotes, not at all, or along with something else.
static void add_number(blob_buf *message, const char *key, int64_t value, const std::string &how)
{
    if (how == "quoted")
        blobmsg_add_string(message, key, std::to_string(value).c_str());
    else if (how != "missing")
        blobmsg_add_u32(message, key, static_cast<uint32_t>(value));
    if (how == "extra")
        blobmsg_add_string(message, "colour", "blue");
}

static void add_flag(blob_buf *message, const char *key, bool value, const std::string &how)
{
    if (how == "right" || how == "extra" || how.empty())
        blobmsg_add_u8(message, key, value);
    else
        add_number(message, key, value, how == "number" ? "" : how);
}

static bool is_odd(const t_event &event)
{
    return !event.text.empty() && event.text != "right" && event.text != "extra";
}

static std::string draw_oddity(t_number number)
{
    static const char *const ODD[] = {"quoted", "missing", "extra", "number"};
    return one_in(8, number) ? one_of(ODD, number) : "right";
}

static void set(const t_event &event)
{
    const std::string how = event.text;
    const bool enable = event.number != 0;
    send_request({.object = OBJECT, .method = "set", .value = enable, .is_odd = is_odd(event)},
                 [=](blob_buf *message) { add_flag(message, "enable", enable, how); });
}

static void draw_set(const t_life &, t_event *event, t_number number)
{
    event->number = number(5) < 3;
    event->text = draw_oddity(number);
}

static void detect(const t_event &event)
{
    const std::string how = event.text;
    const int64_t delay = event.number;
    send_request({.object = OBJECT, .method = "wan_detect", .value = delay, .is_odd = is_odd(event)},
                 [=](blob_buf *message) { add_number(message, "delay", delay, how); });
}

static void draw_detect(const t_life &, t_event *event, t_number number)
{
    static const int64_t DELAYS[] = {0, 0, 0, 0, 1, 5, 20, 30, 60, 61, -1};
    event->number = one_of(DELAYS, number);
    event->text = draw_oddity(number);
}

// The number is the timeout, 0 for none; the word the protocol.
static void ask(const t_event &event)
{
    const std::string device = name_of(event.port), protocol = event.text;
    const int64_t timeout = event.number;
    send_request({.object = OBJECT,
                  .method = "proto_detect",
                  .device = device,
                  .protocol = protocol,
                  .value = timeout,
                  .is_odd = protocol == "carrier" || device == UNKNOWN_PORT},
                 [=](blob_buf *message) {
                     if (!device.empty())
                         blobmsg_add_string(message, "device", device.c_str());
                     if (!protocol.empty())
                         blobmsg_add_string(message, "protocol", protocol.c_str());
                     if (timeout != 0)
                         blobmsg_add_u32(message, "timeout", static_cast<uint32_t>(timeout));
                 });
}

static void draw_ask(const t_life &life, t_event *event, t_number number)
{
    static const int64_t TIMEOUTS[] = {0, 0, 1000, 2000, 2500, 4000, 999, 4001, -7};
    static const char *const PROTOCOLS[] = {"", "", "", "dhcp", "dhcp", "pppoe", "pppoe", "carrier"};
    event->port = one_in(3, number) ? 0 : one_in(20, number) ? 77 : likely_port(life, number);
    event->number = one_of(TIMEOUTS, number);
    event->text = one_of(PROTOCOLS, number);
}

// Somebody tells of a link, rightly or not.
static void hotplug(const t_event &event)
{
    const std::string device = name_of(event.port), how = event.text;
    const bool up = event.number != 0;
    send_request({.object = OBJECT,
                  .method = "hotplug",
                  .device = device,
                  .value = up,
                  .is_odd = is_odd(event) || device == UNKNOWN_PORT},
                 [=](blob_buf *message) {
                     if (!device.empty())
                         blobmsg_add_string(message, "name", device.c_str());
                     add_flag(message, "status", up, how);
                 });
}

static void draw_hotplug(const t_life &life, t_event *event, t_number number)
{
    event->port = one_in(20, number) ? 0 : one_in(20, number) ? 77 : likely_port(life, number);
    event->number = static_cast<int64_t>(number(2));
    event->text = draw_oddity(number);
}

static void log(const t_event &event)
{
    const int64_t level = event.number;
    const std::string how = event.text;
    send_request({.object = OBJECT, .method = "log", .value = level, .is_odd = is_odd(event)},
                 [=](blob_buf *message) { add_number(message, "level", level, how); });
}

static void draw_log(const t_life &, t_event *event, t_number number)
{
    event->number = between(-2, 8, number);
    event->text = draw_oddity(number);
}

// A question to the second object; the word is its method.
static void state(const t_event &event)
{
    const std::string device = name_of(event.port), method = event.text;
    send_request({.object = "wan_detect.state",
                  .method = method,
                  .device = device,
                  .is_odd = method == "explain" && !is_port(event.port)},
                 [=](blob_buf *message) {
                     if (!device.empty())
                         blobmsg_add_string(message, "device", device.c_str());
                 });
}

static void draw_state(const t_life &life, t_event *event, t_number number)
{
    static const char *const METHODS[] = {"status", "history", "explain"};
    event->text = one_of(METHODS, number);
    if (event->text == "explain")
        event->port = one_in(10, number) ? 77 : some_port(life, number);
}

static void subscribe(const t_event &event)
{
    subscribe_to_daemon("wan_detect.state", event.number != 0);
}

static void draw_subscribe(const t_life &, t_event *event, t_number number)
{
    event->number = number(3) != 0;
}

extern const t_event_kind set_kind, detect_kind, ask_kind, hotplug_kind, log_kind, state_kind, subscribe_kind;
const t_event_kind set_kind = {.name = "set", .happen = set, .draw = draw_set, .weight = 10};
const t_event_kind detect_kind = {.name = "detect", .happen = detect, .draw = draw_detect, .weight = 12};
const t_event_kind ask_kind = {.name = "ask", .happen = ask, .draw = draw_ask, .weight = 14};
const t_event_kind hotplug_kind = {.name = "hotplug", .happen = hotplug, .draw = draw_hotplug, .weight = 8};
const t_event_kind log_kind = {.name = "log", .happen = log, .draw = draw_log, .weight = 2};
const t_event_kind state_kind = {.name = "state", .happen = state, .draw = draw_state, .weight = 6};
const t_event_kind subscribe_kind = {.name = "subscribe", .happen = subscribe, .draw = draw_subscribe, .weight = 3};

} // namespace sim
