// SPDX-License-Identifier: MIT
// Found: once the world is quiet, and somebody has given the daemon a reason to look, an upstream behind an eligible
// port gets the role within a bound. README.md names each term of it.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/simulation/checks.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

// --- the terms of the bound, as docs/operating.md and docs/architecture.md name them, and not as the daemon's headers
// do: a wrong constant there must not move the bound along

// A link that changed is seen: the scan's pause, once longer behind a swap, and the script.
constexpr t_time SEEN = SECOND + 20 * SECOND + SECOND;
// From the loss of the WAN port's link to the first pass; later losses begin it anew.
constexpr t_time LOSS = 10 * SECOND, MOST_PUT_OFF = 60 * SECOND;
// All stages of one look: three rounds of 2.5 s, the judgement within 0.1 s, the pauses of a second between them.
constexpr t_time STAGES = 3 * (2500 + 100 + 1000) * MILLISECOND;
// A request that holds the stage for its timeout, and the next try of the cycle behind it.
constexpr t_time REQUEST = (4000 + 500 + 500) * MILLISECOND;
// The pauses between two looks, and between a swap and its test.
constexpr int FIRST_PAUSE_S = 30, LONGEST_PAUSE_S = 300, SHORTEST_SETTING_S = 10, LONGEST_SETTING_S = 3600;
constexpr t_time TEST_PAUSE = 21 * SECOND;
// The bus method's delays are at most so long.
constexpr int64_t MOST_DELAY_S = 60;
// Passes of the cycle come once a second; doors, and threads that wait for their turn.
constexpr t_time SLACK = 3 * SECOND;

constexpr const char *SWAP = "network_lanwan_swap set port";

constexpr size_t RESTING = 0, ENDING = 7; // the numbers of these states

// A link was there, or away, for so long that the scan has seen it.
constexpr t_time SURELY_SEEN = SEEN + 11 * SECOND;

namespace {

struct t_obligation {
    t_time since = NEVER;
    t_time blocked = 0; // the loop's, when it began
};

// The ports whose win would be right.
struct t_upstreams {
    int count = 0;
    t_found worst = t_found::at_once;
    t_time since = 0; // all of them have been there
};

t_obligation owed;
t_obligation restless;      // the same while ports of no matter change
t_obligation worked;        // the WAN port, beside an open cycle
bool cycle_is_over = true;  // it rests
int detection_as_told = -1; // by the last `set` whose handler began; -1 for none yet
t_time eased_at = -NEVER;   // a change that begins the pauses of the looks with the shortest again
t_time swaps_eased_at = 0;  // one that begins those behind swaps with the shortest, too
t_time swapped_at = 0;      // last, by the daemon
t_time asked_for = -NEVER;  // when a cycle that somebody asked for is due
t_time told_wrongly = 0;    // of a link
bool is_excused = false;
bool was_looked_for = false; // the role, by a pass, while it was at none of the ports
t_time excused_until = 0;    // by a holder that was taken for good
bool has_given_up = false;   // it may have, while the configuration wanted no second look
bool links[64];
t_time links_since[64];
bool may_ease[64]; // if it lasts, for what was before it did

// 0 for never. What is no number, or out of its range, counts as nothing.
t_time read_first_pause()
{
    const std::string text = option_of("network", "auto_wan_detect", "retry_interval");
    if (text == "0")
        return 0;
    const int seconds = atoi(text.c_str());
    return (seconds < SHORTEST_SETTING_S || seconds > LONGEST_SETTING_S ? FIRST_PAUSE_S : seconds) * SECOND;
}

// Read again when the file was changed, for it is asked for all the time.
t_time first_pause()
{
    static t_node_ref read;
    static t_time changed = 0, pause = 0;
    const auto file = files.find("/etc/config/network");
    if (file != files.end() && (file->second != read || file->second->changed != changed)) {
        read = file->second;
        changed = read->changed;
        pause = read_first_pause();
    }
    return pause;
}

bool may_win(const t_port &port)
{
    const t_port_truth &truth = port.truth;
    return truth.in_pool && !truth.is_reserved && !truth.may_be_banned && truth.link && truth.lan_hosts == 0;
}

} // namespace

// --- whether the daemon owes anything

// None when a port may win without being right, for then the daemon is led astray.
static t_upstreams look_for_upstreams()
{
    t_upstreams upstreams;
    for (const t_port &port : world.ports) {
        if (!may_win(port) || port.truth.found == t_found::never)
            continue;
        if (port.truth.found == t_found::doubtful || !port.truth.serves)
            return {};
        upstreams.worst = std::max(upstreams.worst, port.truth.found);
        upstreams.since = std::max(upstreams.since, port.truth_since);
        upstreams.count++;
    }
    return upstreams;
}

