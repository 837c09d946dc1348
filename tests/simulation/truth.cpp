// SPDX-License-Identifier: MIT
// The truth that checks read, worked out anew whenever something changed.
#include <algorithm>
#include <sstream>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/router.h"
#include "tests/simulation/stuck.h"

namespace sim {

bool resolves_names(const t_neighbour &who);   // name_server.cpp
bool is_findable_host(const t_neighbour &who); // lan_host.cpp

constexpr size_t MOST_PORTS_WITH_POOL = 15; // the table of the daemon ends with the 16th, and its pool is not read then
constexpr size_t MOST_LABELS = 16;
constexpr t_time LINKS_ARE_KNOWN_AFTER = 45 * SECOND; // a scan a second, 20 s of rest after a swap, a slow command

static std::vector<std::string> words_of(const std::string &text)
{
    std::vector<std::string> words;
    std::istringstream all(text);
    for (std::string word; all >> word;)
        words.push_back(word);
    return words;
}

// True when a file of the configuration is another one than at the last call.
static bool configuration_changed()
{
    static std::vector<std::pair<t_node_ref, t_time>> known;
    std::vector<std::pair<t_node_ref, t_time>> found;
    for (const char *package : {"network", "switch", "protocol", "sysmode"})
        if (const auto node = files.find(std::string("/etc/config/") + package); node != files.end())
            found.emplace_back(node->second, node->second->changed);
    const bool changed = found != known;
    known = std::move(found);
    return changed;
}

static bool is_off_word(const std::string &word)
{
    return word == "0" || word == "off" || word == "false";
}

// Positions among the labels, the first of which is never a member.
static bool is_aggregated(const t_port &port)
{
    if (is_off_word(option_of("switch", "lan_agg", "enable_agg")))
        return false;
    const std::vector<std::string> labels = words_of(option_of("switch", "lan_agg", "lanport"));
    for (const std::string &word : words_of(option_of("switch", "lan_agg", "lacpports"))) {
        const int place = atoi(word.c_str());
        if (place >= 2 && static_cast<size_t>(place) <= std::min(labels.size(), MOST_LABELS) &&
            labels[static_cast<size_t>(place - 1)] == "P" + std::to_string(port.number))
            return true;
    }
    return false;
}

static bool is_gaming_port(const t_port &port)
{
    return option_of("switch", "gaming", "switch_port") == "port" + std::to_string(port.number);
}

static bool is_in_pool(const t_port &port)
{
    const std::vector<int> &pool = world.life.pool;
    return world.ports.size() <= MOST_PORTS_WITH_POOL && std::find(pool.begin(), pool.end(), port.number) != pool.end();
}

static t_time commands_were_ill = 0; // last

// The daemon has seen by then what was so from `since` on. While detection is off it does not look, and while commands
// fail it looks in vain.
static bool was_seen(t_time since, t_time then)
{
    if (!world.health.commands)
        return false;
    since = std::max(since, commands_were_ill);
    if (world.detection_on)
        return std::max(since, world.detection_since) + LINKS_ARE_KNOWN_AFTER <= then;
    return since + LINKS_ARE_KNOWN_AFTER <= std::min(then, world.detection_since);
}

bool link_was_settled(const t_port &port)
{
    return was_seen(port.link_since, port.banned_at) &&
           (port.hotplugged == NEVER || was_seen(port.hotplugged, port.banned_at));
}

static t_port_truth look_at(const t_port &port)
{
    t_port_truth truth = {};
    truth.in_pool = is_in_pool(port);
    truth.is_reserved = port.is_reserved;
    truth.may_be_banned = port.banned_until > now();
    truth.is_banned = port.banned_at_least > now() && link_was_settled(port);
    truth.link = port.link;
    if (!port.link)
        return truth;
    bool is_disturbed = false, is_bare = false;
    for (const t_neighbour &who : port.cable().neighbours) {
        truth.lan_hosts += port.in_bridge && is_findable_host(who);
        truth.name_server = truth.name_server || resolves_names(who);
        is_disturbed = is_disturbed || (!who.is_dead && is_disturber(who));
        if (who.is_dead)
            continue;
        is_bare = is_bare || (world.connection == "dhcp" && has_trait(who, "bare"));
        if (who.kind->serves && who.kind->serves(who, world.connection))
            truth.serves = true;
        if (who.kind->found)
            truth.found = std::min(truth.found, who.kind->found(who, world.connection));
    }
    truth.name_server = truth.name_server && !is_bare;
    if (is_disturbed)
        truth.found = t_found::doubtful;
    return truth;
}

static void note_port(t_port &port)
{
    const t_port_truth truth = look_at(port);
    if (truth == port.truth)
        return;
    if (truth.lan_hosts > 0 && port.truth.lan_hosts == 0)
        port.lan_hosts_since = now();
    if (truth.found != port.truth.found)
        port.upstream_since = now();
    port.truth = truth;
    port.truth_since = now();
    saw({.deed = t_deed::truth_changed, .port = port.number, .number = static_cast<int64_t>(truth.found), .text = ""});
}

static t_health look_at_health()
{
    return {.commands = commands_are_well(),
            .bus = bus.is_up && !bus.hangs && !bus.is_deaf && bus.refused.empty(),
            .manager = manager_is_well(),
            .configuration = configuration_is_well() && !world.connection_in_doubt,
            .machine = machine_is_well()};
}

static bool differ(const t_health &a, const t_health &b)
{
    return a.commands != b.commands || a.bus != b.bus || a.manager != b.manager || a.configuration != b.configuration ||
           a.machine != b.machine;
}

static void note_health()
{
    const t_health health = look_at_health();
    const bool is_early = loop_began() == NEVER;
    world.manager_was_ill_early = world.manager_was_ill_early || (is_early && !health.manager);
    if (!differ(health, world.health))
        return;
    if (!world.health.commands)
        commands_were_ill = now();
    world.health = health;
    world.health_since = now();
    saw({.deed = t_deed::truth_changed, .number = health.all(), .text = "health"});
}

static void note_connection()
{
    const std::string connection = configured_connection(), gateway = option_of("protocol", "static", "gateway");
    if (connection == world.connection && gateway == world.gateway)
        return;
    world.connection = connection;
    world.gateway = gateway;
    world.connection_since = now();
    saw({.deed = t_deed::truth_changed, .text = connection.c_str()});
}

void note_truth()
{
    if (configuration_changed() || memory_will_be_refused()) {
        world.role_holder = holder_of_role();
        note_connection();
        for (t_port &port : world.ports)
            port.is_reserved = is_aggregated(port) || is_gaming_port(port);
    }
    note_health();
    for (t_port &port : world.ports)
        note_port(port);
}

bool detection_is_undisturbed()
{
    return world.detection_on && !world.detection_in_doubt && world.sets_under_way == 0 && world.is_router &&
           world.health.all();
}

bool start_was_deceived()
{
    if (!world.manager_was_ill_early || world.cycles > 0)
        return false;
    if (!is_port(world.role_holder) || port_at(world.role_holder).link)
        return true;
    return std::max(port_at(world.role_holder).link_since, world.role_since) <= loop_began();
}

t_time undisturbed_since()
{
    return std::max(unchanged_since(), world.quiet_from);
}

t_time unchanged_since()
{
    t_time since = std::max({world.health_since, world.detection_since, world.connection_since});
    if (world.role_taken_by_others != NEVER)
        since = std::max(since, world.role_taken_by_others);
    for (const t_port &port : world.ports)
        since = std::max(since, port.upstream_since);
    return since;
}

} // namespace sim
