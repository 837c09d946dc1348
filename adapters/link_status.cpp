// SPDX-License-Identifier: MIT
// Asking the router's scripts for link states, and reading the JSON that they print.
#include "adapters/link_status.h"

#include <cstdio>
#include <cstring>

#include "adapters/engine_handlers.h"
#include "model/port_model.h"
#include "platform/command.h"
#include "platform/json_object.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

constexpr const char *COMBO_STATE_FORMAT = "/etc/wan_detect/get_combo_state.sh port%d";
constexpr size_t COMMAND_SIZE = 64;

// Stores a boolean member. True when that changed the flag.
bool store_flag(t_flag &flag, json_object *member)
{
    bool wanted = json_object_get_boolean(member) != 0;
    bool changed = (flag != 0) != wanted;
    flag = wanted;
    return changed;
}

// Anything but a string is turned into one first, for which memory may be short.
bool is_text(json_object *member, const char *wanted)
{
    const char *text = json_object_get_string(member);
    return text && strcmp(text, wanted) == 0;
}

// The loss of the WAN port opens the cycle that ports of the same look may join, so it is handed on before them.
bool is_lost(const t_device *now_wan, json_object *states)
{
    json_object *state = json_object_object_get(states, now_wan->name);
    return now_wan->link_active && state && !json_object_get_boolean(state);
}

// Always 1: a link changed.
int hand_on(t_device *dev, bool up)
{
    LOG_AS("update_eth_link_status_using_script", Info,
           "Single shot scanning found %s link change to %s, pull trigger!\n", dev->name, up_or_down(up));
    if (engine_handlers.process_link_change)
        engine_handlers.process_link_change(dev, up);
    return 1;
}

} // namespace

int update_eth_link_status_using_script(t_device *dev_hashmap_head)
{
    char output[PORT_STATE_SIZE + 1] = {};
    if (capture_command(output, PORT_STATE_COMMAND) != OK)
        return 0;
    t_script_json states;
    if (!states.parse(output)) {
        LOG(Error, "Execute command:%s error!\n", PORT_STATE_COMMAND);
        return 0;
    }
    LOG(Debug, "Success update eth link status using script, result:%s\n", output);
    t_device *now_wan = port_model.wan_dev;
    int changed = 0;
    if (now_wan && is_lost(now_wan, states.object))
        changed = hand_on(now_wan, false);
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        json_object *state = json_object_object_get(states.object, dev->name);
        if (!state) {
            LOG(Error, "Invalid device state for:%s! Response:%s\n", dev->name, output);
            continue;
        }
        bool up = json_object_get_boolean(state) != 0;
        if ((dev->link_active != 0) != up)
            changed = hand_on(dev, up);
    }
    return changed;
}

int update_eth_link_status(t_device *dev_hashmap_head)
{
    LOG_ENTER();
    update_eth_link_status_using_script(dev_hashmap_head);
    return 0;
}

int update_combo_device_status(t_device *dev)
{
    char command[COMMAND_SIZE];
    snprintf(command, sizeof command, COMBO_STATE_FORMAT, dev->port_num);
    char output[COMBO_STATE_SIZE + 1] = {};
    if (capture_command(output, command) != OK)
        return 0;
    t_script_json states;
    if (!states.parse(output)) {
        LOG(Error, "Execute command:%s error!\n", command);
        return 0;
    }
    bool changed = false;
    json_object *phy = json_object_object_get(states.object, "phy");
    if (phy)
        changed = store_flag(dev->phy_link, phy);
    else
        LOG(Error, "Invalid phy state! Response:%s\n", output);
    json_object *sfp = json_object_object_get(states.object, "sfp");
    if (sfp)
        changed = store_flag(dev->sfp_link, sfp) || changed;
    else
        LOG(Error, "Invalid sfp state! Response:%s\n", output);
    json_object *serdes = json_object_object_get(states.object, "serdes");
    if (serdes)
        dev->sub_port = is_text(serdes, "sfp") ? SUB_PORT_SFP : SUB_PORT_PHY;
    else
        LOG(Error, "Invalid serdes state! Response:%s\n", output);
    return changed ? 1 : 0;
}
