// SPDX-License-Identifier: MIT
#include "core/hints.h"

#include <cctype>
#include <cstring>

#include "core/candidates.h"
#include "core/engine.h"
#include "model/chronicle.h"
#include "model/config_text.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "platform/log.h"

constexpr const char *VERDICT = "tell_verdict"; // hints are a part of it

namespace {

// Linked ports of the pool that answered. A reserved one is not asked by a cycle, but may have been by a request, or
// before it was reserved; a banned one is not asked by ARP.
struct t_answers {
    int lines; // free and banned ones that were asked in this cycle
    int free, banned, reserved;
};

} // namespace

static bool has_answered(const t_device *dev, const t_protocol *wanted)
{
    return (wanted && dev->proto == wanted) || engine.possible_wan_dev_list.find(dev);
}

// In this cycle or any before, as long as the link stayed.
static bool answered_when_asked_last(const t_device *dev)
{
    const char *wanted = is_probed(connection_kind()) ? protocol_name(wanted_protocol()) : "arp";
    const t_port_notes &notes = dev->notes;
    return notes.answer && strcmp(notes.answer, wanted) == 0 && notes.answered_s >= notes.asked_s;
}

// Ports that may not be WAN for any other reason than a ban are no line to choose from.
static t_answers count_answers()
{
    const t_protocol *wanted = wanted_protocol();
    t_answers answers = {};
    t_read_guard guard(engine.gate.locks.device_lock);
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        const t_fate bar = bar_against(dev);
        const bool answered = has_answered(dev, wanted);
        answers.lines += answered && (bar == t_fate::not_looked_at || bar == t_fate::banned);
        answers.free += answered && bar == t_fate::not_looked_at;
        answers.banned += bar == t_fate::banned && (answered || answered_when_asked_last(dev));
        answers.reserved += bar == t_fate::reserved && answered_when_asked_last(dev);
    }
    return answers;
}

// A port that the next look takes along says more than what was seen before.
static bool somebody_waits()
{
    t_read_guard guard(engine.gate.locks.device_lock);
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev != port_model.wan_dev && !dev->is_brlan_dev && bar_against(dev) == t_fate::not_looked_at)
            return true;
    return false;
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

// Nobody was asked: what was seen before stays, but for what cannot be any more.
static unsigned hints_that_stay()
{
    unsigned hints = chronicle.hints & ~(HINT_ONLY_BANNED | HINT_ONLY_RESERVED);
    if (hints & HINT_VLAN && !wan_is_tagged())
        hints &= ~unsigned{HINT_VLAN};
    return hints;
}

void look_for_hints(const t_device *winner)
{
    const t_cycle_note *cycle = newest_cycle();
    if (!winner || !cycle)
        return;
    if (cycle->decision != t_decision::wan_works)
        tell(hints_of_settings(true) | hint_if(count_answers().lines > 1, HINT_SEVERAL));
    else
        tell(cycle->asked ? hints_of_settings(false) : hints_that_stay());
}

static unsigned hints_of_answers(const t_answers &answers)
{
    return hint_if(answers.banned && answers.free == 0, HINT_ONLY_BANNED) |
           hint_if(answers.reserved && answers.banned + answers.free == 0, HINT_ONLY_RESERVED);
}

void look_for_hints_of_silence()
{
    const t_answers answers = count_answers();
    engine.silence_is_expected = false;
    tell(hints_of_settings(true) | hints_of_answers(answers) | hint_if(answers.lines > 1, HINT_SEVERAL));
}

void look_for_hints_of_nobody()
{
    const t_cycle_note *cycle = newest_cycle();
    if (!engine.silence_is_expected || !cycle)
        return;
    if (cycle->asked)
        return look_for_hints_of_silence();
    engine.silence_is_expected = false;
    if (!somebody_waits())
        tell(hints_that_stay() | hints_of_settings(false) | hints_of_answers(count_answers()));
}
