// SPDX-License-Identifier: MIT
#include "tests/simulation/near.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "tests/simulation/events.h"
#include "tests/simulation/scheduler.h"

namespace sim {

constexpr int64_t EARLIEST_MS = 500;    // of what was not earlier in the kept life; see scripts.cpp
constexpr int64_t LONGEST_MS = 900'000; // so that these, too, last ten minutes on average
constexpr int64_t MOST_FLAPS = 60;      // of one event
constexpr size_t MOST_EVENTS = 500;
constexpr const char *THE_END = "end";

static uint64_t mix_of(const char *name)
{
    uint64_t mixed = 0;
    for (const char *letter = name; *letter != '\0'; letter++)
        mixed = mix(mixed ^ static_cast<unsigned char>(*letter));
    return mixed;
}

const t_kept_life &kept_life_for(uint64_t seed)
{
    return *std::max_element(KEPT_LIVES.begin(), KEPT_LIVES.end(), [seed](const t_kept_life &a, const t_kept_life &b) {
        return mix(seed ^ mix_of(a.name)) < mix(seed ^ mix_of(b.name));
    });
}

// --- which event

static bool is_the_end(const t_event &event)
{
    return event.kind == THE_END && event.step.empty();
}

// Null when there is nothing but the end.
static t_event *some_event(t_life *life, t_number number)
{
    std::vector<t_event *> events;
    for (t_event &event : life->events)
        if (!is_the_end(event))
            events.push_back(&event);
    return events.empty() ? nullptr : events[number(events.size())];
}

// --- times

// A little mostly: within the moment, the step, the next steps; or far.
static int64_t draw_reach(t_number number)
{
    static const int64_t REACHES_MS[] = {1, 1, 10, 10, 100, 100, 1000, 1000, 5000, 20'000, 120'000};
    return one_of(REACHES_MS, number);
}

static int64_t draw_shift(int64_t reach_ms, t_number number)
{
    const int64_t shift_ms = between(1, reach_ms, number);
    return one_in(2, number) ? shift_ms : -shift_ms;
}

static void move_to(t_event *event, int64_t at_ms)
{
    event->at_ms = std::max(std::min(event->at_ms, EARLIEST_MS), at_ms);
}

// What waits for a step mostly keeps the step, and moves within it.
static void shift(t_event *event, int64_t by_ms, t_number number)
{
    if (!event->step.empty() && number(4) != 0)
        event->after_ms = std::max<int64_t>(0, event->after_ms + by_ms);
    else
        move_to(event, event->at_ms + by_ms);
}

static void shift_one(t_life *life, t_number number)
{
    if (t_event *event = some_event(life, number))
        shift(event, draw_shift(draw_reach(number), number), number);
}

// Each a little, so that none comes at quite the same time.
static void shift_all(t_life *life, t_number number)
{
    const int64_t reach_ms = draw_reach(number);
    for (t_event &event : life->events)
        if (!is_the_end(event))
            shift(&event, draw_shift(reach_ms, number), number);
}

// All from one of them on, which keep the time between them.
static void shift_rest(t_life *life, t_number number)
{
    const t_event *first = some_event(life, number);
    const int64_t from_ms = first ? first->at_ms : 0;
    const int64_t by_ms = draw_shift(draw_reach(number), number);
    for (t_event &event : life->events)
        if (event.at_ms >= from_ms && !is_the_end(event))
            move_to(&event, event.at_ms + by_ms);
}

static void move_end(t_life *life, t_number number)
{
    t_event &end = life->events.back();
    end.at_ms = std::max<int64_t>(end.at_ms > 0, end.at_ms + draw_shift(draw_reach(number), number));
    end.number = std::max<int64_t>(0, end.number + (end.number > 0 ? draw_shift(3, number) : 0));
}

// --- other events

static void drop_one(t_life *life, t_number number)
{
    if (const t_event *event = some_event(life, number))
        life->events.erase(life->events.begin() + (event - life->events.data()));
}

// Once more some time later, or many times in quick succession.
static void repeat_one(t_life *life, t_number number)
{
    const t_event *event = some_event(life, number);
    if (!event)
        return;
    t_event again = *event;
    const int64_t pause_ms = between(1, 2 * draw_reach(number), number);
    for (int64_t left = one_in(4, number) ? between(2, 12, number) : 1; left > 0; left--) {
        again.at_ms += pause_ms;
        life->events.push_back(again);
    }
}

static bool is_number(const std::string &word)
{
    return !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char letter) { return isdigit(letter); });
}

static int64_t nudged(int64_t value, t_number number)
{
    const uint64_t how = number(4);
    return how == 0 ? value * 2 : how == 1 ? value / 2 : std::max<int64_t>(value > 0, value + draw_shift(3, number));
}

// The same with another number, port or word.
static void change_one(t_life *life, t_number number)
{
    t_event *event = some_event(life, number);
    if (!event)
        return;
    const t_event_kind *kind = event_kind(event->kind);
    if (kind->draw && one_in(3, number)) {
        *event = {
            .at_ms = event->at_ms, .kind = event->kind, .text = "", .step = event->step, .after_ms = event->after_ms};
        kind->draw(*life, event, number);
    } else if (event->port != 0 && one_in(3, number))
        event->port = likely_port(*life, number);
    else if (is_number(event->text) && one_in(2, number))
        event->text = std::to_string(nudged(atoll(event->text.c_str()), number));
    else if (event->number != 0)
        event->number = std::min(nudged(event->number, number), event->kind == "flap" ? MOST_FLAPS : INT64_MAX);
    else
        shift(event, draw_shift(draw_reach(number), number), number);
}

