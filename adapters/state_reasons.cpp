// SPDX-License-Identifier: MIT
#include "adapters/state_reasons.h"

#include <cstring>

#include "adapters/state_report.h"
#include "model/banned.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/text.h"

static const char *plural(uint32_t count)
{
    return count == 1 ? "" : "s";
}

const t_device *port_named(const char *name)
{
    const t_device *dev = port_model.dev_hashmap_head;
    while (dev && strcmp(dev->name, name) != 0)
        dev = static_cast<const t_device *>(dev->hh.next);
    return dev;
}

// --- what keeps it from being asked

// What the daemon would stumble over now; not_looked_at for nothing.
static t_fate obstacle_of(const t_device &dev)
{
    if (reserved_as(dev))
        return t_fate::reserved;
    if (!is_in_pool(dev))
        return t_fate::not_in_pool;
    if (ban_seconds_left(&port_model.banned_list, &dev))
        return t_fate::banned;
    return dev.link_active ? t_fate::not_looked_at : t_fate::no_link;
}

static void tell_bar(t_bus_reply &reply, const t_device &dev, const char *what)
{
    reply.line("%s may not be WAN: it is %s.", dev.name, what);
}

static void tell_ban(t_bus_reply &reply, const t_device &dev)
{
    const int32_t seconds = ban_seconds_left(&port_model.banned_list, &dev);
    if (seconds == BAN_FOREVER)
        tell_bar(reply, dev, "banned");
    else
        reply.line("%s may not be WAN: it is banned for another %d s.", dev.name, seconds);
    reply.element("The ban ends, too, when its link goes and comes back.");
}

static void tell_reservation(t_bus_reply &reply, const t_device &dev)
{
    const char *reserved = reserved_as(dev);
    tell_bar(reply, dev,
             reserved && *reserved == 'g' ? "the gaming port (switch.gaming.switch_port)"
                                          : "reserved for a link aggregation (switch.lan_agg.lacpports)");
}

constexpr const char *LOOKS_LIKE_A_HOST = "A modem that has an address of the LAN's network looks like one.";

static void tell_lan_hosts(t_bus_reply &reply, const t_device &dev)
{
    const uint16_t hosts = dev.notes.lan_hosts;
    reply.line("%s is not asked: %u host%s of the LAN %s behind it (last seen %u s ago).", dev.name, hosts,
               plural(hosts), hosts == 1 ? "is" : "are", seconds_since(dev.notes.lan_seen_s));
    reply.element(LOOKS_LIKE_A_HOST);
}

static void tell_obstacle(t_bus_reply &reply, const t_device &dev, t_fate obstacle)
{
    if (obstacle == t_fate::banned) {
        tell_ban(reply, dev);
    } else if (obstacle == t_fate::reserved) {
        tell_reservation(reply, dev);
    } else if (obstacle == t_fate::not_in_pool) {
        tell_bar(reply, dev, "not in the pool (network.auto_wan_detect.wan_port_pool)");
    } else {
        reply.line("%s is not asked: it has no link.", dev.name);
        reply.element("A cable is missing, or the device at its other end is off.");
    }
}

// --- what became of it in a cycle

// What became of it, behind its name and without the full stop; empty for what is told in another way.
constexpr char SENTENCES[] =
    "\0"
    "worked as the WAN port\0"
    "did not work as the WAN port\0"
    "had no link. It has one now\0"
    "was not in the pool. It is now\0"
    "was reserved. It is free now\0"
    "was banned. It is free now\0"
    "was not asked, for hosts of the LAN were behind it\0"
    "was no candidate, for its link came too late, or was there before the loss that opened it\0"
    "is asked, and has not answered so far\0"
    "was asked and stayed silent\0"
    "was asked and stayed silent, while another port answered\0"
    "was not chosen, for the gateway did not answer behind it\0"
    "was not chosen, for the name server behind another port answered first\0"
    "was not chosen, for another port was as good, and comes first in "
    "network.auto_wan_detect.wan_port_priority\0"
    "\0";
static_assert(count_of_texts(SENTENCES) == static_cast<size_t>(t_fate::won) + 1);

// Why a cycle with this end did not look at a port; or how it came to name one.
constexpr char REASONS[] = "its turn has not come\0"
                           "the WAN port works\0"
                           "it was the only port that answered\0"
                           "the gateway answered behind it alone\0"
                           "the name server behind it answered first\0"
                           "of several that were as good it comes first in the order of the ports\0"
                           "another cycle was asked for\0"
                           "detection was switched off\0"
                           "the WAN role is at a port that is none of the daemon's\0"
                           "there is no connection type, or one that nobody can ask for\0"
                           "nobody else was left\0";
static_assert(count_of_texts(REASONS) == static_cast<size_t>(t_decision::nobody) + 1);

static const char *why_nobody_looked(t_decision decision)
{
    const bool was_won = decision >= t_decision::only_answer && decision <= t_decision::priority;
    return was_won || decision == t_decision::nobody ? "there was no need of it"
                                                     : text_at(REASONS, static_cast<int>(decision));
}

static void tell_in_cycle(t_bus_reply &reply, const t_device &dev, const t_cycle_note &cycle, const char *what,
                          const char *why = "")
{
    reply.line("Cycle %u, begun %u s ago: %s %s%s.", cycle.number,
               seconds_since(static_cast<uint32_t>(cycle.begun.sec)), dev.name, what, why);
}

