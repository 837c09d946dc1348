// SPDX-License-Identifier: MIT
// Choosing the ports of a protocol probe and handing them to it.
#include "probes/dispatch.h"

#include "model/gate.h"
#include "model/lists.h"
#include "model/reserved_ports.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_probe.h"
#include "probes/pppoe_probe.h"

namespace {

// The ports of one call. Owns its nodes, never the ports.
struct t_probe_ports {
    t_device_list_head list = {};

    t_probe_ports() = default;
    ~t_probe_ports() { free_device_list(&list.head); }
    t_probe_ports(const t_probe_ports &) = delete;
    t_probe_ports &operator=(const t_probe_ports &) = delete;

    void add(t_device *dev)
    {
        if (add_unique_device_inorder_to_list(&list.head, dev) == OK)
            list.count++;
    }
};

// Every linked port that no LAN host is behind and no table reserves. The lock is gone before anything is sent.
void collect_linked_ports(t_port_model *model, t_probe_ports *ports)
{
    const t_read_guard guard(engine_gate->locks.device_lock);
    for (t_device *dev = model->dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->link_active && !dev->is_brlan_dev && !is_reserved_port(model, dev->name))
            ports->add(dev);
}

} // namespace

int dhcp_detect_for_all_link_device(t_port_model *model)
{
    t_probe_ports ports;
    collect_linked_ports(model, &ports);
    LOG(Debug, "Overall %d devices ready to run dhcp detect\n", ports.list.count);
    if (ports.list.count == 0)
        LOG(Info, "No actual device need detected, skip dhcp detect!\n");
    else if (send_dhcp_discovery_all(&ports.list) == OK)
        LOG(Debug, "Overall %d devices Send dhcp discovery success!\n", ports.list.count);
    else
        LOG(Error, "Error sending dhcp discovery packet\n");
    return OK;
}

int pppoe_detect_for_all_link_device(t_port_model *model)
{
    t_probe_ports ports;
    collect_linked_ports(model, &ports);
    LOG(Debug, "Overall %d devices ready to run pppoe detect\n", ports.list.count);
    if (ports.list.count == 0)
        LOG(Info, "No actual device need detected, skip pppoe detect!\n");
    else if (send_pppoe_discovery_all(&ports.list) == OK)
        LOG(Debug, "Overall %d devices Send pppoe discovery success!\n", ports.list.count);
    else
        LOG(Error, "Error sending pppoe discovery packet\n");
    return OK;
}

int dhcp_detect_for_specify_device(t_device *dev)
{
    if (!dev) {
        LOG(Error, "Null devive specified!\n");
        return ERR_INVALID_INPUT;
    }
    {
        const t_read_guard guard(engine_gate->locks.device_lock);
        if (!dev->link_active) {
            LOG(Info, "dev:%s has no link, skip the detect!\n", dev->name);
            return DEVICE_WITHOUT_LINK;
        }
        if (dev->is_brlan_dev)
            LOG(Debug, "dev:%s has a lan device, cotinue the detect as device has been specified!\n", dev->name);
    }
    t_probe_ports ports;
    ports.add(dev);
    LOG(Debug, "device:%s ready to run dhcp detect\n", dev->name);
    if (send_dhcp_discovery_all(&ports.list) != OK)
        LOG(Error, "Error sending dhcp discovery packet in dev:%s\n", dev->name);
    return OK;
}

int pppoe_detect_for_specify_device(t_device *dev)
{
    if (!dev) {
        LOG(Error, "Null devive specified!\n");
        return ERR_INVALID_INPUT;
    }
    {
        const t_read_guard guard(engine_gate->locks.device_lock);
        if (!dev->link_active) {
            LOG(Info, "dev:%s has no link, skip the detect!\n", dev->name);
            return DEVICE_WITHOUT_LINK;
        }
        if (dev->is_brlan_dev)
            LOG(Debug, "dev:%s has a lan device, cotinue the detect as device has been specified!\n", dev->name);
    }
    t_probe_ports ports;
    ports.add(dev);
    LOG(Debug, "device:%s ready to run pppoe detect\n", dev->name);
    if (send_pppoe_discovery_all(&ports.list) != OK)
        LOG(Error, "Error sending pppoe discovery packet in dev:%s\n", dev->name);
    else
        LOG(Debug, "device:%s Send pppoe discovery success!\n", dev->name);
    return OK;
}
