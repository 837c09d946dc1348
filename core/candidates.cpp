// SPDX-License-Identifier: MIT
#include "core/candidates.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "adapters/fake_wan_port.h"
#include "core/engine.h"
#include "model/banned.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "model/reserved_ports.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"

constexpr const char *NAME_SEPARATOR = "\u3001";

// A port may be WAN by configuration and has a link. The device lock is held.
static bool may_be_wan(const t_device *dev)
{
    return !is_reserved_port(&port_model, dev->name) && port_model.wan_port_pool &&
           find_device(port_model.wan_port_pool, dev->name) && !is_banned_device(&port_model.banned_list, dev) &&
           dev->link_active;
}

void generate_possible_wan_dev_list()
{
    LOG_ENTER();
    t_read_guard guard(engine.gate.locks.device_lock);
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        if (!may_be_wan(dev))
            continue;
        if (engine.possible_wan_dev_list.add(dev) == OK)
            LOG(Debug, "Add device %s to possible wan list!\n", dev->name);
        else
            LOG(Info, "Failed to add device %s to possible wan list!\n", dev->name);
    }
}

void adopt_parked_devices()
{
    t_device_list_head adopted = {};
    {
        t_spin_guard guard(engine.gate.locks.cache_lock);
        std::swap(adopted, engine.possible_wan_dev_list_cache);
    }
    merge_two_list(&engine.possible_wan_dev_list, &adopted); // tells of each, so without the lock
}

int drop_void_candidates()
{
    return engine.possible_wan_dev_list.drop_if([](const t_device_list &node) { return !node.dev; });
}

int join_candidate_names(char (&names)[JOINED_NAMES_SIZE])
{
    int found = 0;
    size_t used = 0;
    names[0] = '\0';
    for (const t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next) {
        found++;
        size_t wanted = strlen(node->dev->name) + strlen(NAME_SEPARATOR);
        if (used + wanted >= sizeof names)
            continue;
        snprintf(names + used, sizeof names - used, "%s%s", node->dev->name, NAME_SEPARATOR);
        used += wanted;
    }
    return found;
}

void t_leaving_fake_wan::note(const t_device *leaver)
{
    if (port_model.fake_wan && strcmp(port_model.fake_wan->name, leaver->name) == 0)
        dev_ = leaver;
}

bool t_leaving_fake_wan::remove(bool need_link) const
{
    return dev_ && give_up_fake_wan_if_match(dev_, need_link);
}

void remove_impossble_wan_dev_from_list()
{
    t_leaving_fake_wan fake_wan;
    {
        t_read_guard guard(engine.gate.locks.device_lock);
        engine.possible_wan_dev_list.drop_if([&fake_wan](const t_device_list &node) {
            if (may_be_wan(node.dev))
                return false;
            LOG_AS("remove_impossble_wan_dev_from_list", Debug,
                   "Remove %s out of pssible wan list due to link down or not allow to use as wan!\n", node.dev->name);
            fake_wan.note(node.dev);
            return true;
        });
    }
    fake_wan.remove(true);
}

void remove_brlan_dev_from_list()
{
    t_leaving_fake_wan fake_wan;
    {
        t_read_guard guard(engine.gate.locks.device_lock);
        engine.possible_wan_dev_list.drop_if([&fake_wan](const t_device_list &node) {
            if (node.dev->link_active && !node.dev->is_brlan_dev)
                return false;
            LOG_AS("remove_brlan_dev_from_list", Debug,
                   "Remove %s out of pssible wan list due to link down or has br-lan device(s)!\n", node.dev->name);
            fake_wan.note(node.dev);
            return true;
        });
    }
    if (fake_wan.remove(true))
        LOG(Error, "Impossibe! fake_wan has a br-lan device?\n");
}

void clear_dev_list_volatile_attribute(t_device_list_head *list)
{
    LOG_ENTER();
    for (t_device_list *node = list->head.next; node; node = node->next) {
        node->dev->is_brlan_dev = 0;
        node->dev->result = {};
    }
}
