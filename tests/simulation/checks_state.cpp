// SPDX-License-Identifier: MIT
// The state object does not contradict the world: its status, history and explain are asked for a few times in each
// life, and shortly before its end.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/told.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *OBJECT = "wan_detect.state";
constexpr t_time FIRST_LOOK = 20 * SECOND, MOST_BETWEEN_LOOKS = 150 * SECOND;
constexpr t_time BEFORE_THE_END = 3 * SECOND; // the answer comes in time
// A link or role that lasts so long is known: the scan, its rest after a swap, a script; the combo thread's look.
constexpr t_time SURELY_KNOWN = 45 * SECOND;
constexpr t_time ROLE_KNOWN = SURELY_KNOWN + 70 * SECOND; // a cycle that waits for a WAN port that flaps looks later
constexpr t_time MINUTE = 60 * SECOND;
constexpr t_time HOUR = 60 * MINUTE;

static uint32_t swaps_started = 0, frames_counted = 0;
static bool was_well = true; // all the life: commands, bus, manager, configuration

static bool is_asked_word(const std::string &why)
{
    for (const char *word : {"silent", "other_answered", "no_gateway", "no_name_server", "lower_priority"})
        if (why == word)
            return true;
    return false;
}

static bool is_known(t_time since, t_time after)
{
    return loop_began() != NEVER && world.detection_on && world.sets_under_way == 0 && !world.detection_in_doubt &&
           world.is_router && world.health.all() &&
           now() - std::max({since, loop_began(), world.health_since, world.detection_since}) > after;
}

// Else it may have had none in the moment in which all were asked, and one when their answers were judged.
static bool has_kept_link(const t_port &port)
{
    return port.hotplugged == NEVER && port.link_lost == NEVER;
}

// --- status

// A link that comes goes before it comes again: an even number of changes leaves it as it was.
static void look_at_link_changes(const t_told &told, const t_port &port)
{
    static std::map<int, bool> were_odd; // by port: whether an odd number of changes led to a link
    const bool odd = told["link_changes"].number() % 2 != 0, led_to_link = odd == (told["link"].number() != 0);
    const auto [former, is_first] = were_odd.emplace(port.number, led_to_link);
    if (!is_first && former->second != led_to_link)
        fail("state: %ld changes of the link of %s are told, one of them twice",
             static_cast<long>(told["link_changes"].number()), port.name.c_str());
}

static void look_at_port(const t_told &told, const t_port &port)
{
    const char *name = port.name.c_str();
    const std::string &why = told["why"].text;
    const auto asked = static_cast<uint32_t>(questions_of(port.number).size());
    if (told["asked_last_hour"].number() > questions_since(port.number, now() - HOUR - MINUTE) ||
        told["asked_last_hour"].number() < questions_since(port.number, now() - HOUR + MINUTE))
        fail("state: %s was asked %u times, and status tells of %ld", name, asked,
             static_cast<long>(told["asked_last_hour"].number()));
    if (was_well && is_asked_word(why) && asked == 0 && has_kept_link(port))
        fail("state: %s is told to be %s, and nobody asked it", name, why.c_str());
    if (told.has("answer") && asked == 0)
        fail("state: %s has an answer, and nobody asked it", name);
    if (is_known(std::max(port.link_since, port.hotplugged == NEVER ? 0 : port.hotplugged), SURELY_KNOWN) &&
        (told["link"].number() != 0) != port.link)
        fail("state: %s is told to have %s link", name, port.link ? "no" : "a");
    if (port.truth.is_banned && port.banned_at_least - now() > 2 * SECOND && !told.has("banned"))
        fail("state: %s is banned, and not told to be", name);
    if (told.has("banned") && !port.truth.may_be_banned && now() > port.banned_until + 2 * SECOND)
        fail("state: %s is told to be banned, and is not", name);
    // Counted in whole seconds; one that is collected behind the loss may stay.
    const t_time answered = now() - (told["answer"]["ago"].number() - 1) * SECOND;
    if (is_known(port.link_since, SURELY_KNOWN) && !port.link && told.has("answer") && answered < port.link_since)
        fail("state: %s has no link, and is told to answer", name);
    if (was_well && (told["pool"].number() != 0) != port.truth.in_pool)
        fail("state: the place of %s in the pool is told wrongly", name);
}

