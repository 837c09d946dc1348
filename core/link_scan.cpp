// SPDX-License-Identifier: MIT
#include "core/link_scan.h"

#include "adapters/link_status.h"
#include "adapters/wan_switch.h"
#include "core/background.h"
#include "core/link_change.h"
#include "model/gate.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/command.h"
#include "platform/json_object.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

// The current WAN port first: its loss opens the cycle that ports of the same scan may join. Returns how many there
// are.
static size_t scan_order(t_device *now_wan, t_device *(&order)[MAX_DEVICES])
{
    size_t count = 0;
    if (now_wan)
        order[count++] = now_wan;
    for (t_device *dev = port_model.dev_hashmap_head; dev && count < MAX_DEVICES;
         dev = static_cast<t_device *>(dev->hh.next))
        if (dev != now_wan)
            order[count++] = dev;
    return count;
}

uint32_t update_eth_link_status_trigger()
{
    char response[PORT_STATE_SIZE + 1] = "";
    t_script_json states;
    if (!port_model.enable || !port_model.router_mode) {
        LOG(Debug, "Skip update eth link status due to wan detect switch off!\n");
    } else {
        LOG(Debug, "Entering function: update_eth_link_status_trigger!\n");
        if (capture_command(response, PORT_STATE_COMMAND) == OK) {
            if (!states.parse(response))
                LOG(Error, "Execute command:%s error!\n", PORT_STATE_COMMAND);
        }
    }
    if (states.is_json) {
        LOG(Debug, "Success Cyclic scanning eth link status using script, result:%s\n", response);
        t_device *now_wan = port_model.wan_dev;
        if (!now_wan)
            LOG(Error, "Invalid device state for:%s! Response:%s\n", device_name(now_wan), response);
        t_device *order[MAX_DEVICES];
        size_t count = scan_order(now_wan, order);
        for (size_t i = 0; i < count; i++) {
            t_device *dev = order[i];
            json_object *state = json_object_object_get(states.object, dev->name);
            if (!state) {
                LOG(Error, "Invalid device state for:%s! Response:%s\n", dev->name, response);
                continue;
            }
            bool up = json_object_get_boolean(state) != 0;
            if (up == static_cast<bool>(dev->link_active))
                continue;
            LOG(Info, "Cyclic scanning found %s link change to %s, pull trigger!\n", dev->name, up_or_down(up));
            wan_detect_process_link_change(dev, up);
        }
    }

    t_mutex_guard guard(engine_gate->locks.link_block_lock);
    uint32_t pause_seconds = SCAN_INTERVAL_SECONDS;
    if (engine_gate->link_trigger_blocked) {
        LOG(Debug, "Block update eth link for %ds due to success switch wan!\n",
            static_cast<int>(SWITCH_BLOCK_SECONDS));
        pause_seconds = SWITCH_BLOCK_SECONDS;
    }
    engine_gate->link_trigger_blocked = 0;
    return pause_seconds;
}

void *link_scan_thread(void *)
{
    while (!sleep_unless_stopped(update_eth_link_status_trigger() * MILLISECONDS_PER_SECOND))
        ;
    wait_for_the_end();
}
