// SPDX-License-Identifier: MIT
// Never wrong: whom the daemon's swap command names. Judged when the command starts, for that is the decision; what
// happens to the port while the command runs is nobody's fault. Where the daemon looked earlier, at the head of the
// pass whose questions were answered, the world of that moment counts.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *SWAP_COMMAND = "network_lanwan_swap set port";

// From reading who is reserved to the first question of the stage: the re-check of the LAN hosts lies between.
constexpr t_time FILTER_TO_QUESTION = 3310 * MILLISECOND + SECOND;
// From a search by ARP to its last frame: the search itself with its waits, and the ways to the name servers.
constexpr t_time SEARCH_TO_LAST_ARP = 16 * SECOND;
// A connection type that changed is read by the next pass; the verdict of the one before may take so long.
constexpr t_time CONNECTION_IS_KNOWN = 120 * SECOND;
constexpr t_time LINK_IS_KNOWN = 45 * SECOND; // a scan a second, 20 s of rest after a swap, a slow script
// A ban is counted in whole seconds.
constexpr t_time BAN_ROUNDING = 1100 * MILLISECOND;
// The daemon reads where the role is before the command starts; in between lie a few doors.
constexpr t_time READING_TO_SWAP = 50 * MILLISECOND;
constexpr int64_t TELLS_OF_PACKETS = 6;      // the level of the log from which on the kernel leaves none out
constexpr size_t LOOKING = 2;                // the number of that state
constexpr t_time ROLE_IS_READ = 22 * SECOND; // between cycles, by the scan, which rests behind a swap
// A network manager that finds a connection, and a pass that asks it before it asks the ports.
constexpr t_time WORKING_IS_SEEN = 15 * SECOND;

// A network manager that is away is asked ten times, a second apart; what it was asked before that may still count.
constexpr t_time WAITED_FOR = 9 * SECOND, LONG_BEFORE = 35 * SECOND;

namespace {

bool was_well = true; // all surroundings
t_time well_since = 0, well_until = 0;
t_time away_since = NEVER; // who tells of the WAN port
bool mode_is_in_doubt = false;

struct t_past {
    t_port_truth truth;
    t_time reserved_since = 0, banned_since = 0;
};

t_past pasts[64];
std::vector<std::pair<t_time, int>> holders; // since when; 0 for none of the ports
std::vector<t_time> passes;
t_time flooded = NOT_YET; // the last search of the LAN's hosts whose answers may have been lost

} // namespace

// Whether the port had the role at some time between the two; also while it was at none of the ports since.
static bool had_role(int port, t_time from, t_time to)
{
    int holder = world.life.wan;
    for (const auto &[since, next] : holders) {
        if (next == 0)
            continue;
        if (since > from && holder == port)
            return true;
        if (since > to)
            return false;
        holder = next;
    }
    return holder == port;
}

// By a pass, while all was well.
static bool was_role_read(t_time from, t_time to)
{
    return world.health.all() && world.health_since < from &&
           std::any_of(passes.begin(), passes.end(), [&](t_time pass) { return pass >= from && pass + SECOND <= to; });
}

// Whether the port that has the role had it before, and others between too shortly for the daemon to read that.
static bool is_back_unnoticed()
{
    t_time until = world.role_since;
    for (auto one = holders.rbegin(); one != holders.rend(); ++one) {
        const auto &[since, holder] = *one;
        if (since == world.role_since)
            continue;
        if (holder == world.role_holder)
            return true;
        if (holder != 0 && (until - since >= ROLE_IS_READ || was_role_read(since, until)))
            return false;
        until = since;
    }
    return world.life.wan == world.role_holder;
}

// Else the daemon never knew another holder, and a role that is at none of its ports has not been moved.
static bool was_at_a_port_since_start()
{
    int holder = world.life.wan;
    for (const auto &[since, next] : holders) {
        if (holder != 0 && since > loop_began())
            return true;
        holder = next;
    }
    return holder != 0;
}

// Who is told of every packet hears what is for others, too, until there is no room.
static bool tells_of_packets()
{
    return world.life.setting(LOG_LEVEL, 0) >= TELLS_OF_PACKETS ||
           std::any_of(world.requests.begin(), world.requests.end(), [](const t_request &one) {
               return one.method == "log" && one.served != NEVER && (one.is_odd || one.value >= TELLS_OF_PACKETS);
           });
}