// At rest nobody looks: a WAN port that keeps its link after the manager called it connected, or that somebody else
// chose while nothing was going on, is not looked at again before its link goes or somebody asks. So only a holder that
// never had a chance to be taken for good since the last such moment obliges the daemon to look.
static void note_excuse()
{
    const bool told_truly = world.health.manager && world.health.bus && world.health.commands;
    if (!is_port(world.role_holder))
        is_excused = is_excused || package_is_usable("switch"); // else nobody can tell who has the role
    else if (const t_port &holder = port_at(world.role_holder); holder.link)
        is_excused = is_excused || holder.truth.serves || !told_truly;
}

// What the daemon swapped to, or was called to look at, and what served until the test behind it, was taken for good.
static void note_passed_test()
{
    if (!is_port(world.role_holder) || loop_began() == NEVER)
        return;
    const t_port &holder = port_at(world.role_holder);
    const t_time since = std::max(
        {world.role_since, holder.truth_since, holder.link_since, asked_for, world.detection_since, loop_began()});
    is_excused = is_excused || (holder.link && holder.truth.serves && now() - since >= TEST_PAUSE);
}

static bool holder_is_surely_lost()
{
    return is_port(world.role_holder) && !port_at(world.role_holder).link &&
           now() - std::max(port_at(world.role_holder).link_since, world.role_since) > SURELY_SEEN;
}

static bool holder_is_right()
{
    if (!is_port(world.role_holder))
        return false;
    const t_port &holder = port_at(world.role_holder);
    return holder.link && holder.truth.serves;
}

// --- the bound

static t_time bound_of_owed(t_found worst)
{
    const t_time first = first_pause(), longest = std::max(first, LONGEST_PAUSE_S * SECOND);
    // A pause that doubled is as long as all before it together, and a first one.
    const t_time eased = swapped_at > swaps_eased_at ? std::min(eased_at, swaps_eased_at) : eased_at;
    const t_time gone = std::max<t_time>(owed.since - std::max(eased, loop_began()), 0);
    const t_time pause = std::min(std::max(first, TEST_PAUSE) + gone, longest);
    const t_time second_look = worst == t_found::second_look ? std::min(2 * pause, longest) + STAGES : 0;
    return SEEN + LOSS + REQUEST + STAGES + pause + STAGES + second_look + SLACK;
}

// The same while other ports flap and somebody asks: nothing puts a look off for ever.
static t_time bound_of_restless(t_found worst)
{
    const t_time longest = std::max(first_pause(), LONGEST_PAUSE_S * SECOND);
    const t_time second_look = worst == t_found::second_look ? longest + STAGES : 0;
    return SEEN + LOSS + MOST_PUT_OFF + 3 * REQUEST + 2 * STAGES + longest + STAGES + second_look + SLACK;
}

// The scan looks, and its script tells the truth.
static bool links_are_told_since(t_time time)
{
    return world.detection_on && world.health.all() && std::max(world.health_since, world.detection_since) <= time;
}

static void note_lasting_links()
{
    for (size_t slot = 1; slot <= std::min(world.ports.size(), std::size(links) - 1); slot++) {
        may_ease[slot] = may_ease[slot] && links_are_told_since(links_since[slot]);
        if (!may_ease[slot] || now() - links_since[slot] <= SURELY_SEEN)
            continue;
        may_ease[slot] = false;
        eased_at = std::max(eased_at, links_since[slot]);
        swaps_eased_at = std::max(swaps_eased_at, links_since[slot]);
    }
}

static void judge(t_obligation *one, const t_upstreams &upstreams, t_time since, t_time (*bound)(t_found worst))
{
    if (upstreams.count == 0 || has_given_up) {
        one->since = NEVER;
        return;
    }
    since = std::max({since, loop_began(), asked_for, excused_until, upstreams.since});
    if (one->since == NEVER || since > one->since)
        *one = {since, time_loop_was_blocked()};
    const t_time limit = bound(upstreams.worst) + time_loop_was_blocked() - one->blocked;
    if (now() - one->since > limit)
        fail("found: %d upstream(s), and port %d has the role for %ld s, where %ld s are the most", upstreams.count,
             world.role_holder, static_cast<long>((now() - one->since) / SECOND), static_cast<long>(limit / SECOND));
}

