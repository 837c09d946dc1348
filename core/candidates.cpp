// SPDX-License-Identifier: MIT
#include "core/candidates.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "adapters/wan_switch.h"
#include "core/engine.h"
#include "model/banned.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "model/reserved_ports.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/lan/lan_hosts.h"

constexpr const char *PASS = "uloop_start_wan_detect"; // which gathers them here
constexpr const char *NAME_SEPARATOR = "\u3001";

t_fate bar_against(const t_device *dev)
{
    if (!dev->link_active)
        return t_fate::no_link;
    if (!port_model.wan_port_pool || !find_device(port_model.wan_port_pool, dev->name))
        return t_fate::not_in_pool;
    if (is_reserved_port(&port_model, dev->name))
        return t_fate::reserved;
    return is_banned_device(&port_model.banned_list, dev) ? t_fate::banned : t_fate::not_looked_at;
}

// A port may be WAN by configuration and has a link. The device lock is held.
static bool may_be_wan(const t_device *dev)
{
    return bar_against(dev) == t_fate::not_looked_at;
}

void refresh_reserved_ports()
{
    update_lan_agg_port(port_model.dev_hashmap_head, &port_model.lan_agg[0]);
    update_lan_gaming_port(&port_model.gaming);
}

void generate_possible_wan_dev_list(bool beside_others)
{
    LOG_ENTER();
    t_read_guard guard(engine.gate.locks.device_lock);
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        if (!may_be_wan(dev) || (beside_others && engine.possible_wan_dev_list.find(dev)))
            continue;
        if (engine.possible_wan_dev_list.add(dev) == OK)
            LOG(Debug, "Add device %s to possible wan list!\n", dev->name);
        else
            LOG(Info, "Failed to add device %s to possible wan list!\n", dev->name);
    }
}

static void adopt_parked_devices()
{
    t_device_list_head adopted = {};
    {
        t_spin_guard guard(engine.gate.locks.cache_lock);
        std::swap(adopted, engine.possible_wan_dev_list_cache);
    }
    for (const t_device_list *node = adopted.head.next; node; node = node->next)
        node->dev->has_joined = true;
    merge_two_list(&engine.possible_wan_dev_list, &adopted); // tells of each, so without the lock
}

// The WAN port if it was not listed before, else null.
static const t_device *list_current_wan()
{
    t_device *now_wan = port_model.wan_dev;
    const int added = engine.possible_wan_dev_list.add(now_wan);
    if (added == OK)
        LOG_AS(PASS, Debug, "Always add now wan:%s to detect list!\n", now_wan->name);
    else if (added == ERR_ALREADY_PRESENT)
        LOG_AS(PASS, Debug, "now wan:%s already in detect list!\n", now_wan->name);
    else if (!now_wan)
        LOG_AS(PASS, Error, "Can't find the device:%s in hash list!\n", device_name(now_wan));
    return added == OK ? now_wan : nullptr;
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

static void audit_candidates()
{
    t_device_list_head &list = engine.possible_wan_dev_list;
    for (int voids = list.drop_if([](const t_device_list &node) { return !node.dev; }); voids > 0; voids--)
        LOG_AS(PASS, Error, "Impossible to happen! Check code carefully! remove this node manully!\n");
    char names[JOINED_NAMES_SIZE];
    const int found = join_candidate_names(names);
    if (found != list.count) {
        LOG_AS(PASS, Error,
               "Impossible to happen! Check code carefully! traverse found %d device, But the original recorded is %d, "
               "Fix recorded!\n",
               found, list.count);
        list.count = static_cast<uint8_t>(found);
    }
    LOG_AS(PASS, Info, "Start to detect in %d device(s):%s\n", list.count, names);
}

const t_device *gather_candidates()
{
    adopt_parked_devices();
    const t_device *listed_as_wan = list_current_wan();
    audit_candidates();
    return listed_as_wan;
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

static void remove_impossble_wan_dev_from_list()
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

void filter_candidates()
{
    if (engine.possible_wan_dev_list.count == 0)
        return;
    refresh_reserved_ports();
    update_banned_device_list(&port_model.banned_list);
    update_brlan_dev(&port_model);
    remove_impossble_wan_dev_from_list();
    remove_brlan_dev_from_list();
}

void clear_dev_list_volatile_attribute(t_device_list_head *list)
{
    LOG_ENTER();
    for (t_device_list *node = list->head.next; node; node = node->next) {
        node->dev->is_brlan_dev = 0;
        node->dev->result = {};
    }
}