// The hosts of the LAN are asked: answers of a port of its bridge that floods may keep theirs away.
static void note_search_of_hosts()
{
    const bool is_flooded = std::any_of(world.ports.begin(), world.ports.end(), [](const t_port &port) {
        const auto &who = port.cable().neighbours;
        return port.link && port.in_bridge && std::any_of(who.begin(), who.end(), is_disturber);
    });
    if (is_flooded && tells_of_packets())
        flooded = now();
}

static void note_truth_of(int number)
{
    if (!is_port(number) || number >= static_cast<int>(std::size(pasts)))
        return;
    t_past &past = pasts[number];
    const t_port_truth &truth = port_at(number).truth;
    if (truth.is_reserved != past.truth.is_reserved)
        past.reserved_since = now();
    if (truth.is_banned != past.truth.is_banned)
        past.banned_since = now();
    past.truth = truth;
}

// By what a verdict for the configured connection is reached. A type that the daemon does not know leaves the former
// one that was read, and one that has just changed counts from the next pass on.
static unsigned questions_for_verdict()
{
    bool is_known = false;
    for (const char *type : {"dhcp", "pppoe", "static", "l2tp", "pptp"})
        is_known = is_known || world.connection == type;
    if (!is_known || world.connection_in_doubt || !world.health.configuration ||
        now() - world.connection_since < CONNECTION_IS_KNOWN)
        return BY_ANYTHING;
    return is_asked_by_arp() ? unsigned{BY_ARP} : BY_DISCOVERY;
}

// The pass whose questions this swap follows from, or a little earlier.
static t_time pass_before_swap_to(int port)
{
    const unsigned kinds = questions_for_verdict();
    const t_time spread = kinds == BY_DISCOVERY ? 0 : SEARCH_TO_LAST_ARP;
    return last_asked(port, kinds) - spread - FILTER_TO_QUESTION;
}

// A ban that was taken when the link was known, and that no link which came since can have lifted, rightly told or not.
static bool is_surely_banned(const t_port &port)
{
    bool banned = false;
    for (const t_request &ban : world.requests) {
        if (ban.method != "ban" || ban.served == NEVER || ban.device != port.name)
            continue;
        const bool is_long = ban.value == -1 || ban.served + ban.value * SECOND - BAN_ROUNDING > now();
        const bool was_told_rightly = world.health.commands && world.health_since < ban.served;
        const bool is_settled = port.link_since + LINK_IS_KNOWN < ban.served &&
                                (port.hotplugged == NEVER || port.hotplugged + LINK_IS_KNOWN < ban.served);
        if (ban.value == 0)
            banned = false;
        else if (ban.value >= -1)
            banned = banned || (is_long && was_told_rightly && is_settled);
    }
    return banned && port.truth.is_banned;
}

static void judge_port(const t_port &port)
{
    const t_past &past = pasts[port.number];
    const t_time pass = pass_before_swap_to(port.number);
    const char *name = port.name.c_str();
    if (!port.truth.in_pool)
        fail("never wrong: %s gets the role and is not in the pool", name);
    if (last_asked(port.number, questions_for_verdict()) == NOT_YET)
        fail("never wrong: %s gets the role and was never asked", name);
    if (is_surely_banned(port))
        fail("never wrong: %s gets the role and is banned", name);
    // Without a link nobody can have answered. A link that went later is not looked at again: see the verdict's end.
    if (!port.link && port.link_since < pass)
        fail("never wrong: %s gets the role and has had no link since before it was asked", name);
    // An unreadable configuration reserves nobody, and an unreadable table has no hosts.
    const bool was_readable = world.health.all() && world.health_since < pass;
    if (was_readable && port.truth.is_reserved && past.reserved_since < pass)
        fail("never wrong: %s gets the role and is reserved", name);
    if (was_readable && flooded < pass && port.truth.lan_hosts > 0 && port.lan_hosts_since < pass)
        fail("never wrong: %s gets the role and has hosts of the LAN behind it", name);
}

static void judge_engine(const t_port &port)
{
    const char *name = port.name.c_str();
    if (!world.is_router && !mode_is_in_doubt)
        fail("never wrong: %s gets the role outside router mode", name);
    if (!world.detection_on && world.sets_under_way == 0 && !world.detection_in_doubt)
        fail("never wrong: %s gets the role while detection is off", name);
}