static void look_at_obligation()
{
    note_passed_test();
    note_lasting_links();
    if (is_excused && holder_is_surely_lost()) {
        is_excused = false;
        excused_until = std::max(port_at(world.role_holder).link_since, world.role_since);
    }
    const bool is_free = world.told_to_end != NEVER || loop_began() == NEVER || !detection_is_undisturbed() ||
                         is_excused || holder_is_right() || start_was_deceived();
    const t_upstreams upstreams = is_free ? t_upstreams{} : look_for_upstreams();
    has_given_up = has_given_up || (upstreams.count > 0 && first_pause() == 0);
    judge(&restless, upstreams, std::max(unchanged_since(), told_wrongly), bound_of_restless);
    judge(&owed, now() < world.quiet_from ? t_upstreams{} : upstreams, undisturbed_since(), bound_of_owed);
}

// --- a WAN port that works ends the cycle: its next pass asks the network manager first

static void look_at_open_cycle()
{
    const bool is_free = world.told_to_end != NEVER || loop_began() == NEVER || !detection_is_undisturbed() ||
                         !holder_is_right() || port_at(world.role_holder).truth.may_be_banned;
    if (is_free || cycle_is_over) {
        worked = {now(), time_loop_was_blocked()};
        return;
    }
    const t_port &holder = port_at(world.role_holder);
    const t_time since =
        std::max({worked.since, undisturbed_since(), world.role_since, holder.truth_since, asked_for, loop_began()});
    const t_time limit = SEEN + LOSS + REQUEST + STAGES + SLACK + time_loop_was_blocked() - worked.blocked;
    if (now() - since > limit)
        fail("found: port %d works for %ld s, and the cycle goes on, where %ld s are the most", world.role_holder,
             static_cast<long>((now() - since) / SECOND), static_cast<long>(limit / SECOND));
}

static void look_at_rest_of_found()
{
    look_at_obligation();
    look_at_open_cycle();
}

// --- what happened

// True when it opens a cycle: detection was off. An odd one is refused.
static bool switches_on(const t_request &request)
{
    if (request.is_odd)
        return false;
    const bool was_on = detection_as_told < 0 ? world.detection_on : detection_as_told > 0;
    detection_as_told = request.value != 0;
    return request.value != 0 && !was_on;
}

static void note_request(int64_t number)
{
    const auto one = std::find_if(world.requests.rbegin(), world.requests.rend(),
                                  [&](const t_request &request) { return request.number == number; });
    if (number == 0 || one == world.requests.rend())
        return;
    if (const int port = one->method == "hotplug" ? port_named(one->device) : 0;
        port != 0 && port_at(port).link != (one->value != 0))
        told_wrongly = now();
    if (one->method == "set" && switches_on(*one))
        is_excused = false;
    if (one->method != "wan_detect" || one->value < 0 || one->value > MOST_DELAY_S)
        return;
    is_excused = false;
    eased_at = now();
    asked_for = now() + one->value * SECOND;
}

// At rest nobody judges what somebody chose; but when the role comes back to a port of the table, and the daemon knows
// that it was away, it looks.
static void note_moved_role()
{
    is_excused = !(was_looked_for && cycle_is_over && is_port(world.role_holder) && detection_is_undisturbed());
    was_looked_for = false;
}

static void note_link(const t_port &port)
{
    const size_t slot = static_cast<size_t>(port.number) % std::size(links);
    bool &link = links[slot];
    t_time &since = links_since[slot];
    if (link == port.truth.link)
        return;
    may_ease[slot] = port.truth.in_pool && now() - since > SURELY_SEEN && links_are_told_since(now() - SURELY_SEEN);
    link = port.truth.link;
    since = now();
}

static void note_way(size_t to)
{
    const bool is_surely_read = world.health.configuration && now() - world.role_since > SECOND;
    cycle_is_over = to == RESTING;
    was_looked_for = was_looked_for || (to == ENDING && !is_port(world.role_holder) && is_surely_read);
}

static void look_at_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::request_served)
        note_request(seen.number);
    else if (seen.deed == t_deed::truth_changed && is_port(seen.port))
        note_link(port_at(seen.port));
    else if (seen.deed == t_deed::role_moved && seen.number == 0)
        note_moved_role();
    else if (seen.deed == t_deed::command_started && strncmp(seen.text, SWAP, strlen(SWAP)) == 0)
        swapped_at = now();
    else if (seen.deed == t_deed::way_taken)
        note_way(static_cast<size_t>(seen.number) % STATES);
    else if (seen.deed != t_deed::truth_changed)
        return;
    note_excuse();
}

extern const t_check found;
const t_check found = {.name = "found", .on_deed = look_at_deed, .at_rest = look_at_rest_of_found};

} // namespace sim
