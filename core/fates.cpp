// SPDX-License-Identifier: MIT
#include "core/fates.h"

#include "core/candidates.h"
#include "core/engine.h"
#include "model/banned.h"
#include "model/port_model.h"

static t_device *next_port(const t_device *dev)
{
    return static_cast<t_device *>(dev->hh.next);
}

static bool is_listed(const t_device *dev)
{
    return engine.possible_wan_dev_list.find(dev);
}

// What asking brought stays, until the port is asked again.
static bool is_finding(t_fate fate)
{
    return fate >= t_fate::asked;
}

static t_fate fate_of_free_port(const t_device *dev, bool wan_works)
{
    if (dev->is_brlan_dev)
        return t_fate::lan_hosts;
    const t_fate before = noted_fate(dev);
    if (is_finding(before))
        return before;
    return wan_works || is_listed(dev) ? t_fate::not_looked_at : t_fate::not_listed_yet;
}

static void note_other_ports(bool wan_works)
{
    t_read_guard guard(engine.gate.locks.device_lock);
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = next_port(dev)) {
        const t_fate bar = bar_against(dev);
        if (dev != port_model.wan_dev)
            note_fate(dev, bar == t_fate::not_looked_at ? fate_of_free_port(dev, wan_works) : bar);
    }
}

static t_fate fate_of_lost_wan_port(const t_device *dev)
{
    if (!dev->link_active)
        return t_fate::no_link;
    return is_banned_device(&port_model.banned_list, dev) ? t_fate::banned : t_fate::not_connected;
}

void note_wan_port(bool works)
{
    if (const t_device *dev = port_model.wan_dev)
        note_fate(dev, works ? t_fate::works : fate_of_lost_wan_port(dev));
    if (works)
        note_other_ports(true);
}

void note_ports_left_out()
{
    note_other_ports(false);
}

void note_candidates_asked()
{
    for (const t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next)
        note_fate(node->dev, t_fate::asked);
}

void note_candidates_lost(t_fate fate)
{
    for (const t_device *dev = port_model.dev_hashmap_head; dev; dev = next_port(dev))
        if (noted_fate(dev) == t_fate::asked && !is_listed(dev))
            note_fate(dev, fate);
}

void note_winner(const t_device *winner, t_decision how)
{
    const t_fate beaten = how == t_decision::name_server ? t_fate::no_name_server : t_fate::lower_priority;
    for (const t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next)
        note_fate(node->dev, beaten);
    note_fate(winner, t_fate::won);
}
