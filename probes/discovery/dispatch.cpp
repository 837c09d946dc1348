// SPDX-License-Identifier: MIT
// Choosing the ports of a protocol probe and handing them to it.
#include "probes/discovery/dispatch.h"

#include "model/gate.h"
#include "model/lists.h"
#include "model/reserved_ports.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"

#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the descriptions' texts: t_text has looked at them
#pragma GCC diagnostic ignored "-Wformat-security"

// Every linked port that no LAN host is behind and no table reserves. The lock is gone before anything is sent.
static void collect_linked_ports(t_port_model *model, t_device_list_head *ports)
{
    const t_read_guard guard(engine_gate->locks.device_lock);
    for (t_device *dev = model->dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->link_active && !dev->is_brlan_dev && !is_reserved_port(model, dev->name))
            ports->add(dev);
}

static int ask_linked_ports(const t_discovery &kind, t_port_model *model)
{
    const char *const speaker = kind.speakers.ask_linked;
    t_device_list_head ports = {};
    collect_linked_ports(model, &ports);
    LOG_AS(speaker, Debug, kind.texts.ports_ready.format, ports.count);
    if (ports.count == 0)
        LOG_AS(speaker, Info, kind.texts.no_ports.format);
    else if (kind.send_all(&ports) == OK)
        LOG_AS(speaker, Debug, kind.texts.ports_asked.format, ports.count);
    else
        LOG_AS(speaker, Error, kind.texts.ports_not_asked.format);
    ports.clear();
    return OK;
}

static bool has_link(const t_discovery &kind, const t_device &dev)
{
    const t_read_guard guard(engine_gate->locks.device_lock);
    if (!dev.link_active)
        LOG_AS(kind.speakers.ask_one, Info, "dev:%s has no link, skip the detect!\n", dev.name);
    else if (dev.is_brlan_dev)
        LOG_AS(kind.speakers.ask_one, Debug,
               "dev:%s has a lan device, cotinue the detect as device has been specified!\n", dev.name);
    return dev.link_active;
}

static int ask_one_port(const t_discovery &kind, t_device *dev)
{
    if (!dev) {
        LOG_AS(kind.speakers.ask_one, Error, "Null devive specified!\n");
        return ERR_INVALID_INPUT;
    }
    if (!has_link(kind, *dev))
        return DEVICE_WITHOUT_LINK;
    t_device_list_head ports = {};
    ports.add(dev);
    LOG_AS(kind.speakers.ask_one, Debug, kind.texts.port_ready.format, dev->name);
    if (kind.send_all(&ports) != OK)
        LOG_AS(kind.speakers.ask_one, Error, kind.texts.port_not_asked.format, dev->name);
    else if (kind.texts.port_asked.format)
        LOG_AS(kind.speakers.ask_one, Debug, kind.texts.port_asked.format, dev->name);
    ports.clear();
    return OK;
}

int dhcp_detect_for_all_link_device(t_port_model *model)
{
    return ask_linked_ports(dhcp_discovery, model);
}

int pppoe_detect_for_all_link_device(t_port_model *model)
{
    return ask_linked_ports(pppoe_discovery, model);
}

int dhcp_detect_for_specify_device(t_device *dev)
{
    return ask_one_port(dhcp_discovery, dev);
}

int pppoe_detect_for_specify_device(t_device *dev)
{
    return ask_one_port(pppoe_discovery, dev);
}
