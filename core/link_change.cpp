// SPDX-License-Identifier: MIT
#include "core/link_change.h"

#include "core/background.h"
#include "core/cycle.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

constexpr uint32_t AFTER_THREAD_START_MS = 5;
static_assert(PORT_SETTLE_MS < WAN_DOWN_DELAY_MS); // the first pass finds the port that the cable was moved to
constexpr const char *CHANGE = "wan_detect_process_link_change"; // its parts speak in its name

// Adds the port to the parked ones and gives their number. ERR_NOTHING_DONE when the cycle is over: its end
// empties the list under the same lock, so nothing is left behind for the next cycle.
static int park_silently(t_device *dev, int *parked)
{
    t_spin_guard guard(engine.gate.locks.cache_lock);
    if (!cycle_is_open())
        return ERR_NOTHING_DONE;
    t_device_list_head &cache = engine.possible_wan_dev_list_cache;
    int added = cache.add_silently(dev);
    *parked = cache.count;
    return added;
}

static int park_device(t_device *dev, int *parked)
{
    int result = park_silently(dev, parked);
    if (result == ERR_ALREADY_PRESENT)
        LOG_AS("add_unique_device_inorder_to_list", Info, "dev:%s already in list, Reset its retry count!\n",
               dev->name);
    else if (result == ERR_NO_MEMORY)
        LOG_AS("add_unique_device_inorder_to_list", Error, "malloc new t_device_list for dev:%s failed!\n", dev->name);
    return result;
}

void delay_trigger_thread(t_device *dev, uint32_t settle_ms)
{
    if (sleep_unless_stopped(settle_ms))
        return;
    if (!dev->link_active) {
        LOG(Info, "device %s turned down during %dms delay, skipping add it to possible_wan_dev_list_cache\n",
            dev->name, static_cast<int>(PORT_SETTLE_MS));
        return;
    }
    int parked = 0;
    int result = park_device(dev, &parked);
    if (result == OK)
        LOG(Info, "Add device %s to backup possible wan list(%d devices contained)!\n", dev->name, parked);
    else if (result == ERR_NOTHING_DONE)
        LOG(Info, "skipping add device %s to possible_wan_dev_list_cache due to detect is over!\n", dev->name);
    else
        LOG(Info, "Failed to add device %s to backup possible wan list! might add reapeatly\n", dev->name);
}

void count_link_changes_anew()
{
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        dev->notes.link_changes = 0;
}

static void *run_delay_trigger(void *dev)
{
    delay_trigger_thread(static_cast<t_device *>(dev), PORT_SETTLE_MS);
    leave_background();
    return nullptr;
}

// False when the state was stored already: of several threads that see a change, one acts upon it.
static bool store_link(t_device *dev, bool up)
{
    t_write_guard guard(engine.gate.locks.device_lock);
    if (static_cast<bool>(dev->link_active) == up)
        return false;
    dev->link_active = up;
    dev->notes.link_changes.add(1);
    return true;
}

// True when that is all: the change opens the cycle, puts it off or brings its next pass forward, or means nothing.
static bool wan_change_is_served(const t_device *dev, bool up)
{
    if (!cycle_is_open()) {
        if (up)
            LOG_AS(CHANGE, Debug, "Ignore: Device %s link status change to %s!\n", dev->name, up_or_down(up));
        else
            open_cycle_after_loss();
        return true;
    }
    if (!cycle_is_running()) {
        put_off_first_pass();
        return true;
    }
    if (!up)
        interrupt_cycle();
    return !up;
}

// A cycle is open: the port joins it when its link has settled.
static void park_later(t_device *dev)
{
    if (cycle_is_running())
        LOG_AS(CHANGE, Debug,
               "Noticed dev:%s turned up during detecting! Add it to possible_wan_dev_list_cache after %dms!\n",
               dev->name, static_cast<int>(PORT_SETTLE_MS));
    else
        LOG_AS(CHANGE, Debug,
               "Noticed lan dev:%s turned up during delay! Add it to possible_wan_dev_list_cache after %dms!\n",
               dev->name, static_cast<int>(PORT_SETTLE_MS));
    pthread_t thread;
    int result = start_background_thread(&thread, run_delay_trigger, dev);
    if (result != 0) {
        LOG_AS(CHANGE, Error, "pthread_create pid_delay_trigger_thread failed...ret=%d, continue whatever!\n", result);
    } else if ((result = pthread_detach(thread)) != 0) {
        LOG_AS(CHANGE, Error, "pthread_detach pid_delay_trigger_thread failed...ret=%d, continue whatever!\n", result);
    }
    sleep_ms(AFTER_THREAD_START_MS);
}

static void act_on_change(t_device *dev, bool up)
{
    if (dev == port_model.wan_dev) {
        if (wan_change_is_served(dev, up))
            return;
    } else if (!up || !cycle_is_open()) {
        LOG_AS(CHANGE, Debug, "Ignore: Device %s link status change to %s!\n", dev->name, up_or_down(up));
        return;
    }
    park_later(dev);
}

int wan_detect_process_link_change(t_device *dev, bool up)
{
    if (!port_model.router_mode) {
        LOG(Debug, "wan_detect in ap/repeater mode, ignore the deivce status change!\n");
        return OK;
    }
    if (!store_link(dev, up)) {
        LOG(Debug, "Device %s status not change!\n", dev->name);
        return OK;
    }
    LOG(Info, "Device %s link status change to %s!\n", dev->name, up_or_down(up));
    if (port_model.enable)
        act_on_change(dev, up);
    else
        LOG(Debug, "wan_detect not enable, ignore the deivce status change!\n");
    if (up)
        remove_banned_device_from_list(port_model.dev_hashmap_head, &port_model.banned_list, nullptr, dev);
    if (port_model.wan_port_pool && find_device(port_model.wan_port_pool, dev->name))
        wish_for(t_wish::link_news);
    else
        wish_for(t_wish::fresh_retries); // nobody can be asked there, however often it flaps
    return OK;
}
