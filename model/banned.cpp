// SPDX-License-Identifier: MIT
// The banned list and its ageing. Lines are logged, and nodes of bans that ran out freed, after the lock is released:
// nobody should spin while a console is written.
#include "model/banned.h"

#include <algorithm>

#include "model/gate.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"

constexpr t_time_stamp NEVER = {0, INT32_MAX};

namespace {

enum class t_ban_change { created, made_infinite, extended, kept, no_memory };

} // namespace

static bool is_never(t_time_stamp end)
{
    return end.sec == NEVER.sec && end.usec == NEVER.usec;
}

static bool is_infinite(const t_device_list &node)
{
    return is_never(node.aging_time);
}

// A ban that would outlast the 32-bit clock ends with it.
static t_time_stamp end_after(t_time_stamp now, int32_t seconds)
{
    if (seconds == BAN_FOREVER)
        return NEVER;
    return {seconds > INT32_MAX - now.sec ? INT32_MAX : now.sec + seconds, now.usec};
}

// A 32-bit product by design: long bans compare by what is left of it.
static int32_t wrapped_microseconds(int32_t seconds)
{
    return static_cast<int32_t>(static_cast<uint32_t>(seconds) * static_cast<uint32_t>(MICROSECONDS_PER_SECOND));
}

// Under the banned lock.
static t_ban_change renew_ban(t_device_list *node, int32_t seconds, t_time_stamp now)
{
    if (seconds == BAN_FOREVER) {
        node->aging_time = NEVER;
        return t_ban_change::made_infinite;
    }
    if (time_stamp_diff_us(node->aging_time, now) >= wrapped_microseconds(seconds))
        return t_ban_change::kept;
    node->aging_time = end_after(now, seconds);
    return t_ban_change::extended;
}

static t_ban_change ban(t_device_list_head *banned_list, t_device *device, int32_t seconds)
{
    t_spin_guard banning(engine_gate->locks.banned_lock);
    const t_time_stamp now = get_time_stamp();
    if (t_device_list *node = banned_list->find(device))
        return renew_ban(node, seconds, now);
    t_device_list *node = banned_list->insert(&banned_list->head, device);
    if (!node)
        return t_ban_change::no_memory;
    node->aging_time = end_after(now, seconds);
    return t_ban_change::created;
}

static bool unlink_ban(t_device_list_head *banned_list, const t_device *device, bool infinite_only)
{
    t_spin_guard banning(engine_gate->locks.banned_lock);
    t_device_list *node = banned_list->find(device);
    if (!node || (infinite_only && !is_infinite(*node)))
        return false;
    banned_list->drop(node);
    return true;
}

// What both ways of lifting have in common: their result, and in `*device` the port, null when it is unknown.
static int lift_ban(t_device *dev_hashmap_head, t_device_list_head *banned_list, const char *name, t_device **device,
                    bool infinite_only)
{
    if (!dev_hashmap_head || !banned_list || (!name && !*device))
        return ERR_INVALID_INPUT;
    if (!*device)
        *device = find_device(dev_hashmap_head, name);
    return *device && unlink_ban(banned_list, *device, infinite_only) ? OK : ERR_NOTHING_DONE;
}

// Moves the bans that ran out to `expired`, in list order.
static void take_expired_bans(t_device_list_head *banned_list, t_device_list_head *expired)
{
    t_spin_guard banning(engine_gate->locks.banned_lock);
    const t_time_stamp now = get_time_stamp();
    t_device_list *last = &expired->head;
    for (t_device_list *node = banned_list->head.next, *next; node; node = next) {
        next = node->next;
        if (is_infinite(*node) || time_stamp_diff_us(node->aging_time, now) >= 1)
            continue;
        banned_list->unlink(node);
        expired->link(last, node);
        last = node;
    }
}

void update_banned_device_list(t_device_list_head *banned_list)
{
    if (!banned_list)
        return;
    t_device_list_head expired = {};
    take_expired_bans(banned_list, &expired);
    for (const t_device_list *node = expired.head.next; node; node = node->next)
        LOG(Info, "banned dev:%s out of time, remove it from banned list, now allow it to be wan!\n",
            device_name(node->dev));
    expired.clear();
}