static void tell_fate(t_bus_reply &reply, const t_device &dev, const t_cycle_note &cycle, bool is_looked_again)
{
    const t_fate fate = fate_in(&cycle, dev);
    const bool is_newest = &cycle == newest_cycle();
    if (fate == t_fate::lan_hosts && is_newest && dev.notes.lan_hosts)
        return tell_lan_hosts(reply, dev);
    if (fate == t_fate::asked && (cycle.took_ms || !is_newest))
        tell_in_cycle(reply, dev, cycle, "was asked, and the end came before an answer");
    else if (const char *sentence = text_at(SENTENCES, static_cast<int>(fate)); *sentence)
        tell_in_cycle(reply, dev, cycle, sentence);
    if (fate == t_fate::lan_hosts)
        reply.element(LOOKS_LIKE_A_HOST);
    else if (fate == t_fate::not_listed_yet && is_newest && is_looked_again)
        reply.element("The next look at all ports takes it along.");
}

// Who was not looked at lately wants to know what became of him before.
static void tell_last_fate(t_bus_reply &reply, const t_device &dev, bool is_looked_again)
{
    const t_cycle_note *newest = newest_cycle(), *cycle = last_look_at(dev);
    if (cycle != newest)
        tell_in_cycle(reply, dev, *newest, "was not looked at, for ", why_nobody_looked(newest->decision));
    if (cycle)
        tell_fate(reply, dev, *cycle, is_looked_again);
}

// --- what it says, and how it came to be the WAN port

static void tell_questions(t_bus_reply &reply, const t_device &dev)
{
    const uint32_t count = questions_last_hour(&dev);
    if (dev.notes.was_asked)
        reply.line("It was asked %u time%s within the last hour, the last time %u s ago.", count, plural(count),
                   seconds_since(dev.notes.asked_s));
}

static void tell_answer(t_bus_reply &reply, const t_device &dev)
{
    const t_port_notes &notes = dev.notes;
    if (!notes.answer)
        return;
    const t_mac_text mac(notes.learned.server_mac);
    reply.line("Its last answer: %s%s%s, %u s ago.", notes.answer, *mac.text ? " from " : "", mac.text,
               seconds_since(notes.answered_s));
}

static bool is_tested_next(const t_cycle_note &cycle)
{
    return &cycle == newest_cycle() && port_model.enable && !port_model.role_is_away;
}

static void tell_swap(t_bus_reply &reply, const t_cycle_note &cycle)
{
    const bool is_there = cycle.swap == t_swap::done;
    if (cycle.swap == t_swap::called_off)
        reply.element("The swap was called off: the WAN role was moved meanwhile, or it could not be read.");
    else if (cycle.swap_status < 0)
        reply.element("The swap command did not end by itself.");
    else if (!is_there)
        reply.line("The swap command ended with status %d.", cycle.swap_status);
    if (!is_there)
        reply.element("It did not get the WAN role.");
    else if (cycle.confirmation == t_confirmation::unknown)
        reply.line("The WAN role was moved to it%s.", is_tested_next(cycle) ? "; the next cycle tests that" : "");
    else
        reply.line("The WAN role was moved to it, and the next cycle %s.",
                   cycle.confirmation == t_confirmation::agreed ? "agreed" : "did not agree");
}

// The last cycle that it won anew.
static void tell_win(t_bus_reply &reply, const t_device &dev)
{
    const t_cycle_note *cycle;
    for (int age = 0; (cycle = remembered_cycle(age)); age++)
        if (port_at(cycle->winner) == &dev && cycle->decision != t_decision::wan_works)
            break;
    if (!cycle)
        return;
    tell_in_cycle(reply, dev, *cycle, "won, for ", text_at(REASONS, static_cast<int>(cycle->decision)));
    if (cycle->swap != t_swap::not_needed)
        tell_swap(reply, *cycle);
}

// --- what lies with others than the port

static void tell_of_engine(t_bus_reply &reply, const t_progress &progress)
{
    if (progress.starting)
        reply.element("The daemon is starting, and asks nobody so far.");
    if (!port_model.enable)
        reply.element("Detection is off: nobody is asked, and nobody looks at the links.");
    else if (!port_model.router_mode)
        reply.element("The router is not in router mode: nobody is asked, and nobody looks at the links.");
    else if (port_model.role_is_away)
        reply.line("The WAN role is at %s, which is none of the daemon's ports: nobody is asked.", port_model.wan_role);
}

static void tell_next(t_bus_reply &reply, const t_progress &progress)
{
    const int seconds = (progress.next_ms + MILLISECONDS_PER_SECOND - 1) / MILLISECONDS_PER_SECOND;
    if (!progress.next)
        return;
    if (strcmp(progress.next, "look") == 0)
        reply.line("All ports are looked at again in %d s.", seconds);
    else if (strcmp(progress.next, "cycle") == 0)
        reply.line("The next cycle begins in %d s.", seconds);
}

void report_reasons(t_bus_reply &reply, const t_device &dev)
{
    const t_progress progress = engine_progress();
    const t_cycle_note *cycle = newest_cycle();
    const t_fate fate = fate_in(cycle, dev), obstacle = obstacle_of(dev);
    const bool is_free = obstacle == t_fate::not_looked_at, has_link = obstacle != t_fate::no_link;
    reply.text("device", dev.name);
    t_bus_array text(reply, "text");
    tell_of_engine(reply, progress);
    if (wan_port() == &dev)
        reply.line("%s is the WAN port.", dev.name);
    if (!is_free)
        tell_obstacle(reply, dev, obstacle);
    if (!cycle)
        reply.element("No cycle has begun so far.");
    else if (is_free || (has_link && (fate == t_fate::works || fate == t_fate::not_connected)))
        tell_last_fate(reply, dev, progress.retry_pause_s > 0);
    if (is_free && fate == t_fate::silent && chronicle.hints & HINT_VLAN)
        reply.element("It is asked untagged, and the WAN interface is configured on a VLAN.");
    tell_win(reply, dev);
    tell_questions(reply, dev);
    tell_answer(reply, dev);
    tell_next(reply, progress);
}
