// SPDX-License-Identifier: MIT
// Never stuck: what the daemon's threads wait for while nobody can run, which locks they hold meanwhile, and for how
// long the loop does not come by. The limits are those of the table in docs/architecture.md ("One cycle"); they add up
// within one turn of the loop, so a turn may take as long as all that it did may take together.
#include "tests/simulation/stuck.h"
#include "tests/simulation/ways.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/simulation/checks.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *LOOP = "the loop's descriptors";
constexpr const char *BUS = "an answer on the bus";
constexpr const char *SWAP = "network_lanwan_swap ";
constexpr t_time QUERY_LIMIT = 10'800 * MILLISECOND;  // a script that is asked
constexpr t_time ACTION_LIMIT = 60'800 * MILLISECOND; // the swap, the port set-up, an online test
constexpr t_time LIMIT_AT_END = 3300 * MILLISECOND;   // 2.5 s, and the time between SIGTERM and SIGKILL
constexpr t_time ACROSS_DOORS = 100 * MILLISECOND;    // from the end of what was waited for to the next door
constexpr t_time AFTER_COMMAND = SECOND;              // the locks of a swap are held a moment longer
constexpr t_time SHORT_PAUSE = 20 * MILLISECOND;
constexpr t_time BUS_LIMIT = 3 * SECOND;             // a question to another service while the bus hangs
constexpr t_time HOSTS_LIMIT = 3310 * MILLISECOND;   // the re-check of the LAN hosts
constexpr t_time SEARCH_OF_ONE = 300 * MILLISECOND;  // ARP, for each request
constexpr t_time SEARCH_REPLIES = 310 * MILLISECOND; // and for the replies of an attempt
constexpr t_time DNS_LIMIT = 3 * SECOND;
constexpr t_time CONFIGURATION_LIMIT = 30 * SECOND;  // what is locked or gone, read many times in one turn
constexpr t_time ORDINARY_TURN = 1500 * MILLISECOND; // coming back to the bus, small sleeps
constexpr t_time WAIT_FOR_LINK = 60 * SECOND, START_UP_PAUSE = 15 * SECOND;
constexpr int START_UP_SCRIPTS = 33;
constexpr t_time BETWEEN_SCANS = SECOND + 20 * SECOND + QUERY_LIMIT + 2 * ACTION_LIMIT; // pause, pause after a swap,
                                                                                        // script, a swap's locks

namespace {

struct t_running {
    std::string command;
    t_time since;
    int thread;
};

// One turn of the loop: since when, and how long what it did may take.
struct t_turn {
    t_time since = 0;
    t_time allowed = ORDINARY_TURN;
    t_time bus_deadline = 0; // of the answer that it waits for
    bool asked_hosts = false, asked_dns = false, may_ask_dns = false;
};

std::vector<t_running> running;
t_turn turn;
t_time swap_over = NOT_YET, scanned = NOT_YET, loop_begun = NEVER, blocked_in_all = 0, seen_at = 0;
bool was_blocked = false, is_asking_dns = false;

bool is_swap(const t_running &one)
{
    return one.command.compare(0, strlen(SWAP), SWAP) == 0;
}

t_time limit_of(const std::string &command)
{
    return command.compare(0, 20, "/etc/wan_detect/get_") == 0 ? QUERY_LIMIT : ACTION_LIMIT;
}

// Not the script that the other thread asks for the sides of a combo port.
bool is_scan(const std::string &command)
{
    return command.find("/get_all_port_state.sh") != std::string::npos;
}

// What it prints comes through a pipe.
bool script_may_start()
{
    constexpr int ENDS_OF_PIPE = 2;
    return count_of_descriptors() + ENDS_OF_PIPE <= static_cast<int>(world.descriptor_limit);
}

} // namespace

t_time loop_began()
{
    return loop_begun;
}

t_time time_loop_was_blocked()
{
    return blocked_in_all;
}

// --- what a turn of the loop does

static void note_start(const t_seen &seen)
{
    running.push_back({seen.text, now(), self().number});
    if (self().number == 0)
        turn.allowed += limit_of(seen.text) + ACROSS_DOORS;
    else if (is_scan(seen.text))
        scanned = now();
}

static void note_end(const t_seen &seen)
{
    const auto one =
        std::find_if(running.begin(), running.end(), [&](const t_running &r) { return r.command == seen.text; });
    if (one == running.end())
        return;
    if (is_swap(*one))
        swap_over = now();
    running.erase(one);
}

static void note_frame(const t_seen &seen)
{
    if (seen.port == 0 && !turn.asked_hosts) {
        turn.asked_hosts = true;
        turn.allowed += HOSTS_LIMIT;
    } else if (strcmp(seen.text, "arp") == 0) {
        turn.allowed += SEARCH_OF_ONE + SEARCH_REPLIES;
    } else if (strcmp(seen.text, "dns") == 0 && !turn.asked_dns) {
        turn.asked_dns = true;
        turn.allowed += DNS_LIMIT;
    }
}

// Name servers that could not be asked are waited for like others.
static void note_way(size_t to)
{
    constexpr size_t ASKING_DNS = 6;
    is_asking_dns = to == ASKING_DNS;
    turn.may_ask_dns = turn.may_ask_dns || is_asking_dns;
}

