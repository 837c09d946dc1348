// SPDX-License-Identifier: MIT
// A PPPoE concentrator: it answers each PADI with a PADO that gives the Host-Uniq back.
//
// Traits: mute, late, slow and twice as of a DHCP server; uniq: it gives another one back; bare: it gives none back;
// tagged: it puts many tags before it.
#include <arpa/inet.h>
#include <net/ethernet.h>

#include "tests/simulation/neighbours.h"

namespace sim {

constexpr uint8_t CODE_PADI = 0x09;
constexpr uint8_t CODE_PADO = 0x07;
constexpr uint16_t TAG_SERVICE_NAME = 0x0101;
constexpr uint16_t TAG_AC_NAME = 0x0102;
constexpr uint16_t TAG_HOST_UNIQ = 0x0103;
constexpr uint16_t TAG_VENDOR = 0x0105;
constexpr int SOME_TAGS = 4;
constexpr t_time SLOW = 3 * SECOND;

static void put_tag(std::string *frame, uint16_t type, const std::string &value)
{
    const t_pppoe_tag tag = {htons(type), htons(static_cast<uint16_t>(value.size()))};
    *frame += frame_of(tag) + value;
}

static std::string pado(const t_neighbour &who, t_padi_frame padi)
{
    std::string tags;
    put_tag(&tags, TAG_SERVICE_NAME, "");
    put_tag(&tags, TAG_AC_NAME, "concentrator");
    for (int i = 0; i < SOME_TAGS && has_trait(who, "tagged"); i++)
        put_tag(&tags, TAG_VENDOR, "tag " + std::to_string(i));
    if (has_trait(who, "uniq"))
        padi.host_uniq_value ^= 0x01010101;
    if (!has_trait(who, "bare"))
        put_tag(&tags, TAG_HOST_UNIQ, frame_of(padi.host_uniq_value));
    t_ethernet_header ethernet = {padi.ethernet.source, mac_of(who), htons(ETH_P_PPP_DISC)};
    t_pppoe_header head = {0x11, CODE_PADO, 0, htons(static_cast<uint16_t>(tags.size()))};
    return frame_of(ethernet) + frame_of(head) + tags;
}

static void hears(t_neighbour &who, const std::string &bytes)
{
    t_padi_frame padi;
    if (!read_frame(bytes, &padi) || padi.ethernet.ether_type_be != htons(ETH_P_PPP_DISC) ||
        padi.pppoe.code != CODE_PADI)
        return;
    if (has_trait(who, "mute") || is_late(who))
        return;
    who.heard++;
    const t_time delay = has_trait(who, "slow") ? SLOW : usual_delay(who);
    answer_frame(who, pado(who, padi), delay);
    if (has_trait(who, "twice"))
        answer_frame(who, pado(who, padi), delay + MILLISECOND);
}

static bool serves(const t_neighbour &who, const std::string &connection)
{
    return connection == "pppoe" && !has_trait(who, "mute") && !has_trait(who, "uniq") && !is_late(who);
}

static t_found found(const t_neighbour &who, const std::string &connection)
{
    return serves(who, connection) ? found_as_server(who, "bare") : t_found::never;
}

extern const t_neighbour_kind pppoe_server;
const t_neighbour_kind pppoe_server = {.name = "pppoe", .hears = hears, .serves = serves, .found = found};

} // namespace sim
