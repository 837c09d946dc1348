// SPDX-License-Identifier: MIT
#include "adapters/state_events.h"

#include <libubus.h>

#include "adapters/bus_reply.h"
#include "adapters/state_object.h"
#include "adapters/state_report.h"
#include "model/chronicle_words.h"

static void announce(const char *what, t_bus_reply &fields)
{
    fields.notify(&state_object, what);
}

void announce_link(const t_device *dev)
{
    if (!state_object.has_subscribers)
        return;
    t_bus_reply fields;
    fields.text("name", dev->name);
    fields.flag("link", dev->link_active);
    fields.number("link_changes", dev->notes.link_changes);
    announce("link", fields);
}

void announce_cycle(bool begins)
{
    const t_cycle_note *cycle = newest_cycle();
    if (!state_object.has_subscribers || !cycle)
        return;
    t_bus_reply fields;
    fields.number("number", cycle->number);
    fields.text("state", begins ? "begins" : "ends");
    if (begins)
        fields.text("opener", opener_word(cycle->opener));
    else
        fields.text("decision", decision_word(cycle->decision));
    announce("cycle", fields);
}

void announce_verdict()
{
    const t_cycle_note *cycle = newest_cycle();
    if (!state_object.has_subscribers || !cycle)
        return;
    t_bus_reply fields;
    report_cycle(fields, *cycle);
    announce("verdict", fields);
}

void announce_swap(const t_device *dev, int status, int pause_s)
{
    if (!state_object.has_subscribers)
        return;
    t_bus_reply fields;
    fields.text("name", dev->name);
    if (status >= 0)
        fields.number("status", status);
    fields.number("pause", pause_s);
    announce("swap", fields);
}

void announce_ban(const t_device *dev, int32_t seconds)
{
    if (!state_object.has_subscribers)
        return;
    t_bus_reply fields;
    fields.text("name", dev->name);
    fields.number("banned", seconds);
    announce("ban", fields);
}
