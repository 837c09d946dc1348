// SPDX-License-Identifier: MIT
// The steps of a cycle follow each other as docs/operating.md tells: neither a WAN port that flaps nor one who asks all
// the time keeps it from looking, a verdict is carried out, and a swap is tested when its pause is over.
#include <algorithm>
#include <cstring>
#include <deque>

#include "tests/simulation/checks.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *SWAP = "network_lanwan_swap set port";
constexpr const char *RESULT = "/tmp/protocol_detect_result";
constexpr const char *NETWORK = "/etc/config/network";

constexpr t_time LOSS = 10 * SECOND, MOST_PUT_OFF = 60 * SECOND; // from the loss of the WAN port to the first pass
constexpr t_time SEEN = 22 * SECOND;                             // a link that changed, by the scan
constexpr t_time REQUEST = 5 * SECOND;                           // that holds the stage
constexpr t_time ROUND = 2500 * MILLISECOND;
constexpr t_time SLACK = 3 * SECOND;
constexpr t_time FIRST_PAUSE = 21 * SECOND, LONGEST_PAUSE = 300 * SECOND; // between a swap and its test
constexpr t_time FIRST_LOOK = 21 * SECOND;                                // at a changed package, every so often
constexpr t_time WRITTEN_BY_SWAP = 2 * SECOND;                            // of the package
constexpr t_time SURELY_IN_TIME = 300 * MILLISECOND;

enum t_state : size_t { resting, waiting, looking, probing, judging, asking_arp, asking_dns, ending };

namespace {

struct t_step {
    size_t state = resting;
    t_time since = 0, blocked = 0;
};

struct t_swap {
    t_time began = 0;
    t_time ended = NEVER;   // its command; NEVER while it runs
    t_time settled = NEVER; // the cycle that made it is over
    t_time blocked = 0;
    int port = 0;
    bool was_tested = false, is_foreign = false; // somebody moved the role before the test
};

t_step step;
t_time last_pass = 0;
t_time opened = NEVER;                      // the cycle
bool was_cut = false;                       // its stage, by a loss
bool is_asked = false, was_put_off = false; // a request is served; the cycle waits behind it
std::deque<t_swap> swaps;                   // of the daemon's loop, the last one at the end
int cannot_start = 0;                       // swaps whose command could not be started, and so are none of these
t_time changed = 0;                         // anything, from outside

} // namespace

// --- ways of the cycle

static bool was_well_since(t_time time)
{
    return world.health.all() && world.health_since < time;
}

static bool somebody_bans()
{
    return std::any_of(world.requests.begin(), world.requests.end(), [](const t_request &one) {
        return one.method == "ban" && one.served != NEVER && one.served >= opened;
    });
}

static void look_at_verdict_sent_back()
{
    const bool is_moved = world.role_taken_by_others != NEVER && world.role_taken_by_others >= opened;
    if (was_well_since(opened) && !is_moved && !somebody_bans())
        fail("steps: a verdict is sent back, and nobody banned a port or moved the role");
}

static void look_at_cut_stage()
{
    if (was_cut)
        fail("steps: a loss cuts the stage of this cycle a second time");
    was_cut = true;
}

static void begin_cycle()
{
    opened = now();
    was_cut = false;
    if (swaps.empty() || swaps.back().was_tested)
        return;
    swaps.back().was_tested = true;
    // A role that nobody can read counts as a failed test, also where the swap was over without a look at it, and so
    // does one that is moved before the cycle is over: it may be the command that failed.
    swaps.back().is_foreign = world.health.configuration && world.health.machine &&
                              !memory_was_refused(swaps.back().began) && world.role_mover == t_mover::somebody &&
                              is_port(world.role_holder) && world.role_holder != swaps.back().port &&
                              world.role_since > swaps.back().settled;
}

static void note_way(size_t from, size_t to)
{
    if (from == ending && to == looking)
        look_at_verdict_sent_back();
    if (from == probing && to == looking)
        look_at_cut_stage();
    if (from == resting)
        begin_cycle();
    if (from == ending && to == resting && !swaps.empty() && swaps.back().settled == NEVER)
        swaps.back().settled = now();
    if (to == looking)
        last_pass = now();
    if (to == judging || (from == looking && to == looking))
        was_cut = false;
    was_put_off = is_asked && to == looking;
    step = {to, now(), time_loop_was_blocked()};
}

static t_time limit_of_step()
{
    switch (step.state) {
    case waiting:
        return LOSS + MOST_PUT_OFF + REQUEST;
    case looking:
        return REQUEST;
    default:
        return ROUND;
    }
}

