// SPDX-License-Identifier: MIT
// What is drawn to the ends of cables.
#include "tests/simulation/events.h"

namespace sim {

static std::string with_trait(const std::string &kind, const std::string &trait)
{
    return trait.empty() ? kind : kind + ":" + trait;
}

static std::string dhcp_traits(t_number number)
{
    static const char *const TRAITS[] = {"", "",     "",      "",      "",     "",      "",
                                         "", "late", "relay", "twice", "bare", "tests", "slow"};
    return one_of(TRAITS, number);
}

static std::string pppoe_traits(t_number number)
{
    static const char *const TRAITS[] = {"", "", "", "", "", "", "late", "twice", "tagged", "bare", "slow"};
    return one_of(TRAITS, number);
}

static std::string gateway_traits(t_number number)
{
    static const char *const TRAITS[] = {"", "", "", "", "", "strict", "strict", "late", "dumb"};
    return one_of(TRAITS, number);
}

static std::string draw_name_server(t_number number)
{
    static const char *const TRAITS[] = {"", "", "", "", "asks", "asks", "silent", "id", "none", "late"};
    return with_trait("dns", one_of(TRAITS, number));
}

static bool is_for_gateway(const t_life &life)
{
    const auto secondary = life.settings.find("protocol." + life.connection + ".snd_conn");
    return life.connection == "static" || (secondary != life.settings.end() && secondary->second == "static");
}

static std::string upstream_kind(const t_life &life)
{
    if (is_for_gateway(life))
        return "gateway";
    return life.connection.compare(0, 5, "pppoe") == 0 ? "pppoe" : "dhcp";
}

std::string draw_upstream(const t_life &life, t_number number)
{
    const std::string kind = upstream_kind(life);
    const std::string trait = kind == "dhcp"    ? dhcp_traits(number)
                              : kind == "pppoe" ? pppoe_traits(number)
                                                : gateway_traits(number);
    std::string word = with_trait(kind, trait);
    if (kind != "pppoe" && number(5) < 3)
        word += "+" + draw_name_server(number);
    if (one_in(25, number))
        word += "+" + kind; // two on one cable
    if (one_in(20, number))
        word += one_in(2, number) ? "+switch:slow" : "+switch";
    if (one_in(60, number))
        word += "+flood";
    if (one_in(40, number))
        word += "+host:quiet";
    return word;
}

static std::string draw_host(t_number number)
{
    static const char *const TRAITS[] = {"", "", "", "", "silent", "stranger", "quiet"};
    std::string word = with_trait("host", one_of(TRAITS, number));
    while (one_in(3, number))
        word += "+" + with_trait("host", one_of(TRAITS, number));
    return word;
}

// An upstream that is none: of another kind, or one that does not do what it should.
static std::string draw_decoy(const t_life &life, t_number number)
{
    static const char *const DECOYS[] = {"dhcp",          "dhcp:mute", "dhcp:xid",   "dhcp:nowhere",
                                         "dhcp:nowhere",  "pppoe",     "pppoe:mute", "pppoe:uniq",
                                         "gateway:other", "dns",       "gateway"};
    const std::string word = one_of(DECOYS, number);
    return has_upstream(life, word) && number(3) ? "silent" : word;
}

std::string draw_bystander(const t_life &life, t_number number)
{
    const uint64_t which = number(40);
    if (which < 17)
        return "nothing";
    if (which < 24)
        return "silent";
    if (which < 33)
        return draw_host(number);
    if (which < 37)
        return draw_decoy(life, number);
    if (which == 37)
        return "switch+" + draw_host(number);
    return which == 38 ? with_trait("loop", one_in(2, number) ? "" : std::to_string(some_port(life, number))) : "flood";
}

bool has_upstream(const t_life &life, const std::string &word)
{
    const std::string kind = upstream_kind(life);
    const size_t at = word.find(kind);
    return at != std::string::npos && word.compare(at + kind.size(), 5, ":mute") != 0 &&
           word.compare(at + kind.size(), 4, ":xid") != 0 && word.compare(at + kind.size(), 5, ":uniq") != 0 &&
           word.compare(at + kind.size(), 6, ":other") != 0;
}

} // namespace sim