// A bus or a network manager that is away when the daemon looks says nothing, and is waited for.
static bool nobody_can_tell(t_time asked)
{
    const auto behind = std::upper_bound(passes.begin(), passes.end(), asked);
    return behind != passes.begin() && away_since <= behind[-1] && world.health.commands &&
           world.health.configuration && world.health.machine && now() - well_until < WAITED_FOR;
}

static void note_who_is_away()
{
    if (bus.is_up && service_is_there("network.interface"))
        away_since = NEVER;
    else
        away_since = std::min(away_since, now());
}

static void note_health()
{
    note_who_is_away();
    if (was_well && !world.health.all())
        well_until = now();
    if (!was_well && world.health.all())
        well_since = now();
    was_well = world.health.all();
}

// Whoever moved the role keeps what he chose until the port that he chose was looked at, and others were asked.
static void judge_former_holder(const t_port &port)
{
    if (!is_port(world.role_holder) && was_at_a_port_since_start())
        fail("never wrong: %s takes the role from a port that is none of the daemon's", port.name.c_str());
    if (!is_port(world.role_holder))
        return;
    const t_port &holder = port_at(world.role_holder);
    const t_time asked = last_asked(port.number, BY_ANYTHING);
    const bool is_back =
        had_role(holder.number, pass_before_swap_to(port.number), asked) || // where the daemon has read it
        is_back_unnoticed();
    if (world.role_mover == t_mover::somebody && world.role_since > asked && !is_back &&
        now() - world.role_since > READING_TO_SWAP)
        fail("never wrong: %s takes the role back from %s, where somebody else has put it", port.name.c_str(),
             holder.name.c_str());
    const t_time since =
        std::max({holder.link_since, holder.truth_since, world.role_since, world.health_since, world.connection_since});
    const t_time pass = pass_before_swap_to(port.number);
    const t_time steady = std::max({holder.link_since, holder.truth_since, world.role_since, world.connection_since});
    if (nobody_can_tell(asked) && holder.link && holder.truth.serves && !holder.truth.may_be_banned &&
        std::max(steady, well_since) < well_until - LONG_BEFORE)
        fail("never wrong: %s takes the role from %s, which worked, while nobody can tell", port.name.c_str(),
             holder.name.c_str());
    if (world.health.all() && holder.link && holder.truth.serves && !holder.truth.may_be_banned &&
        since < pass - WORKING_IS_SEEN)
        fail("never wrong: %s takes the role from %s, which works", port.name.c_str(), holder.name.c_str());
}

static void judge_swap(const char *command)
{
    const int number = atoi(command + strlen(SWAP_COMMAND));
    if (number == world.role_holder)
        return; // the other side of the same port
    if (!is_port(number))
        fail("never wrong: the role goes to port %d, which does not exist", number);
    const t_port &port = port_at(number);
    if (self().number != 0 && now() - world.role_since > READING_TO_SWAP)
        fail("never wrong: the sides of %s are switched, and it has not got the role", port.name.c_str());
    judge_engine(port);
    judge_port(port);
    judge_former_holder(port);
}

// A mode that cannot be read when the daemon starts is that of a router.
static void look_at_event()
{
    note_who_is_away();
    if (loop_began() == NEVER)
        mode_is_in_doubt = mode_is_in_doubt || !package_is_usable("sysmode") || memory_was_refused();
}

static void look_at_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::truth_changed)
        seen.port ? note_truth_of(seen.port) : note_health();
    else if (seen.deed == t_deed::way_taken && static_cast<size_t>(seen.number) % STATES == LOOKING)
        passes.push_back(now());
    else if (seen.deed == t_deed::frame_sent && seen.port == 0)
        note_search_of_hosts();
    else if (seen.deed == t_deed::role_moved)
        holders.emplace_back(now(), is_port(seen.port) ? seen.port : 0);
    else if (seen.deed == t_deed::command_started && strncmp(seen.text, SWAP_COMMAND, strlen(SWAP_COMMAND)) == 0)
        judge_swap(seen.text);
}

extern const t_check never_wrong;
const t_check never_wrong = {.name = "never wrong", .on_deed = look_at_deed, .on_event = look_at_event};

} // namespace sim
