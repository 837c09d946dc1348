// SPDX-License-Identifier: MIT
// Polite: how often a port is asked within an hour, against the figures of docs/operating.md ("How often a port is
// asked"). They hold while nothing changes from outside; each change and each request may begin the short pauses again,
// and so brings the questions of one series of short pauses more.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/simulation/checks.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time HOUR = 3600 * SECOND;
constexpr uint32_t MOST_ANSWERED_BY_DISCOVERY = 60; // above the 45 (48) of a port where nobody answers
constexpr uint32_t MOST_ANSWERED_STATIC = 75;
constexpr uint32_t LEAST_OF_ALL = 18; // nobody is impolite with fewer, whatever happened
constexpr uint32_t STAGES = 3;        // rounds of one look
// A tie is settled by DNS: the way to the server asked twice, and the query, in every round that ends in one.
constexpr uint32_t QUESTIONS_OF_A_TIE = STAGES + 3;
// The looks after 30, 60, 120 and 240 s, and the cycle that a change may open at once.
constexpr uint32_t MOST_OF_A_CHANGE = 5 * QUESTIONS_OF_A_TIE;
constexpr int SHORTEST_PAUSE_S = 10, FIRST_PAUSE_S = 30, LONGEST_PAUSE_S = 300;

constexpr t_time UP_TO_QUESTIONS = 22 * SECOND + 9 * SECOND; // a link is seen, and settles

static std::deque<t_time> changes; // from outside
static std::deque<t_time> ups;     // of the ports' links, and what hotplug calls said of them

static void note_link(const t_port &port)
{
    if (port.link && port.link_since == now())
        ups.push_back(now());
}

// Whatever it says of a link, right or not, the daemon takes it for news.
static void note_hotplug()
{
    if (ups.empty() || now() - ups.back() >= SECOND)
        ups.push_back(now());
}

// Each of them brings questions of its own, also when the link went and came since; all ports with a link are asked
// then.
static uint32_t ups_to_be_asked_for(t_time since)
{
    return static_cast<uint32_t>(
        std::count_if(ups.begin(), ups.end(), [&](t_time up) { return up + UP_TO_QUESTIONS >= since; }));
}

static uint32_t changes_since(t_time since)
{
    return static_cast<uint32_t>(
        std::count_if(changes.begin(), changes.end(), [&](t_time one) { return one >= since; }));
}

// A call for a cycle may have named a delay.
static t_time last_cycle_due()
{
    t_time last = 0;
    for (const t_request &one : world.requests)
        if (one.method == "wan_detect" && one.served != NEVER && !one.is_odd && one.value >= 0 && one.value <= 60 &&
            one.served + one.value * SECOND <= now())
            last = std::max(last, one.served + one.value * SECOND);
    return last;
}

static std::string configured_pause; // when the last question was asked

static void note_configured_pause()
{
    const std::string pause = option_of("network", "auto_wan_detect", "retry_interval");
    if (pause != configured_pause)
        changes.push_back(now());
    configured_pause = pause;
}

// Looks at all ports that the doubling pauses leave room for.
static uint32_t looks_within(t_time time)
{
    const int set = atoi(configured_pause.c_str());
    const int first = set >= SHORTEST_PAUSE_S ? set : FIRST_PAUSE_S;
    uint32_t looks = 0;
    for (t_time pause = first * SECOND; time >= pause; looks++) {
        time -= pause;
        pause = std::min(2 * pause, std::max(first, LONGEST_PAUSE_S) * SECOND);
    }
    return looks;
}

// While nothing changes, and nobody answers there: the looks since then, one that was under way, and one at once; and
// those for which a link came shortly before.
static void look_at_silent_port(const t_port &port)
{
    const t_time since =
        std::max({changes.empty() ? 0 : changes.back(), world.role_since, port.link_since, last_cycle_due()});
    const uint32_t asked = questions_since(port.number, since);
    const uint32_t most = STAGES * (2 + looks_within(now() - since) + ups_to_be_asked_for(since));
    if (port.truth.found == t_found::never && !port.truth.name_server && world.health.all() &&
        world.health_since <= since && asked > most)
        fail("polite: %s is silent, and was asked %u times in the %ld s since something changed, where %u are the most",
             port.name.c_str(), asked, static_cast<long>((now() - since) / SECOND), most);
}

static void count_question(int port)
{
    note_configured_pause();
    const t_time since = now() - HOUR;
    const uint32_t asked = questions_since(port, since);
    if (asked <= STAGES)
        return;
    look_at_silent_port(port_at(port));
    if (asked <= LEAST_OF_ALL)
        return;
    const uint32_t most = (is_asked_by_arp() ? MOST_ANSWERED_STATIC : MOST_ANSWERED_BY_DISCOVERY) +
                          changes_since(since) * MOST_OF_A_CHANGE;
    if (asked > most)
        fail("polite: %s was asked %u times within an hour, and %u are the most", port_at(port).name.c_str(), asked,
             most);
}

// What the daemon's own swap changes is no change from outside.
static bool comes_from_outside(const t_seen &seen)
{
    if (seen.deed == t_deed::request_served || (seen.deed == t_deed::role_moved && seen.number == 0))
        return true;
    return seen.deed == t_deed::truth_changed && !(world.role_mover == t_mover::daemon && world.role_since == now());
}

static void look_at_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::truth_changed && is_port(seen.port))
        note_link(port_at(seen.port));
    if (seen.deed == t_deed::request_served && strcmp(seen.text, "hotplug") == 0)
        note_hotplug();
    if (seen.deed == t_deed::frame_sent && seen.port != 0)
        count_question(seen.port);
    else if (comes_from_outside(seen) && (changes.empty() || changes.back() != now()))
        changes.push_back(now());
}

extern const t_check polite;
const t_check polite = {.name = "polite", .on_deed = look_at_deed};

} // namespace sim
