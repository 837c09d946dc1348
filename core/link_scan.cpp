// SPDX-License-Identifier: MIT
#include "core/link_scan.h"

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

namespace {

enum class t_scan : uint8_t { cyclic, single_shot };

// Both speak in the names of their functions, as their parts do.
constexpr const char *CYCLIC = "update_eth_link_status_trigger";
constexpr const char *SINGLE_SHOT = "update_eth_link_status_using_script";

// What the port-state script printed when it was asked last.
struct t_port_states {
    t_scan scan;
    char response[PORT_STATE_SIZE + 1];
    t_script_json json;
};

const char *speaker_of(t_scan scan)
{
    return scan == t_scan::cyclic ? CYCLIC : SINGLE_SHOT;
}

// False when there is nothing to look at.
bool ask_script(t_port_states *states)
{
    if (capture_command(states->response, PORT_STATE_COMMAND) != OK)
        return false;
    if (!states->json.parse(states->response))
        LOG_AS(speaker_of(states->scan), Error, "Execute command:%s error!\n", PORT_STATE_COMMAND);
    return states->json.is_json;
}

void tell_change(t_scan scan, const char *name, bool up)
{
    if (scan == t_scan::cyclic)
        LOG_AS(CYCLIC, Info, "Cyclic scanning found %s link change to %s, pull trigger!\n", name, up_or_down(up));
    else
        LOG_AS(SINGLE_SHOT, Info, "Single shot scanning found %s link change to %s, pull trigger!\n", name,
               up_or_down(up));
}

// True when the link changed.
bool look_at_port(const t_port_states &states, t_device *dev)
{
    json_object *state = json_object_object_get(states.json.object, dev->name);
    if (!state) {
        LOG_AS(speaker_of(states.scan), Error, "Invalid device state for:%s! Response:%s\n", dev->name,
               states.response);
        return false;
    }
    const bool up = json_object_get_boolean(state) != 0;
    if (up == static_cast<bool>(dev->link_active))
        return false;
    tell_change(states.scan, dev->name, up);
    wan_detect_process_link_change(dev, up);
    return true;
}

// The loss of the WAN port opens the cycle that ports of the same scan may join, so that one is looked at first. True
// when a link changed.
bool look_at_ports(const t_port_states &states, t_device *dev_hashmap_head, t_device *first)
{
    bool changed = first && look_at_port(states, first);
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev != first)
            changed = look_at_port(states, dev) || changed;
    return changed;
}

bool is_lost(const t_port_states &states, const t_device *dev)
{
    json_object *state = json_object_object_get(states.json.object, dev->name);
    return dev->link_active && state && !json_object_get_boolean(state);
}

} // namespace

int update_eth_link_status_using_script(t_device *dev_hashmap_head)
{
    t_port_states states = {t_scan::single_shot, "", {}};
    if (!ask_script(&states))
        return 0;
    LOG(Debug, "Success update eth link status using script, result:%s\n", states.response);
    t_device *now_wan = port_model.wan_dev;
    t_device *first = now_wan && is_lost(states, now_wan) ? now_wan : nullptr;
    return look_at_ports(states, dev_hashmap_head, first) ? 1 : 0;
}

int update_eth_link_status(t_device *dev_hashmap_head)
{
    LOG_ENTER();
    update_eth_link_status_using_script(dev_hashmap_head);
    return 0;
}

static void scan_links()
{
    t_port_states states = {t_scan::cyclic, "", {}};
    if (!ask_script(&states))
        return;
    LOG_AS(CYCLIC, Debug, "Success Cyclic scanning eth link status using script, result:%s\n", states.response);
    t_device *now_wan = port_model.wan_dev;
    if (!now_wan)
        LOG_AS(CYCLIC, Error, "Invalid device state for:%s! Response:%s\n", device_name(now_wan), states.response);
    look_at_ports(states, port_model.dev_hashmap_head, now_wan);
}

uint32_t update_eth_link_status_trigger()
{
    if (!port_model.enable || !port_model.router_mode) {
        LOG(Debug, "Skip update eth link status due to wan detect switch off!\n");
    } else {
        LOG(Debug, "Entering function: update_eth_link_status_trigger!\n");
        scan_links();
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