static void look_at_engine(const t_told &told)
{
    const t_told &cycle = told["cycle"];
    if (told["starting"].number() != 0)
        return;
    if (!cycle["state"].is("resting") && !cycle.has("next"))
        fail("never stuck: the cycle is %s, and nothing is due next", cycle["state"].text.c_str());
    if (world.sets_under_way == 0 && !world.detection_in_doubt && (told["enabled"].number() != 0) != world.detection_on)
        fail("state: detection is told to be %s", world.detection_on ? "off" : "on");
    if (is_known(world.role_since, ROLE_KNOWN) && is_port(world.role_holder) &&
        !told["wan"].is(port_at(world.role_holder).name.c_str()))
        fail("state: %s is told to be the WAN port, and it is %s", told["wan"].text.c_str(),
             port_at(world.role_holder).name.c_str());
    const t_told &counters = told["counters"];
    if (counters["swaps"].number() < swaps_started || (was_well && counters["swaps"].number() > swaps_started))
        fail("state: %u swaps, and %ld are told", swaps_started, static_cast<long>(counters["swaps"].number()));
    if (counters["questions"].number() != frames_counted)
        fail("state: %u questions, and %ld are told", frames_counted,
             static_cast<long>(counters["questions"].number()));
}

static void look_at_status(blob_attr *message)
{
    const t_told told = read_told(message);
    look_at_engine(told);
    for (const auto &[none, one] : told["ports"].parts)
        if (const int number = port_named(one["name"].text)) {
            look_at_port(one, port_at(number));
            if (told["starting"].number() == 0)
                look_at_link_changes(one, port_at(number));
        }
}

// --- history

static bool is_won(const std::string &decision)
{
    return decision.compare(0, 5, "only_") == 0 || decision == "name_server" || decision == "priority";
}

static void look_at_cycle(const t_told &cycle, bool is_newest)
{
    const std::string &decision = cycle["decision"].text;
    const auto number = static_cast<long>(cycle["number"].number());
    const bool is_over = cycle.has("took_ms");
    if (!is_over && !is_newest)
        fail("state: cycle %ld is not over, and others began since", number);
    if (is_over && decision == "open")
        fail("state: cycle %ld is open and took %s ms", number, cycle["took_ms"].text.c_str());
    if (is_over && is_won(decision) && !cycle.has("winner"))
        fail("state: cycle %ld ended by %s without a winner", number, decision.c_str());
    if (cycle["swap"].is("done") && swaps_started == 0)
        fail("state: cycle %ld has swapped, and nobody saw it", number);
}

// The order as the daemon read it at its start; who is not in it comes first.
static size_t place_of(int port)
{
    static const std::string order = " " + option_of("network", "auto_wan_detect", "wan_port_priority") + " ";
    const size_t place = order.find(" " + std::to_string(port) + " ");
    return place == std::string::npos ? 0 : place + 1;
}

// Of several that were as good the order decides.
static void look_at_order(const t_told &cycle)
{
    const int winner = port_named(cycle["winner"].text);
    for (const auto &[none, one] : cycle["ports"].parts) {
        const int port = port_named(one["name"].text);
        if (winner && port && one["why"].is("lower_priority") && place_of(port) < place_of(winner))
            fail("found: %s won by %s over %s, which comes first in the order", cycle["winner"].text.c_str(),
                 cycle["decision"].text.c_str(), one["name"].text.c_str());
    }
}

// Who would have answered all the while cannot have been silent.
static void look_at_silence(const t_told &cycle)
{
    const t_time begun = now() - (cycle["ago"].number() + 2) * SECOND;
    if (!world.health.all() || std::max(world.health_since, world.connection_since) > begun)
        return;
    for (const auto &[none, one] : cycle["ports"].parts) {
        const int number = port_named(one["name"].text);
        if (!number || !(one["why"].is("silent") || one["why"].is("no_gateway")))
            continue;
        const t_port &port = port_at(number);
        if (port.link && port.truth.found == t_found::at_once && std::max(port.truth_since, port.link_since) < begun)
            fail("state: %s is told to be silent, and answers all the while", one["name"].text.c_str());
    }
}

