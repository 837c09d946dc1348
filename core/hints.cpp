// SPDX-License-Identifier: MIT
#include "core/hints.h"

#include <cctype>
#include <cstring>

#include "core/connection.h"
#include "core/engine.h"
#include "model/banned.h"
#include "model/chronicle.h"
#include "model/config_text.h"
#include "model/port_model.h"
#include "model/reserved_ports.h"
#include "platform/log.h"

constexpr const char *VERDICT = "tell_verdict"; // hints are a part of it

namespace {

// Who answered, as far as somebody was asked; an answer to a search by ARP counts for candidates only.
struct t_answers {
    int count;
    int free;               // from ports that are not banned
    const t_device *banned; // borrowed; null for none
};

} // namespace

static bool has_answered(const t_device *dev, const t_protocol *wanted)
{
    return dev->link_active && ((wanted && dev->proto == wanted) || engine.possible_wan_dev_list.find(dev));
}

static t_answers count_answers()
{
    const t_protocol *wanted = wanted_protocol();
    t_answers answers = {};
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        if (!has_answered(dev, wanted))
            continue;
        answers.count++;
        if (is_banned_device(&port_model.banned_list, dev))
            answers.banned = dev;
        else
            answers.free++;
    }
    return answers;
}

// A reserved port is not asked by a cycle, but may have been by a request, or before it was reserved.
static const t_device *find_reserved_answer()
{
    const char *wanted = is_probed(connection_kind()) ? protocol_name(wanted_protocol()) : "arp";
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->link_active && dev->notes.answer && strcmp(dev->notes.answer, wanted) == 0 &&
            is_reserved_port(&port_model, dev->name))
            return dev;
    return nullptr;
}

static const char *text_of(uci_section *section, const char *name)
{
    const uci_option *option = section ? find_config_option(section, name) : nullptr;
    return option ? option_text(option) : nullptr;
}

static bool is_tagged_name(const char *device)
{
    const char *dot = strrchr(device, '.');
    return dot && isdigit(static_cast<unsigned char>(dot[1]));
}

static bool is_tagged_section(uci_section *section, const char *device)
{
    const char *name = text_of(section, "name");
    const char *type = text_of(section, "type");
    return name && type && strcmp(name, device) == 0 && has_prefix(type, "8021");
}

// By the name of its device, or by the section that describes it.
static bool wan_is_tagged()
{
    t_uci_package network("network");
    if (!network.package)
        return false;
    uci_section *wan = find_config_section(network.package, "wan");
    const char *device = text_of(wan, "device");
    if (!device)
        device = text_of(wan, "ifname");
    if (!device)
        return false;
    for (uci_element &element : sections_of(network.package))
        if (is_tagged_section(uci_to_section(&element), device))
            return true;
    return is_tagged_name(device);
}

static void tell(unsigned hints)
{
    const unsigned fresh = hints & ~chronicle.hints;
    chronicle.hints = static_cast<uint8_t>(hints);
    if (fresh & HINT_VLAN)
        LOG_AS(VERDICT, Warning, "The WAN interface is configured on a VLAN, and ports are asked without a tag!\n");
    if (fresh & HINT_ONLY_BANNED)
        LOG_AS(VERDICT, Warning, "Only a banned port answers!\n");
    if (fresh & HINT_ONLY_RESERVED)
        LOG_AS(VERDICT, Warning, "Nobody answers, but a reserved port did when it was asked last!\n");
    if (fresh & HINT_POOL)
        LOG_AS(VERDICT, Warning, "The pool of WAN ports names ports that do not exist!\n");
    if (fresh & HINT_SEVERAL)
        LOG_AS(VERDICT, Warning, "More than one line answers!\n");
}

static unsigned hint_if(bool holds, t_hint hint)
{
    return holds ? static_cast<unsigned>(hint) : 0;
}

static unsigned hints_of_settings(bool asked)
{
    return hint_if(chronicle.pool_has_strangers, HINT_POOL) | hint_if(asked && wan_is_tagged(), HINT_VLAN);
}

void look_for_hints(const t_device *winner)
{
    const t_cycle_note *cycle = newest_cycle();
    if (!winner || !cycle)
        return;
    if (cycle->decision != t_decision::wan_works)
        tell(hints_of_settings(true) | hint_if(count_answers().count > 1, HINT_SEVERAL));
    else if (cycle->asked)
        tell(hints_of_settings(false));
}

void look_for_hints_of_silence()
{
    const t_answers answers = count_answers();
    tell(hints_of_settings(true) | hint_if(answers.banned && answers.free == 0, HINT_ONLY_BANNED) |
         hint_if(answers.count == 0 && find_reserved_answer(), HINT_ONLY_RESERVED) |
         hint_if(answers.count > 1, HINT_SEVERAL));
}
