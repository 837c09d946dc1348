// SPDX-License-Identifier: MIT
// How the script of a life is drawn: what happens, and when.
#include <algorithm>

#include "tests/simulation/events.h"

namespace sim {

constexpr int64_t USUAL_LIFE_MS = 600'000;
constexpr int64_t EARLIEST_MS = 500; // the start has read the configuration by then, which it cannot do without
constexpr const char *THE_END = "end";

static const t_event_kind *draw_kind(bool is_rare_life, t_number number)
{
    const auto weight = [&](const t_event_kind *kind) {
        return kind->draw && (is_rare_life || !kind->is_rare) ? kind->weight : 0;
    };
    uint64_t whole = 0;
    for (const t_event_kind *kind : event_kinds())
        whole += weight(kind);
    uint64_t left = number(whole);
    for (const t_event_kind *kind : event_kinds()) {
        if (left < weight(kind))
            return kind;
        left -= weight(kind);
    }
    return event_kinds()[1];
}

static void draw_what(const t_life &life, t_event *event, bool is_rare_life, t_number number)
{
    const t_event_kind *kind = draw_kind(is_rare_life, number);
    event->kind = kind->name;
    kind->draw(life, event, number);
}

static t_event draw_of_kind(const t_life &life, int64_t at_ms, const char *kind, t_number number)
{
    t_event event = {.at_ms = at_ms, .kind = kind, .text = ""};
    event_kind(kind)->draw(life, &event, number);
    return event;
}

// --- at any time

static int64_t draw_event_count(t_number number)
{
    const uint64_t kind = number(10);
    if (kind < 2)
        return 0;
    if (kind < 6)
        return between(1, 3, number);
    return kind < 9 ? between(4, 8, number) : between(9, 15, number);
}

// Some time after an event: at once, or when the daemon is at what follows from it.
static int64_t draw_pause(t_number number)
{
    static const int64_t STEPS_MS[] = {0, 0, 0, 10'000, 21'000, 30'000};
    return one_of(STEPS_MS, number) + between(1, one_in(2, number) ? 4000 : 12'000, number);
}

// Some time of the life: any, or when the start has waited in vain for a link, or for what a link brings.
static int64_t draw_time(int64_t last_ms, t_number number)
{
    static const int64_t STEPS_MS[] = {15'000, 75'000, 75'000, 105'000};
    if (one_in(4, number))
        return one_of(STEPS_MS, number) + between(0, 6000, number);
    return between(EARLIEST_MS, last_ms, number);
}

// Some lives are longer than others, and some are cut short in the midst of whatever goes on.
static int64_t draw_end(t_number number)
{
    if (one_in(7, number))
        return between(1, one_in(4, number) ? 20 : one_in(3, number) ? 20'000 : USUAL_LIFE_MS, number);
    return USUAL_LIFE_MS * (one_in(20, number) ? 3 : 1) + between(0, 5000, number);
}

// What happens comes mostly within the first minutes, so that a quiet world follows; and often in quick succession.
static int64_t draw_usual(t_life *life, bool is_rare_life, t_number number)
{
    static const int64_t SHARES_OF_TEN[] = {2, 4, 4, 4, 5, 5, 7, 10};
    const int64_t end_ms = draw_end(number);
    const int64_t last_ms = std::max(EARLIEST_MS, end_ms * one_of(SHARES_OF_TEN, number) / 10);
    int64_t former_ms = 0;
    for (int64_t left = draw_event_count(number); left > 0; left--) {
        const bool is_soon = former_ms > 0 && one_in(3, number);
        former_ms = is_soon ? former_ms + draw_pause(number) : draw_time(last_ms, number);
        t_event event = {.at_ms = std::max<int64_t>(1, std::min(former_ms, end_ms - 1)), .text = ""};
        draw_what(*life, &event, is_rare_life, number);
        life->events.push_back(event);
    }
    return end_ms;
}

// --- in the midst of what the daemon does

namespace {

struct t_step {
    const char *name;
    int64_t lasts_ms;      // and a little more
    int64_t moments_ms[3]; // at which something of its own may be due
};

} // namespace

static const t_step &draw_step(const t_life &life, t_number number)
{
    static const t_step STEPS[] = {
        {"waiting", 10'500, {9000, 9020, 10'000}},
        {"looking", 1100, {0, 500, 1000}},
        {"probing", 2700, {500, 1000, 2500}},
        {"judging", 100, {0, 1, 100}},
        {"ending", 50, {0, 1, 10}},
        {"resting", 21'500, {20'000, 21'000, 21'010}},
        {"swap", 20'500, {1000, 9000, 20'000}},
        {"DNS", 3200, {0, 1220, 3000}},
        {"ARP", 1300, {300, 600, 620}},
    };
    static const int SERVERS[] = {0, 1, 2, 2, 2, 2, 3, 4, 5, 6, 7, 7}, GATEWAYS[] = {0, 1, 4, 5, 6, 7, 7, 8, 8, 8};
    const bool is_static =
        life.connection == "static" || life.settings.count("protocol." + life.connection + ".snd_conn");
    return STEPS[is_static ? one_of(GATEWAYS, number) : one_of(SERVERS, number)];
}

// What ends a stage, or makes its answers void.
static t_event draw_mishap_kind(const t_life &life, bool is_rare_life, t_number number)
{
    static const char *const KINDS[] = {"unplug", "unplug", "unplug", "ban",     "ban",  "ban",  "role", "role",  "set",
                                        "dies",   "detect", "ask",    "hotplug", "plug", "flap", "move", "option"};
    t_event event = {.text = ""};
    if (one_in(4, number)) {
        draw_what(life, &event, is_rare_life, number);
        return event;
    }
    event = draw_of_kind(life, 0, one_of(KINDS, number), number);
    if (event.kind == "set")
        event.number = 0;
    else if (event.kind == "role")
        event.port = one_in(12, number) ? 0 : one_in(3, number) ? HOPEFUL : some_port(life, number);
    else if (event.port == HOLDER_OF_ROLE && one_in(2, number))
        event.port = HOPEFUL;
    return event;
}

// What is switched off is switched on again before long.
static void draw_mishap(t_life *life, int64_t at_ms, bool is_rare_life, t_number number)
{
    const t_step &step = draw_step(*life, number);
    t_event event = draw_mishap_kind(*life, is_rare_life, number);
    event.at_ms = at_ms;
    event.step = step.name;
    event.after_ms = one_in(3, number) ? one_of(step.moments_ms, number) : between(0, step.lasts_ms, number);
    life->events.push_back(event);
    if (event.kind != "set" || event.number != 0)
        return;
    event.number = 1;
    event.text = "right";
    event.after_ms += between(1, one_in(2, number) ? 200 : 20'000, number);
    life->events.push_back(event);
}

// --- one loss after the other

// Whoever has the role loses what it had.
static void draw_loss(t_life *life, int64_t at_ms, t_number number)
{
    static const char *const KINDS[] = {"unplug", "unplug", "unplug", "unplug", "move", "move",
                                        "move",   "dies",   "dies",   "flap",   "ban",  "role"};
    t_event event = draw_of_kind(*life, at_ms, one_of(KINDS, number), number);
    if (event.kind != "role")
        event.port = HOLDER_OF_ROLE;
    if (event.kind == "unplug")
        event.number = 0;
    life->events.push_back(event);
    const bool keeps_link = event.kind == "dies" || event.kind == "ban" || event.kind == "role";
    if (keeps_link || one_in(3, number))
        life->events.push_back({.at_ms = at_ms + between(0, one_in(2, number) ? 1000 : 12'000, number),
                                .kind = "detect",
                                .number = one_in(4, number) ? between(1, 20, number) : 0,
                                .text = "right"});
}

// Around it somebody else comes: before it, in the 10 s that it is waited for, or while it is looked for.
static void draw_comers(t_life *life, int64_t at_ms, t_character character, t_number number)
{
    const int64_t comers = static_cast<int64_t>(number(3)) + (character == t_character::crowded);
    for (int64_t left = comers; left > 0; left--)
        life->events.push_back(
            {.at_ms = std::max(EARLIEST_MS, at_ms + between(-20'000, one_in(2, number) ? 11'000 : 45'000, number)),
             .kind = "plug",
             .port = some_port(*life, number),
             .text = draw_upstream(*life, number)});
}

// The first pass of the start comes after 15 s with a link on the WAN port, after 75 s without.
static int64_t draw_beginning(t_number number)
{
    return one_in(3, number) ? between(EARLIEST_MS, 16'000, number) : between(15'500, 50'000, number);
}

// Until the next loss: shorter than the test behind a swap, or so long that whoever is there must be found before.
static int64_t draw_rest(t_number number)
{
    const uint64_t kind = number(8);
    if (kind < 3)
        return between(8000, 45'000, number);
    return kind < 7 ? between(45'000, 100'000, number) : between(100'000, 150'000, number);
}

static int64_t draw_losses(t_life *life, t_character character, bool is_rare_life, t_number number)
{
    int64_t at_ms = draw_beginning(number);
    for (int64_t left = between(3, 8, number); left > 0; left--) {
        draw_loss(life, at_ms, number);
        draw_comers(life, at_ms, character, number);
        for (uint64_t mishaps = number(4); mishaps > 0; mishaps--)
            draw_mishap(life, at_ms - between(0, 500, number), is_rare_life, number);
        at_ms += draw_rest(number);
    }
    return at_ms;
}

// --- all at once

void draw_another(t_life *life, int64_t at_ms, bool is_rare_life, t_number number)
{
    if (one_in(3, number))
        return draw_mishap(life, at_ms, is_rare_life, number);
    t_event event = {.at_ms = at_ms, .text = ""};
    draw_what(*life, &event, is_rare_life, number);
    life->events.push_back(event);
}

static int64_t draw_storms(t_life *life, bool is_rare_life, t_number number)
{
    int64_t at_ms = draw_beginning(number);
    for (int64_t storms = between(1, 3, number); storms > 0; storms--) {
        for (int64_t left = between(6, 14, number); left > 0; left--) {
            at_ms += one_in(3, number) ? draw_pause(number) : between(1, 3000, number);
            draw_another(life, at_ms, is_rare_life, number);
        }
        draw_comers(life, at_ms, t_character::crowded, number);
        at_ms += between(30'000, 130'000, number);
    }
    return at_ms;
}

// --- the same trouble again and again

// With it, or with its end: in the same step if it waits for one.
static void draw_company(t_life *life, const t_event &trouble, t_number number)
{
    static const int64_t REACHES_MS[] = {1, 10, 100, 1000, 5000};
    int64_t (*const lasts_ms)(const t_event &) = event_kind(trouble.kind)->lasts_ms;
    t_event event = draw_mishap_kind(*life, one_in(3, number), number);
    const int64_t reach_ms = one_of(REACHES_MS, number);
    const int64_t later_ms =
        (lasts_ms && one_in(3, number) ? lasts_ms(trouble) : 0) + between(-reach_ms, reach_ms, number);
    event.step = trouble.step;
    event.after_ms = event.step.empty() ? 0 : std::max<int64_t>(0, trouble.after_ms + later_ms);
    event.at_ms = event.step.empty() ? std::max(EARLIEST_MS, trouble.at_ms + later_ms) : trouble.at_ms;
    life->events.push_back(event);
}

// Somebody cannot stop.
static void draw_burst(t_life *life, t_event event, t_number number)
{
    static const int64_t PAUSES_MS[] = {1, 10, 100, 100, 1000, 5000};
    const int64_t pause_ms = one_of(PAUSES_MS, number);
    const bool alternates = event.kind == "set" || event.kind == "hotplug" || event.kind == "role";
    for (int64_t left = between(3, 30, number); left > 0; left--) {
        event.at_ms += pause_ms;
        event.number = alternates ? !event.number : event.number;
        life->events.push_back(event);
    }
}

static int64_t draw_troubles(t_life *life, t_number number)
{
    static const char *const KINDS[] = {"bus_dies", "bus_hangs", "bus_deaf",    "bus_refuses", "manager", "command",
                                        "hang",     "lock",      "descriptors", "memory",      "threads", "disk",
                                        "role",     "role",      "hotplug",     "set",         "ask",     "flap"};
    const char *const kind = one_of(KINDS, number);
    int64_t at_ms = draw_beginning(number);
    for (int64_t left = between(2, 6, number); left > 0; left--) {
        t_event trouble = draw_of_kind(*life, at_ms, kind, number);
        if (one_in(2, number)) {
            const t_step &step = draw_step(*life, number);
            trouble.step = step.name;
            trouble.after_ms = one_in(3, number) ? one_of(step.moments_ms, number) : between(0, step.lasts_ms, number);
        }
        life->events.push_back(trouble);
        for (int64_t others = between(1, 3, number); others > 0; others--)
            draw_company(life, trouble, number);
        if (one_in(8, number))
            draw_burst(life, life->events.back(), number);
        if (one_in(2, number))
            draw_loss(life, at_ms + draw_pause(number), number);
        at_ms += draw_rest(number);
    }
    return at_ms;
}

// --- the whole

// What the start itself waits for, at most half a minute for the bus and for each file; or cannot do without.
static void draw_trouble_at_start(t_life *life, t_number number)
{
    static const char *const KINDS[] = {"bus_hangs", "bus_hangs", "lock",   "lock",
                                        "break",     "bus_dies",  "memory", "descriptors"};
    static const char *const PACKAGES[] = {"network", "switch", "protocol", "sysmode"};
    t_event event = {.kind = one_of(KINDS, number), .number = between(1, 20'000, number), .text = ""};
    if (event.kind == "lock" || event.kind == "break")
        event.text = one_of(PACKAGES, number);
    else if (event.kind == "memory")
        event = {.kind = "memory", .number = between(1, 12, number), .text = std::to_string(number(200))};
    else if (event.kind == "bus_refuses")
        event.text = one_in(2, number) ? "wan_detect" : "wan_detect.state";
    else if (event.kind == "descriptors")
        event.text = std::to_string(between(3, 16, number));
    life->events.push_back(event);
}

// The end within a step, or within a command that hangs then.
static void draw_early_end(t_life *life, int64_t end_ms, t_number number)
{
    const int64_t at_ms = between(0, end_ms, number);
    const t_step &step = draw_step(*life, number);
    const bool hangs = one_in(3, number);
    if (hangs) {
        t_event event = draw_of_kind(*life, at_ms, "hang", number);
        event.number = 60'000;
        life->events.push_back(event);
    }
    life->events.push_back({.at_ms = at_ms,
                            .kind = THE_END,
                            .text = "",
                            .step = hangs && one_in(2, number) ? "swap" : step.name,
                            .after_ms = between(0, step.lasts_ms, number)});
}

// In the midst of things, after a while in which somebody is found, or after the longest of the pauses.
static int64_t draw_last_rest(t_number number)
{
    const uint64_t kind = number(8);
    if (kind < 3)
        return between(1, 30'000, number);
    return kind < 7 ? between(30'000, 110'000, number) : between(110'000, 400'000, number);
}

void draw_events(t_life *life, t_character character, t_number number)
{
    const bool is_rare_life = one_in(10, number);
    int64_t end_ms = 0;
    switch (character) {
    case t_character::usual:
        end_ms = draw_usual(life, is_rare_life, number);
        break;
    case t_character::losses:
    case t_character::crowded:
        end_ms = draw_losses(life, character, is_rare_life, number) + draw_last_rest(number);
        break;
    case t_character::stormy:
        end_ms = draw_storms(life, is_rare_life, number) + draw_last_rest(number);
        break;
    case t_character::troubled:
        end_ms = draw_troubles(life, number) + draw_last_rest(number);
        break;
    }
    if (is_rare_life && one_in(4, number))
        draw_trouble_at_start(life, number);
    if (one_in(12, number))
        draw_early_end(life, end_ms, number);
    life->events.push_back({.at_ms = end_ms, .kind = THE_END, .text = ""});
    std::stable_sort(life->events.begin(), life->events.end(),
                     [](const t_event &a, const t_event &b) { return a.at_ms < b.at_ms; });
}

} // namespace sim