static void look_at_step()
{
    const t_time limit = limit_of_step() + SLACK + time_loop_was_blocked() - step.blocked;
    if (step.state != resting && now() - step.since > limit)
        fail("steps: the cycle is %s for %ld s, where %ld s are the most", name_of_state(step.state),
             static_cast<long>((now() - step.since) / SECOND), static_cast<long>(limit / SECOND));
}

// --- the cycle is next behind a request

static void note_call(const t_request &request)
{
    if (request.method == "wan_detect")
        was_put_off = false; // the cycle may begin later now
    if (request.method != "proto_detect" || !request.has_code || request.code != 0)
        return;
    if (was_put_off && !is_asked && step.state == looking)
        fail("steps: call %ld is taken, and the cycle waits since the request before",
             static_cast<long>(request.number));
    if (step.state >= probing)
        fail("steps: call %ld is taken while the cycle is %s", static_cast<long>(request.number),
             name_of_state(step.state));
    is_asked = true;
}

// --- a swap and its test

// As often as the pause may have doubled: whoever moves the role spares a swap its test.
static int most_failures()
{
    return cannot_start + static_cast<int>(std::count_if(swaps.begin(), swaps.end() - 1,
                                                         [](const t_swap &one) { return !one.is_foreign; }));
}

static t_time pause_after(int failures)
{
    return std::min(FIRST_PAUSE << std::min(failures, 4), LONGEST_PAUSE);
}

static bool somebody_calls_since(t_time time)
{
    return world.detection_since >= time || world.sets_under_way > 0 || world.detection_in_doubt ||
           std::any_of(world.requests.begin(), world.requests.end(), [=](const t_request &one) {
               return (one.method == "wan_detect" || one.method == "set") && one.sent + LOSS >= time;
           });
}

static void look_at_untested_swap()
{
    if (swaps.empty() || swaps.back().was_tested || swaps.back().ended == NEVER || step.state != resting)
        return;
    const t_swap &swap = swaps.back();
    if (!world.detection_on || !was_well_since(swap.ended) || somebody_calls_since(swap.ended))
        return;
    t_time limit = pause_after(most_failures());
    const auto file = files.find(NETWORK);
    if (file != files.end() && file->second->changed > swap.ended + WRITTEN_BY_SWAP)
        limit = std::min(limit, file->second->changed - swap.ended + FIRST_LOOK + FIRST_PAUSE);
    limit += SLACK + REQUEST + time_loop_was_blocked() - swap.blocked;
    if (now() - swap.ended > limit)
        fail("steps: the swap to port %d is not tested for %ld s, where %ld s are the most", swap.port,
             static_cast<long>((now() - swap.ended) / SECOND), static_cast<long>(limit / SECOND));
}

static void look_at_network_package()
{
    static t_time seen = 0;
    const auto file = files.find(NETWORK);
    if (file == files.end() || file->second->changed == seen)
        return;
    seen = file->second->changed;
    if (swaps.empty() || seen > swaps.back().ended) // NEVER is later than all
        changed = seen;
}

// Whether it answers may differ from look to look, which begins the pauses anew.
static bool answers_are_steady()
{
    return std::all_of(world.ports.begin(), world.ports.end(), [](const t_port &port) {
        return port.truth.found == t_found::never ||
               (port.truth.found == t_found::at_once && port.answers_after <= SURELY_IN_TIME);
    });
}

// A port may have been one of these until it got the role, which makes its link anew.
static void note_doubtful_answers()
{
    if (!answers_are_steady())
        changed = now();
}

// Whatever the network manager says, or does not say.
static bool was_steady_since(t_time time)
{
    t_health health = world.health;
    health.manager = true;
    return health.all() && world.health_since < time;
}

// Swaps that do not help come ever later, while nothing changes and all changes are seen.
static void look_at_pause_before_swap()
{
    const auto in_vain = static_cast<int>(
        std::count_if(swaps.begin(), swaps.end(), [](const t_swap &one) { return one.ended > changed + SEEN; }));
    // Where the connection was changed the daemon may ask for another one than the world knows.
    if (in_vain < 2 || !was_steady_since(changed) || world.connection_since > loop_began())
        return;
    const t_time pause = pause_after(in_vain - 1), waited = now() - swaps.back().ended;
    if (waited < pause - SECOND)
        fail("steps: swap %d in vain comes %ld s after the one before, where %ld s are the least", in_vain + 1,
             static_cast<long>(waited / SECOND), static_cast<long>(pause / SECOND));
}