int add_unique_banned_device_to_list(t_device *dev_hashmap_head, t_device_list_head *banned_list, const char *name,
                                     int32_t seconds)
{
    if (!dev_hashmap_head || !banned_list || !name || seconds < BAN_FOREVER)
        return ERR_INVALID_INPUT;
    if (seconds == 0)
        return remove_banned_device_from_list(dev_hashmap_head, banned_list, name, nullptr);
    t_device *device = find_device(dev_hashmap_head, name);
    if (!device) {
        LOG(Error, "Device %s doesn't existed!\n", name);
        return ERR_NOTHING_DONE;
    }
    switch (ban(banned_list, device, seconds)) {
    case t_ban_change::made_infinite:
        LOG(Info, "dev:%s already in list, Update its aging_time to infinite until next time the device link up!\n",
            device->name);
        return ERR_ALREADY_PRESENT;
    case t_ban_change::extended:
        LOG(Info, "dev:%s already in list, Update its aging_time!\n", device->name);
        return ERR_ALREADY_PRESENT;
    case t_ban_change::kept:
        LOG(Info, "dev:%s already in list, Remain aging_time unchanged!\n", device->name);
        return ERR_ALREADY_PRESENT;
    case t_ban_change::no_memory:
        LOG(Error, "malloc new t_device_list for dev:%s failed!\n", device->name);
        return ERR_NO_MEMORY;
    case t_ban_change::created:
        break;
    }
    LOG(Info, "dev:%s is banned to act as wan now for %ds!\n", device->name, seconds);
    return OK;
}

int remove_banned_device_from_list(t_device *dev_hashmap_head, t_device_list_head *banned_list, const char *name,
                                   t_device *device)
{
    const int result = lift_ban(dev_hashmap_head, banned_list, name, &device, false);
    if (result == OK)
        LOG(Debug, "Success remove dev:%s from banned list!\n", device->name);
    else if (result == ERR_NOTHING_DONE && !device)
        LOG(Error, "Device %s doesn't existed!\n", name);
    return result;
}

int remove_infinte_banned_device_from_list(t_device *dev_hashmap_head, t_device_list_head *banned_list,
                                           const char *name, t_device *device)
{
    const int result = lift_ban(dev_hashmap_head, banned_list, name, &device, true);
    if (result == OK)
        LOG(Debug, "Success remove infinte banned dev:%s from banned list!\n", device->name);
    else if (result == ERR_NOTHING_DONE && !device)
        LOG(Error, "Device %s doesn't existed!\n", name);
    return result;
}

bool is_banned_device(t_device_list_head *banned_list, const t_device *device)
{
    if (!banned_list)
        return false;
    t_spin_guard banning(engine_gate->locks.banned_lock);
    return check_device_in_list(&banned_list->head, device);
}

// Its end, zero-filled for a port that is free.
static t_time_stamp ban_end(t_device_list_head *banned_list, const t_device *device)
{
    t_spin_guard banning(engine_gate->locks.banned_lock);
    const t_device_list *node = banned_list->find(device);
    return node ? node->aging_time : t_time_stamp{};
}

uint32_t ban_end_s(t_device_list_head *banned_list, const t_device *device)
{
    const t_time_stamp end = ban_end(banned_list, device);
    if (is_never(end))
        return INT32_MAX;
    return time_stamp_diff_us(end, get_time_stamp()) > 0 ? static_cast<uint32_t>(end.sec) : 0;
}

int32_t ban_seconds_left(t_device_list_head *banned_list, const t_device *device)
{
    const t_time_stamp end = ban_end(banned_list, device);
    if (is_never(end))
        return BAN_FOREVER;
    const int64_t left_us = std::max<int64_t>(time_stamp_diff_us(end, get_time_stamp()), 0);
    return static_cast<int32_t>((left_us + MICROSECONDS_PER_SECOND - 1) / MICROSECONDS_PER_SECOND);
}
