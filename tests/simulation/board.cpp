// SPDX-License-Identifier: MIT
// The board of a life: ports, pool, connection type, settings, and what is plugged in at first.
#include <algorithm>

#include "tests/simulation/events.h"

namespace sim {

constexpr const char *SETTING = "network.auto_wan_detect.";

static uint64_t draw_count(t_character character, t_number number)
{
    if (character == t_character::crowded)
        return 4 + number(4);
    const uint64_t kind = number(50);
    if (kind < 40)
        return 2 + number(5);
    return kind < 49 ? 7 + number(9) : 16;
}

// Of ports that answer by DHCP or for a static connection several may, and are told apart by a name server.
static std::string draw_type(t_character character, t_number number)
{
    static const char *const CROWDED[] = {"dhcp", "dhcp", "dhcp", "static", "static"};
    static const char *const TYPES[] = {"dhcp",   "dhcp",       "dhcp",  "dhcp",  "dhcp",   "dhcp",   "dhcp",
                                        "pppoe",  "pppoe",      "pppoe", "pppoe", "static", "static", "static",
                                        "static", "pppoeshare", "l2tp",  "pptp",  "l2tp",   "v6plus"};
    return character == t_character::crowded && !one_in(8, number) ? one_of(CROWDED, number) : one_of(TYPES, number);
}

static void draw_connection(t_life *life, t_character character, t_number number)
{
    life->connection = draw_type(character, number);
    const bool is_tunnel = life->connection == "l2tp" || life->connection == "pptp";
    if (is_tunnel && one_in(2, number))
        life->settings["protocol." + life->connection + ".snd_conn"] = "static";
    if (one_in(25, number))
        life->settings["network.wan.device"] = "eth0.100";
}

static std::string text_of(const std::vector<int> &ports)
{
    std::string text;
    for (int port : ports)
        text += (text.empty() ? "" : " ") + std::to_string(port);
    return text;
}

static void shuffle(std::vector<int> *ports, t_number number)
{
    for (size_t i = ports->size(); i > 1; i--)
        std::swap((*ports)[i - 1], (*ports)[number(i)]);
}

static void draw_pool(t_life *life, uint64_t count, t_character character, t_number number)
{
    for (uint64_t i = 1; i <= count; i++)
        life->pool.push_back(static_cast<int>(i));
    if (one_in(2, number))
        shuffle(&life->pool, number);
    if (one_in(character == t_character::usual ? 4 : 12, number))
        life->pool.resize(1 + number(count));
    if (one_in(16, number))
        life->pool.push_back(static_cast<int>(count) + 3); // there is no such port
    if (one_in(10, number)) {
        std::vector<int> order = life->pool;
        shuffle(&order, number);
        order.resize(1 + number(order.size()));
        life->settings[std::string(SETTING) + "wan_port_priority"] = text_of(order);
    }
}

static void draw_reserved(t_life *life, t_number number)
{
    const uint64_t count = life->ports.size();
    if (one_in(7, number)) {
        life->settings["switch.lan_agg.enable_agg"] = "1";
        const uint64_t first = 2 + number(count - 1);
        life->settings["switch.lan_agg.lacpports"] =
            std::to_string(first) + (first < count ? " " + std::to_string(first + 1) : "");
    }
    if (one_in(10, number))
        life->settings["switch.gaming.switch_port"] = "port" + std::to_string(some_port(*life, number));
}

// What makes most of a life the same: detection that is off, a manager that never tells the truth.
static void draw_odd_surroundings(t_life *life, t_number number)
{
    static const char *const MANAGERS[] = {"flags",   "flags",      "flags", "away",
                                           "says_no", "connecting", "empty", "refuses"};
    if (one_in(25, number))
        life->settings[std::string(SETTING) + "enable"] = one_in(3, number) ? "true" : "off";
    if (one_in(40, number))
        life->settings["sysmode.sysmode.mode"] = "ap";
    if (one_in(12, number))
        life->settings[MANAGER] = one_of(MANAGERS, number);
}

void draw_settings(t_life *life, t_character character, t_number number)
{
    static const char *const RETRIES[] = {"10", "60", "120", "0", "soon"};
    if (character != t_character::usual && one_in(3, number))
        life->settings[std::string(SETTING) + "retry_interval"] = "10";
    else if (character == t_character::troubled && one_in(4, number))
        life->settings[std::string(SETTING) + "retry_interval"] = "0";
    else if (one_in(8, number))
        life->settings[std::string(SETTING) + "retry_interval"] = one_of(RETRIES, number);
    if (one_in(9, number))
        life->settings[std::string(SETTING) + "fake_wan_port"] = std::to_string(some_port(*life, number));
    if (one_in(8, number))
        life->settings[std::string(SETTING) + "wan_combo_first_priority"] = one_in(5, number) ? "fibre" : "sfp";
    if (one_in(40, number))
        life->settings[LOG_LEVEL] = std::to_string(number(8)); // what the kernel filters follows it
    if (one_in(30, number))
        life->settings[GUEST_PORTS] = std::to_string(some_port(*life, number));
    if (character == t_character::usual || one_in(8, number))
        draw_odd_surroundings(life, number);
}

static int64_t draw_slowness(const t_life &life, t_number number)
{
    if (one_in(20, number))
        return between(200, 2600, number);
    return between(1, life.connection == "static" ? 200 : one_in(3, number) ? 900 : 150, number);
}

static uint64_t draw_upstreams(t_character character, t_number number)
{
    static const uint64_t USUAL[] = {0, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 3}, SOME[] = {1, 1, 2, 2, 3}, MANY[] = {3, 4, 5};
    if (character == t_character::usual)
        return one_of(USUAL, number);
    return character == t_character::crowded ? one_of(MANY, number) : one_of(SOME, number);
}

static bool begins_at_rest(t_character character, uint64_t upstreams, t_number number)
{
    if (character != t_character::usual)
        return !one_in(3, number);
    return number(3) < (upstreams > 1 ? 1 : 2); // else the daemon has to look for one
}

static void draw_cables(t_life *life, t_character character, t_number number)
{
    for (t_port_plan &port : life->ports) {
        port.behind = draw_bystander(*life, number);
        port.answers_after_ms = draw_slowness(*life, number);
    }
    const uint64_t upstreams = draw_upstreams(character, number);
    const bool is_at_rest = begins_at_rest(character, upstreams, number);
    for (uint64_t left = upstreams; left > 0; left--) {
        const int port = is_at_rest && one_in(2, number) ? life->wan : some_port(*life, number);
        life->ports[static_cast<size_t>(port - 1)].behind = draw_upstream(*life, number);
    }
    if (!is_at_rest)
        life->ports[static_cast<size_t>(life->wan - 1)].behind = one_in(2, number) ? "nothing" : "silent";
    if (one_in(character == t_character::usual ? 7 : 4, number)) {
        const int port = one_in(2, number) ? life->wan : some_port(*life, number);
        t_port_plan &combo = life->ports[static_cast<size_t>(port - 1)];
        combo.behind_sfp = one_in(3, number) ? draw_upstream(*life, number) : draw_bystander(*life, number);
    }
    for (t_port_plan &port : life->ports)
        port.link = port.behind != "nothing";
}

int some_port(const t_life &life, t_number number)
{
    return 1 + static_cast<int>(number(life.ports.size()));
}

int likely_port(const t_life &life, t_number number)
{
    const uint64_t which = number(8);
    if (which < 3)
        return HOLDER_OF_ROLE;
    if (which == 3)
        return life.wan;
    for (size_t i = 0; which < 7 && i < life.ports.size(); i++)
        if (has_upstream(life, life.ports[i].behind))
            return static_cast<int>(i) + 1;
    return some_port(life, number);
}

void draw_board(t_life *life, t_character character, t_number number)
{
    const uint64_t count = draw_count(character, number);
    life->ports.resize(count);
    draw_pool(life, count, character, number);
    life->wan = some_port(*life, number);
    draw_connection(life, character, number);
    draw_reserved(life, number);
    draw_settings(life, character, number);
    draw_cables(life, character, number);
}

} // namespace sim