static void note_swap(const char *command)
{
    if (atoi(command + strlen(SWAP)) == world.role_holder)
        return; // the other side of the same port
    look_at_pause_before_swap();
    swaps.push_back({.began = now(), .port = atoi(command + strlen(SWAP))});
}

// --- what happened

static bool comes_from_outside(const t_seen &seen)
{
    if (seen.deed == t_deed::request_served || (seen.deed == t_deed::role_moved && seen.number == 0))
        return true;
    return seen.deed == t_deed::truth_changed && !(world.role_mover == t_mover::daemon && world.role_since == now());
}

static void note_end_of_command(const char *command)
{
    if (!swaps.empty() && swaps.back().ended == NEVER && strncmp(command, SWAP, strlen(SWAP)) == 0) {
        swaps.back().ended = now();
        swaps.back().blocked = time_loop_was_blocked();
    }
}

static void note_end_of_call(int64_t number)
{
    const auto one = std::find_if(world.requests.rbegin(), world.requests.rend(),
                                  [&](const t_request &request) { return request.number == number; });
    if (one != world.requests.rend())
        note_call(*one);
}

static void look_at_deed(const t_seen &seen)
{
    if (comes_from_outside(seen))
        changed = now();
    note_doubtful_answers();
    if (seen.deed == t_deed::way_taken)
        note_way(static_cast<size_t>(seen.number) / STATES, static_cast<size_t>(seen.number) % STATES);
    else if (seen.deed == t_deed::command_started && strncmp(seen.text, SWAP, strlen(SWAP)) == 0)
        note_swap(seen.text);
    else if (seen.deed == t_deed::command_refused && strncmp(seen.text, SWAP, strlen(SWAP)) == 0)
        cannot_start++;
    else if (seen.deed == t_deed::command_ended)
        note_end_of_command(seen.text);
    else if (seen.deed == t_deed::file_written && strcmp(seen.text, RESULT) == 0)
        is_asked = false;
    else if (seen.deed == t_deed::bus_call_over)
        note_end_of_call(seen.number);
}

// --- a WAN port without a link

static bool is_detectable()
{
    return world.connection == "dhcp" || world.connection == "pppoe" || world.connection == "static";
}

// Since when the port has the role that has it now. One that comes back to it from nowhere did not move for the daemon.
static t_time role_is_there_since()
{
    static int holder = world.life.wan;
    static t_time since = 0, gone = NEVER; // to a port that is none of the daemon's
    if (!is_port(world.role_holder)) {
        if (option_of("switch", "wan", "switch_port") == "port" + std::to_string(FOREIGN_PORT))
            gone = std::min(gone, world.role_since);
        return since;
    }
    if (world.role_holder != holder || (gone != NEVER && world.role_since - gone >= SEEN))
        since = world.role_since;
    holder = world.role_holder;
    gone = NEVER;
    return since;
}

// Between cycles its loss opens one, and a loss behind the last pass of a cycle one more. What connection there is
// nobody looks for: where none could be found when it was lost, a look does.
static void look_at_lost_port()
{
    const t_time has_role_since = role_is_there_since();
    const t_time lost =
        is_port(world.role_holder) ? std::max(port_at(world.role_holder).link_since, has_role_since) : NEVER;
    const bool is_free = start_was_deceived() || step.state != resting || !is_port(world.role_holder) ||
                         port_at(world.role_holder).link || !detection_is_undisturbed() || !is_detectable() ||
                         world.connection_since > lost || lost < last_pass ||
                         (!swaps.empty() && !swaps.back().was_tested);
    static t_time blocked = 0, since = 0;
    if (is_free) {
        since = now();
        blocked = time_loop_was_blocked();
        return;
    }
    const t_time unchanged = std::max({since, lost, unchanged_since()});
    const t_time limit = SEEN + LOSS + SLACK + time_loop_was_blocked() - blocked;
    if (now() - unchanged > limit)
        fail("steps: port %d has the role and no link for %ld s, and no cycle is open", world.role_holder,
             static_cast<long>((now() - unchanged) / SECOND));
}

static void look_at_rest_of_steps()
{
    role_is_there_since(); // who had it when the daemon began to look
    if (world.told_to_end != NEVER || loop_began() == NEVER)
        return;
    look_at_network_package();
    note_doubtful_answers();
    look_at_step();
    look_at_lost_port();
    look_at_untested_swap();
}

extern const t_check steps;
const t_check steps = {.name = "steps", .on_deed = look_at_deed, .at_rest = look_at_rest_of_steps};

} // namespace sim
