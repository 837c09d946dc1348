// SPDX-License-Identifier: MIT
#include "adapters/state_report.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "model/banned.h"
#include "model/chronicle_words.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/clock.h"
#include "platform/ipv4_text.h"
#include "platform/tallies.h"
#include "platform/text.h"

constexpr uint8_t NO_MAC[MAC_SIZE] = {};

static const t_device *next_port(const t_device *dev)
{
    return static_cast<const t_device *>(dev->hh.next);
}

t_mac_text::t_mac_text(const uint8_t (&mac)[MAC_SIZE]) : text{}
{
    if (memcmp(mac, NO_MAC, sizeof NO_MAC) != 0)
        snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", MAC_ARGS(mac));
}

t_progress engine_progress()
{
    t_progress progress = {};
    if (engine_handlers.tell_progress)
        engine_handlers.tell_progress(&progress);
    return progress;
}

const t_device *port_at(int place)
{
    const t_device *dev = place < 0 ? nullptr : port_model.dev_hashmap_head;
    for (; dev && place > 0; place--)
        dev = next_port(dev);
    return dev;
}

const t_device *wan_port()
{
    return port_model.role_is_away ? nullptr : static_cast<const t_device *>(port_model.wan_dev);
}

t_fate fate_in(const t_cycle_note *cycle, const t_device &dev)
{
    const int8_t place = port_place(&dev);
    return cycle && place != NO_PORT ? cycle->fates[place] : t_fate::not_looked_at;
}

const t_cycle_note *last_look_at(const t_device &dev)
{
    const t_cycle_note *cycle;
    for (int age = 0; (cycle = remembered_cycle(age)); age++)
        if (fate_in(cycle, dev) != t_fate::not_looked_at)
            break;
    return cycle;
}

static bool is_in_table(t_device *table, const t_device &dev)
{
    return table && find_device(table, dev.name);
}

bool is_in_pool(const t_device &dev)
{
    return is_in_table(port_model.wan_port_pool, dev);
}

const char *reserved_as(const t_device &dev)
{
    if (is_in_table(port_model.gaming, dev))
        return "gaming";
    for (t_device *aggregated : port_model.lan_agg)
        if (is_in_table(aggregated, dev))
            return "aggregation";
    return nullptr;
}

uint32_t seconds_since(uint32_t then_s)
{
    return monotonic_s() - then_s;
}

// --- status

static void report_engine(t_bus_reply &reply, const t_progress &progress)
{
    t_bus_table table(reply, "cycle");
    reply.text("state", progress.state);
    if (const t_cycle_note *cycle = newest_cycle())
        reply.number("number", cycle->number);
    if (!progress.next)
        return;
    reply.text("next", progress.next);
    reply.number("next_ms", progress.next_ms);
}

static void report_address(t_bus_reply &reply, const char *name, const t_address_slot &slot)
{
    if (slot.ipv4_be)
        reply.text(name, t_ipv4_text(slot.ipv4_be).text);
}

static void report_answer(t_bus_reply &reply, const t_port_notes &notes)
{
    if (!notes.answer)
        return;
    t_bus_table table(reply, "answer");
    reply.text("protocol", notes.answer);
    reply.text("mac", t_mac_text(notes.learned.server_mac).text);
    report_address(reply, "address", notes.learned.address);
    report_address(reply, "gateway", notes.learned.gateway);
    report_address(reply, "dns", notes.learned.dns_server);
    reply.number("ago", seconds_since(notes.answered_s));
}

static void report_place(t_bus_reply &reply, const t_device &dev)
{
    reply.text("name", dev.name);
    reply.text("label", dev.label);
    reply.flag("link", dev.link_active);
    reply.number("link_changes", dev.notes.link_changes);
    if (dev.is_combo)
        reply.text("side", sub_port_word(dev.sub_port));
    if (dev.priority > 0)
        reply.number("priority", dev.priority);
    reply.flag("pool", is_in_pool(dev));
    reply.text("reserved", reserved_as(dev));
    if (const int32_t seconds = ban_seconds_left(&port_model.banned_list, &dev))
        reply.number("banned", seconds);
}

// An earlier cycle's WAN port is none any more once another port has the role.
static const char *why_it_is_so(const t_device &dev)
{
    const t_cycle_note *cycle = last_look_at(dev);
    const t_fate fate = fate_in(cycle, dev);
    const bool was_wan = fate == t_fate::works || fate == t_fate::won;
    return was_wan && cycle != newest_cycle() && wan_port() != &dev ? nullptr : fate_word(fate);
}