static void look_at_deed(const t_seen &seen)
{
    switch (seen.deed) {
    case t_deed::command_started:
        return note_start(seen);
    case t_deed::command_refused:
        if (self().number != 0 && is_scan(seen.text))
            scanned = now();
        return;
    case t_deed::command_ended:
        return note_end(seen);
    case t_deed::frame_sent:
        return note_frame(seen);
    case t_deed::log_line:
        if (self().spins_held > 0)
            fail("never stuck: thread %d holds a spin lock while it tells something", self().number);
        return;
    case t_deed::way_taken:
        return note_way(static_cast<size_t>(seen.number) % STATES);
    default:
        return;
    }
}

// --- locks

// Allowed: the two block locks during a swap or a switch of sides, for they keep the scan and the combo thread from
// looking at ports that are being rebuilt. Not allowed: the lock of the device table, which each reader of a link
// takes, and any lock at all during another wait.
static void look_at_locks(const t_thread &thread)
{
    const int mutexes = thread.locks_held - thread.tables_held;
    if (thread.spins_held > 0)
        fail("never stuck: thread %d holds a spin lock while it waits for %s", thread.number, thread.wait.what);
    if (thread.tables_held > 0)
        fail("never stuck: thread %d holds a read-write lock while it waits for %s", thread.number, thread.wait.what);
    // A pause between two looks at a child, and the one behind a swap, also behind one that could not be started.
    const bool pauses = strcmp(thread.wait.what, "a sleep") == 0 && thread.wait.deadline - now() <= SHORT_PAUSE;
    if (mutexes == 0 || (mutexes == 2 && pauses))
        return;
    const bool swaps = std::any_of(running.begin(), running.end(),
                                   [&](const t_running &one) { return is_swap(one) && one.thread == thread.number; }) ||
                       now() - swap_over <= AFTER_COMMAND;
    if (mutexes != 2 || !swaps)
        fail("never stuck: thread %d holds %d locks while it waits for %s", thread.number, mutexes, thread.wait.what);
}

// --- waits

static void begin_turn()
{
    if (loop_begun == NEVER)
        scanned = loop_begun = now();
    turn = {.since = now(), .may_ask_dns = is_asking_dns};
}

static t_time allowed_now(const t_thread &loop)
{
    if (strcmp(loop.wait.what, BUS) == 0 && loop.wait.deadline != turn.bus_deadline) {
        turn.bus_deadline = loop.wait.deadline;
        turn.allowed += BUS_LIMIT;
    }
    const bool is_well = world.health.configuration && world.health_since < turn.since;
    const bool other_swaps = std::any_of(running.begin(), running.end(),
                                         [](const t_running &one) { return is_swap(one) && one.thread != 0; });
    if (loop_begun == NEVER)
        return WAIT_FOR_LINK + START_UP_PAUSE + turn.allowed + CONFIGURATION_LIMIT;
    return turn.allowed + (is_well ? 0 : CONFIGURATION_LIMIT) + (turn.may_ask_dns && !turn.asked_dns ? DNS_LIMIT : 0) +
           (other_swaps || swap_over > turn.since ? ACTION_LIMIT : 0);
}

bool loop_may_still_wait()
{
    return now() - turn.since <= allowed_now(*thread_at(0));
}

static void look_at_loop(const t_thread &loop)
{
    if (loop.state != t_thread::waiting)
        return;
    if (strcmp(loop.wait.what, LOOP) == 0)
        return begin_turn();
    if (turn.since == 0)
        turn.since = now();
    const t_time taken = now() - turn.since, allowed = allowed_now(loop);
    if (taken > allowed)
        fail("never stuck: %s has taken %ld ms and waits for %s, where %ld ms are the most",
             loop_begun == NEVER ? "start-up" : "one turn of the loop", static_cast<long>(taken / MILLISECOND),
             loop.wait.what, static_cast<long>(allowed / MILLISECOND));
}

static void look_at_commands()
{
    for (const t_running &one : running)
        if (world.told_to_end != NEVER && now() - std::max(one.since, world.told_to_end) > LIMIT_AT_END + ACROSS_DOORS)
            fail("never stuck: %s runs for %ld ms of the end", one.command.c_str(),
                 static_cast<long>((now() - world.told_to_end) / MILLISECOND));
        else if (now() - one.since > limit_of(one.command) + ACROSS_DOORS)
            fail("never stuck: %s runs for %ld ms", one.command.c_str(),
                 static_cast<long>((now() - one.since) / MILLISECOND));
}

static void look_at_scan()
{
    if (!world.detection_on || world.sets_under_way > 0 || world.detection_in_doubt || !world.is_router ||
        world.told_to_end != NEVER || loop_begun == NEVER || !script_may_start())
        scanned = now();
    else if (now() - scanned > BETWEEN_SCANS)
        fail("never stuck: nobody has looked at the links for %ld ms",
             static_cast<long>((now() - scanned) / MILLISECOND));
}

// The clock has jumped since the last rest, and all that time the loop waited as it did then.
static void count_blocked_time(const t_thread &loop)
{
    if (was_blocked)
        blocked_in_all += now() - seen_at;
    was_blocked = strcmp(loop.wait.what, LOOP) != 0;
    seen_at = now();
}

static void look_at_rest_of_all()
{
    for (int number = 0; const t_thread *thread = thread_at(number); number++)
        if (thread->state == t_thread::waiting)
            look_at_locks(*thread);
    look_at_commands();
    if (world.told_to_end != NEVER)
        return; // the end has limits of its own
    count_blocked_time(*thread_at(0));
    look_at_loop(*thread_at(0));
    look_at_scan();
}

extern const t_check never_stuck;
const t_check never_stuck = {
    .name = "never stuck", .on_deed = look_at_deed, .at_rest = look_at_rest_of_all, .at_end = look_at_commands};

} // namespace sim