// Where the order decided, no name server can have answered.
static void look_at_name_servers(const t_told &cycle)
{
    constexpr t_time SURELY_IN_TIME = 300 * MILLISECOND;
    const t_time begun = now() - (cycle["ago"].number() + 2) * SECOND;
    const bool has_one = world.connection == "dhcp" || world.connection == "static";
    if (!has_one || !cycle["decision"].is("priority") || !world.health.all() ||
        std::max(world.health_since, world.connection_since) > begun)
        return;
    for (const auto &[none, one] : cycle["ports"].parts) {
        const int number = port_named(one["name"].text);
        if (!number || !(one["why"].is("won") || one["why"].is("lower_priority")))
            continue;
        const t_port &port = port_at(number);
        if (port.link && port.truth.name_server && port.truth.found == t_found::at_once &&
            port.answers_after <= SURELY_IN_TIME && std::max(port.truth_since, port.link_since) < begun)
            fail("state: the order decided, and a name server answers behind %s all the while",
                 one["name"].text.c_str());
    }
}

static void look_at_history(blob_attr *message)
{
    const t_told told = read_told(message);
    int64_t before = 0;
    bool is_newest = true;
    for (const auto &[none, cycle] : told["cycles"].parts) {
        const int64_t number = cycle["number"].number();
        if (!is_newest && number != before - 1)
            fail("state: cycle %ld stands behind cycle %ld", static_cast<long>(number), static_cast<long>(before));
        look_at_cycle(cycle, is_newest);
        look_at_order(cycle);
        look_at_silence(cycle);
        look_at_name_servers(cycle);
        before = number;
        is_newest = false;
    }
}

// --- explain

static void look_at_reasons(const t_told &told, const t_port &port)
{
    const std::string wan = port.name + " is the WAN port.";
    for (const auto &[none, line] : told["text"].parts) {
        if (line.text == wan && is_port(world.role_holder) && is_known(world.role_since, ROLE_KNOWN) &&
            world.role_holder != port.number)
            fail("state: explain calls %s the WAN port", port.name.c_str());
        unsigned times = 0;
        if (sscanf(line.text.c_str(), "It was asked %u time", &times) == 1 &&
            times > questions_since(port.number, now() - HOUR - MINUTE))
            fail("state: explain tells of %u questions on %s", times, port.name.c_str());
        if (was_well && line.text.find("was asked and stayed silent") != std::string::npos &&
            questions_of(port.number).empty() && has_kept_link(port))
            fail("state: explain calls %s silent, and nobody asked it", port.name.c_str());
    }
}

// --- asking

static void ask()
{
    call_daemon(OBJECT, "status", nullptr, look_at_status);
    call_daemon(OBJECT, "history", nullptr, look_at_history);
    for (const t_port &port : world.ports) {
        const int number = port.number;
        const std::string name = port.name;
        call_daemon(
            OBJECT, "explain", [name](blob_buf *message) { blobmsg_add_string(message, "device", name.c_str()); },
            [number](blob_attr *message) { look_at_reasons(read_told(message), port_at(number)); });
    }
}

static void ask_now_and_then()
{
    if (world.told_to_end != NEVER)
        return;
    ask();
    const t_time pause = MINUTE / 4 + static_cast<t_time>(draw(20, static_cast<uint64_t>(now())) % MOST_BETWEEN_LOOKS);
    happen_at(now() + pause, ask_now_and_then);
}

static void begin_asking()
{
    static bool has_begun = false;
    if (has_begun || world.life.setting("state_is_asked", 1) == 0)
        return;
    has_begun = true;
    place_of(0); // before the order can change
    happen_at(now() + FIRST_LOOK, ask_now_and_then);
    happen_at(world.ends_at - BEFORE_THE_END, ask);
}

static void look_at_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::frame_sent && seen.port != 0)
        frames_counted += strcmp(seen.text, "dhcp") == 0 || strcmp(seen.text, "pppoe") == 0 ||
                          strcmp(seen.text, "arp") == 0 || strcmp(seen.text, "dns") == 0;
    else if (seen.deed == t_deed::command_started && self().number == 0)
        swaps_started += strncmp(seen.text, "network_lanwan_swap ", 20) == 0;
    was_well = was_well && world.health.all();
}

extern const t_check state;
const t_check state = {.name = "state", .on_deed = look_at_deed, .at_rest = begin_asking};

} // namespace sim
