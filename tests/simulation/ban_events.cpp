// SPDX-License-Identifier: MIT
// Bans, in all the ways there are: the number is the time in seconds, the word says what is odd about it.
#include "tests/simulation/events.h"
#include "tests/simulation/router.h"

namespace sim {

constexpr int UNKNOWN_PORT = 77;

static bool lifts(const std::string &how)
{
    return how == "quoted" || how == "missing";
}

static void ban(const t_event &event)
{
    const std::string device = event.port == UNKNOWN_PORT || !is_port(event.port) ? "eth77" : port_at(event.port).name;
    const std::string how = event.text;
    const int64_t seconds = event.number;
    send_ban({.device = how == "nameless" ? "" : device, .value = lifts(how) ? 0 : seconds, .is_odd = how != "right"},
             [=](blob_buf *message) {
                 if (how != "nameless")
                     blobmsg_add_string(message, "name", device.c_str());
                 if (how == "quoted")
                     blobmsg_add_string(message, "time", std::to_string(seconds).c_str());
                 else if (how != "missing")
                     blobmsg_add_u32(message, "time", static_cast<uint32_t>(seconds));
             });
}

static void draw_ban(const t_life &life, t_event *event, t_number number)
{
    static const int64_t TIMES[] = {1, 5, 20, 60, 60, 100, 300, 1800, -1, -1, 0, 0, -2};
    static const char *const ODD[] = {"quoted", "missing", "nameless"};
    event->port = one_in(25, number) ? UNKNOWN_PORT : likely_port(life, number);
    event->number = one_of(TIMES, number);
    event->text = one_in(12, number) ? one_of(ODD, number) : "right";
}

static int64_t ban_lasts(const t_event &event)
{
    constexpr int64_t LONGEST_WAITED_FOR_S = 300; // longer ones outlast most lives
    return event.number > 0 && event.number <= LONGEST_WAITED_FOR_S ? event.number * 1000 : 0;
}

extern const t_event_kind ban_kind;
const t_event_kind ban_kind = {.name = "ban", .happen = ban, .draw = draw_ban, .weight = 16, .lasts_ms = ban_lasts};

} // namespace sim