static void report_port(t_bus_reply &reply, const t_device &dev)
{
    t_bus_table table(reply);
    report_place(reply, dev);
    const t_port_notes &notes = dev.notes;
    if (dev.link_active)
        reply.number("lan_hosts", notes.lan_hosts);
    if (dev.link_active && notes.lan_seen_s)
        reply.number("lan_seen", seconds_since(notes.lan_seen_s));
    if (notes.was_asked)
        reply.number("last_asked", seconds_since(notes.asked_s));
    reply.number("asked_last_hour", questions_last_hour(&dev));
    reply.text("why", why_it_is_so(dev));
    report_answer(reply, notes);
}

static void report_ports(t_bus_reply &reply)
{
    t_bus_array array(reply, "ports");
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = next_port(dev))
        report_port(reply, *dev);
}

static void report_counters(t_bus_reply &reply)
{
    constexpr char NAMES[] = "cycles\0questions\0answers\0verdicts\0swaps\0swaps_confirmed\0swaps_failed_in_a_row\0"
                             "commits\0commands_out_of_time\0bus_reconnects\0";
    const t_counters &counted = chronicle.counters;
    const uint32_t counts[] = {counted.cycles,
                               counted.questions,
                               counted.answers,
                               counted.verdicts,
                               counted.swaps_asked,
                               counted.swaps_confirmed,
                               counted.swaps_failed_in_a_row,
                               tallies.commits,
                               tallies.commands_out_of_time,
                               tallies.bus_reconnects};
    static_assert(count_of_texts(NAMES) == std::size(counts));
    t_bus_table table(reply, "counters");
    for (int i = 0; i < static_cast<int>(std::size(counts)); i++)
        reply.number(text_at(NAMES, i), counts[i]);
}

static void report_hints(t_bus_reply &reply)
{
    t_bus_array array(reply, "hints");
    for (const t_hint hint : HINTS)
        if (chronicle.hints & hint)
            reply.element(hint_word(hint));
}

void report_status(t_bus_reply &reply)
{
    const t_progress progress = engine_progress();
    reply.text("version", WAN_DETECT_VERSION);
    reply.number("uptime", seconds_since(chronicle.started_s));
    reply.flag("starting", progress.starting);
    reply.flag("enabled", port_model.enable);
    reply.flag("router_mode", port_model.router_mode);
    report_engine(reply, progress);
    if (const t_device *wan = wan_port())
        reply.text("wan", wan->name);
    if (port_model.wan_proto)
        reply.text("connection", port_model.wan_proto->name);
    reply.number("retry_pause", progress.retry_pause_s);
    reply.number("swap_pause", progress.swap_pause_s);
    report_ports(reply);
    report_counters(reply);
    report_hints(reply);
}

// --- history

static void report_asked(t_bus_reply &reply, const t_cycle_note &cycle)
{
    t_bus_array array(reply, "asked");
    for (int place = 0; place < static_cast<int>(MAX_DEVICES); place++)
        if (cycle.asked >> place & 1)
            reply.element(port_at(place)->name);
}

static void report_fates(t_bus_reply &reply, const t_cycle_note &cycle)
{
    t_bus_array array(reply, "ports");
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = next_port(dev)) {
        const char *why = fate_word(fate_in(&cycle, *dev));
        if (!why)
            continue;
        t_bus_table table(reply);
        reply.text("name", dev->name);
        reply.text("why", why);
    }
}

static void report_outcome(t_bus_reply &reply, const t_cycle_note &cycle)
{
    if (const t_device *winner = port_at(cycle.winner))
        reply.text("winner", winner->name);
    reply.text("swap", swap_word(cycle.swap));
    if ((cycle.swap == t_swap::done || cycle.swap == t_swap::failed) && cycle.swap_status >= 0)
        reply.number("swap_status", cycle.swap_status);
    if (cycle.confirmation != t_confirmation::unknown)
        reply.flag("confirmed", cycle.confirmation == t_confirmation::agreed);
}

void report_cycle(t_bus_reply &reply, const t_cycle_note &cycle)
{
    const bool over = cycle.took_ms > 0;
    reply.number("number", cycle.number);
    reply.number("ago", seconds_since(static_cast<uint32_t>(cycle.begun.sec)));
    if (over)
        reply.number("took_ms", cycle.took_ms);
    reply.text("opener", opener_word(cycle.opener));
    report_asked(reply, cycle);
    report_fates(reply, cycle);
    reply.text("decision", decision_word(cycle.decision));
    if (over)
        report_outcome(reply, cycle);
}

void report_history(t_bus_reply &reply)
{
    t_bus_array array(reply, "cycles");
    const t_cycle_note *cycle;
    for (int age = 0; (cycle = remembered_cycle(age)); age++) {
        t_bus_table table(reply);
        report_cycle(reply, *cycle);
    }
}
