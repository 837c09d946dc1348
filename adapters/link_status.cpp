// SPDX-License-Identifier: MIT
// Asking the router's script for the two sides of a combo port, and reading the JSON that it prints.
#include "adapters/link_status.h"

#include <cstdio>
#include <cstring>

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

} // namespace

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