// Another one as lives have it, near one that is there.
static void add_one(t_life *life, t_number number)
{
    const t_event *near = some_event(life, number);
    const int64_t at_ms = (near ? near->at_ms : EARLIEST_MS) + draw_shift(draw_reach(number), number);
    draw_another(life, std::max(EARLIEST_MS, at_ms), one_in(10, number), number);
}

// Some in a row of another kept life, at their own times or near one that is there.
static void add_of_another(t_life *life, t_number number)
{
    t_life other;
    read_life(KEPT_LIVES[number(KEPT_LIVES.size())].text, &other);
    std::erase_if(other.events, is_the_end);
    if (other.events.empty())
        return;
    const size_t first = number(other.events.size());
    const size_t last = std::min(other.events.size(), first + 1 + number(4));
    const t_event *near = some_event(life, number);
    const int64_t by_ms =
        near && number(3) ? near->at_ms + draw_shift(draw_reach(number), number) - other.events[first].at_ms : 0;
    for (size_t i = first; i < last; i++) {
        t_event event = other.events[i];
        move_to(&event, event.at_ms + by_ms);
        const auto ports = static_cast<int>(life->ports.size());
        event.port = event.port > ports && event.port <= static_cast<int>(other.ports.size()) ? 1 + event.port % ports
                                                                                              : event.port;
        life->events.push_back(event);
    }
}

// --- another board

// In numbers, and in words that end with one ("port3").
static std::string with_ports_swapped(const std::string &words, int a, int b)
{
    std::istringstream all(words);
    std::string swapped;
    for (std::string word; all >> word;) {
        const size_t digits = word.find_first_of("0123456789");
        const int port = digits == std::string::npos ? 0 : atoi(word.c_str() + digits);
        swapped += swapped.empty() ? "" : " ";
        swapped += port != a && port != b ? word : word.substr(0, digits) + std::to_string(port == a ? b : a);
    }
    return swapped;
}

static void swap_ports(t_life *life, t_number number)
{
    const int a = some_port(*life, number), b = some_port(*life, number);
    const auto swap = [a, b](auto *port) { *port = *port == a ? b : *port == b ? a : *port; };
    std::swap(life->ports[static_cast<size_t>(a - 1)], life->ports[static_cast<size_t>(b - 1)]);
    swap(&life->wan);
    for (int &port : life->pool)
        swap(&port);
    for (t_event &event : life->events) {
        swap(&event.port);
        if (event.kind == "move")
            swap(&event.number);
    }
    for (auto &[key, value] : life->settings)
        for (const char *name : {GUEST_PORTS, "fake_wan_port", "wan_port_priority", "lacpports", "switch_port"})
            if (key.ends_with(name))
                value = with_ports_swapped(value, a, b);
}

static void change_cable(t_life *life, t_number number)
{
    t_port_plan &port = life->ports[number(life->ports.size())];
    std::string &side = !port.behind_sfp.empty() && one_in(2, number) ? port.behind_sfp : port.behind;
    side = one_in(2, number) ? draw_upstream(*life, number) : draw_bystander(*life, number);
    port.link = port.behind != "nothing";
}

static void change_pace(t_life *life, t_number number)
{
    life->ports[number(life->ports.size())].answers_after_ms = between(1, one_in(4, number) ? 2600 : 300, number);
}

static void change_pool(t_life *life, t_number number)
{
    const int port = some_port(*life, number);
    if (std::erase(life->pool, port) == 0)
        life->pool.insert(life->pool.begin() + static_cast<long>(number(life->pool.size() + 1)), port);
}

static void change_setting(t_life *life, t_number number)
{
    if (!life->settings.empty() && one_in(3, number)) {
        const auto one = std::next(life->settings.begin(), static_cast<long>(number(life->settings.size())));
        if (one->first != SWITCH_RATE)
            life->settings.erase(one);
        return;
    }
    const auto before = life->settings;
    while (life->settings == before)
        draw_settings(life, t_character::losses, number);
}

// --- the whole

static void change_something(t_life *life, t_number number)
{
    static void (*const CHANGES[])(t_life *, t_number) = {
        shift_one,  shift_one,  shift_one,    shift_all,   shift_all,   shift_rest,     shift_rest, move_end,
        drop_one,   repeat_one, repeat_one,   add_one,     add_one,     add_of_another, swap_ports, change_one,
        change_one, change_one, change_cable, change_pace, change_pool, change_setting};
    one_of(CHANGES, number)(life, number);
}

// In order, the end as the last of them, and no longer than other lives.
static void put_in_order(t_life *life, t_number number)
{
    const auto end = std::find_if(life->events.begin(), life->events.end(), is_the_end);
    t_event last = *end;
    life->events.erase(end);
    if (last.at_ms > LONGEST_MS)
        last.at_ms = LONGEST_MS + between(0, 5000, number);
    std::erase_if(life->events, [&](const t_event &event) { return event.at_ms > last.at_ms; });
    if (life->events.size() > MOST_EVENTS)
        life->events.resize(MOST_EVENTS);
    std::stable_sort(life->events.begin(), life->events.end(),
                     [](const t_event &a, const t_event &b) { return a.at_ms < b.at_ms; });
    life->events.push_back(last);
}

void draw_near(const t_kept_life &kept, t_life *life, t_number number)
{
    static const int64_t CHANGES[] = {1, 1, 2, 2, 3, 3, 5, 8, 12};
    read_life(kept.text, life);
    life->near = kept.name;
    if (one_in(3, number))
        life->settings[SWITCH_RATE] = draw_switch_rate(number);
    put_in_order(life, number);
    const std::string before = text_of_life(*life);
    for (int64_t left = one_of(CHANGES, number); left > 0 || text_of_life(*life) == before; left--) {
        change_something(life, number);
        put_in_order(life, number);
    }
}

} // namespace sim
