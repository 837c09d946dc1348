// SPDX-License-Identifier: MIT
// Delta debugging: parts of the life are left out in ever smaller runs, and what is left is made plainer, as long as
// the same check fails, until nothing more can go.
#include "tests/simulation/shrink.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <sstream>

#include "tests/simulation/play.h"

namespace sim {

constexpr int SCHEDULES_PER_CUT = 3; // what is left out moves who runs when; a race may want another schedule
constexpr int64_t ROUND_MS[] = {60'000, 10'000, 1000, 100};
constexpr const char *THE_END = "end";
constexpr int64_t PLAIN_ANSWER_MS = 20;
constexpr int64_t SHORTEST_REST_MS = 1000; // between the last event and the end

std::string check_of(const t_outcome &ended)
{
    const std::string text = ended.text;
    return text.substr(0, text.find(':'));
}

namespace {

using t_clock = std::chrono::steady_clock;

struct t_hunt {
    t_shrunk best;
    std::string check;
    t_clock::time_point over_at;
};

} // namespace

static bool time_is_over(t_hunt *hunt)
{
    if (t_clock::now() >= hunt->over_at)
        hunt->best.is_done = false;
    return !hunt->best.is_done;
}

// True when the cut life fails by the same check: then it is the best so far.
static bool try_cut(t_hunt *hunt, t_life cut)
{
    for (int i = 0; i < SCHEDULES_PER_CUT && !time_is_over(hunt); i++, cut.seed++) {
        const t_outcome ended = play(cut, false);
        hunt->best.played++;
        if (ended.verdict == t_verdict::failed && check_of(ended) == hunt->check) {
            hunt->best.life = cut;
            hunt->best.ended = ended;
            return true;
        }
    }
    return false;
}

// --- leaving out

// A kind of part: how many a life has, and the life without some of them.
struct t_parts {
    size_t (*count)(const t_life &life);
    void (*leave_out)(t_life *life, size_t from, size_t to);
};

static size_t count_events(const t_life &life)
{
    return life.events.size();
}

// The end stays: without it the life would not pass once its fault is mended.
static bool is_the_end(const t_event &event)
{
    return event.kind == THE_END && event.step.empty();
}

static void leave_out_events(t_life *life, size_t from, size_t to)
{
    std::vector<t_event> left;
    for (size_t i = 0; i < life->events.size(); i++)
        if (i < from || i >= to || is_the_end(life->events[i]))
            left.push_back(life->events[i]);
    life->events = left;
}

static size_t count_settings(const t_life &life)
{
    return life.settings.size();
}

static void leave_out_settings(t_life *life, size_t from, size_t to)
{
    const auto at = [life](size_t place) { return std::next(life->settings.begin(), static_cast<long>(place)); };
    life->settings.erase(at(from), at(to));
}

static size_t count_pool(const t_life &life)
{
    return life.pool.size();
}

static void leave_out_of_pool(t_life *life, size_t from, size_t to)
{
    life->pool.erase(life->pool.begin() + static_cast<long>(from), life->pool.begin() + static_cast<long>(to));
}

static size_t count_ports(const t_life &life)
{
    return life.ports.size();
}

static void leave_out_guest(t_life *life, int number)
{
    const auto guests = life->settings.find(GUEST_PORTS);
    if (guests == life->settings.end())
        return;
    std::istringstream words(guests->second);
    std::string left;
    for (int port; words >> port;)
        if (port != number)
            left += (left.empty() ? "" : " ") + std::to_string(port > number ? port - 1 : port);
    guests->second = left;
}

// One port goes with its events; those behind it move up by one.
static void leave_out_port(t_life *life, int number)
{
    const auto is_it = [number](int port) { return port == number; };
    const auto moved = [number](int port) { return port > number ? port - 1 : port; };
    life->ports.erase(life->ports.begin() + number - 1);
    life->pool.erase(std::remove_if(life->pool.begin(), life->pool.end(), is_it), life->pool.end());
    life->events.erase(std::remove_if(life->events.begin(), life->events.end(),
                                      [=](const t_event &event) { return is_it(event.port); }),
                       life->events.end());
    for (int &port : life->pool)
        port = moved(port);
    for (t_event &event : life->events)
        event.port = moved(event.port);
    life->wan = is_it(life->wan) ? 1 : moved(life->wan);
    leave_out_guest(life, number);
}

static void leave_out_ports(t_life *life, size_t from, size_t to)
{
    for (size_t i = to; i > from; i--)
        leave_out_port(life, static_cast<int>(i));
}

static const t_parts PARTS[] = {
    {count_events, leave_out_events},
    {count_ports, leave_out_ports},
    {count_settings, leave_out_settings},
    {count_pool, leave_out_of_pool},
};

static bool leave_out(t_hunt *hunt, const t_parts &parts)
{
    bool has_cut = false;
    for (size_t run = parts.count(hunt->best.life); run > 0; run /= 2) {
        for (size_t from = 0; from < parts.count(hunt->best.life) && !time_is_over(hunt);) {
            t_life cut = hunt->best.life;
            const size_t before = parts.count(cut);
            parts.leave_out(&cut, from, std::min(from + run, before));
            if (parts.count(cut) < before && !cut.ports.empty() && try_cut(hunt, cut))
                has_cut = true; // what follows moved up to `from`
            else
                from += run;
        }
    }
    return has_cut;
}

// --- making plainer

// Each gets one thing of a life, and changes it to something plainer, or leaves it.
static bool empty_port(t_port_plan *port)
{
    const bool is_plain = port->behind == "nothing" && !port->link;
    port->behind = "nothing";
    port->link = false;
    return !is_plain;
}

static bool hush_port(t_port_plan *port)
{
    if (port->behind == "silent" || !port->link)
        return false;
    port->behind = "silent";
    return true;
}

// One of several on a cable goes.
static bool thin_out(std::string *word)
{
    const size_t at = word->rfind('+');
    if (at != std::string::npos)
        word->erase(at);
    return at != std::string::npos;
}

static bool thin_port(t_port_plan *port)
{
    return thin_out(&port->behind);
}

static bool plain_port(t_port_plan *port)
{
    const bool is_plain = port->behind_sfp.empty();
    port->behind_sfp.clear();
    return !is_plain;
}

static bool thin_event(t_event *event)
{
    return thin_out(&event->text);
}

static bool pace_port(t_port_plan *port)
{
    const bool is_plain = port->answers_after_ms == PLAIN_ANSWER_MS;
    port->answers_after_ms = PLAIN_ANSWER_MS;
    return !is_plain;
}

static bool round_event(t_event *event)
{
    if (is_the_end(*event))
        return false; // comes as long after the others as the life needs
    for (int64_t unit : ROUND_MS)
        if (const int64_t rounded = event->at_ms / unit * unit; rounded > 0) {
            const bool is_round = rounded == event->at_ms;
            event->at_ms = rounded;
            return !is_round;
        }
    return false;
}

static bool unnumber_event(t_event *event)
{
    const bool is_plain = event->number == 0;
    event->number = 0;
    return !is_plain;
}

static bool round_delay(t_event *event)
{
    const int64_t rounded = event->after_ms / ROUND_MS[3] * ROUND_MS[3];
    const bool is_round = rounded == event->after_ms;
    event->after_ms = rounded;
    return !is_round;
}

static void sort_events(t_life *life)
{
    std::stable_sort(life->events.begin(), life->events.end(),
                     [](const t_event &a, const t_event &b) { return a.at_ms < b.at_ms; });
}

template <typename t_thing>
static bool make_plainer(t_hunt *hunt, std::vector<t_thing> t_life::*things, bool (*change)(t_thing *thing))
{
    bool has_cut = false;
    for (size_t i = 0; i < (hunt->best.life.*things).size() && !time_is_over(hunt); i++) {
        t_life cut = hunt->best.life;
        if (!change(&(cut.*things)[i]))
            continue;
        sort_events(&cut);
        has_cut |= try_cut(hunt, cut);
    }
    return has_cut;
}

// Half of the rest between the last event and the end goes, again and again.
static bool end_sooner(t_hunt *hunt)
{
    bool has_cut = false;
    for (;;) {
        t_life cut = hunt->best.life;
        if (cut.events.size() < 2 || !is_the_end(cut.events.back()) || time_is_over(hunt))
            return has_cut;
        const int64_t last = cut.events[cut.events.size() - 2].at_ms;
        int64_t &end = cut.events.back().at_ms;
        if (end - last < 2 * SHORTEST_REST_MS)
            return has_cut;
        end = last + (end - last) / 2;
        if (!try_cut(hunt, cut))
            return has_cut;
        has_cut = true;
    }
}

static bool make_all_plainer(t_hunt *hunt)
{
    bool has_cut = end_sooner(hunt);
    for (const auto change : {empty_port, hush_port, plain_port, thin_port, pace_port})
        has_cut |= make_plainer(hunt, &t_life::ports, change);
    for (const auto change : {unnumber_event, thin_event, round_event, round_delay})
        has_cut |= make_plainer(hunt, &t_life::events, change);
    return has_cut;
}

t_shrunk shrink(const t_life &life, const t_outcome &ended, double seconds)
{
    t_hunt hunt = {};
    hunt.best.life = life;
    hunt.best.ended = ended;
    hunt.check = check_of(ended);
    hunt.over_at = t_clock::now() + std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
    for (bool has_cut = true; has_cut && hunt.best.is_done;) {
        has_cut = false;
        for (const t_parts &parts : PARTS)
            has_cut |= leave_out(&hunt, parts);
        has_cut |= make_all_plainer(&hunt);
    }
    return hunt.best;
}

std::string file_of_shrunk(const t_shrunk &shrunk)
{
    return std::string("# ") + shrunk.ended.text + "\n" + text_of_life(shrunk.life);
}

} // namespace sim
