// SPDX-License-Identifier: MIT
#include "core/combo_switch.h"

#include "adapters/link_status.h"
#include "adapters/wan_switch.h"
#include "core/background.h"
#include "core/wishes.h"
#include "model/current_wan.h"
#include "model/dumps.h"
#include "model/gate.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/uci_access.h"

constexpr const char *PASS = "wan_combo_auto_switch"; // its parts speak in its name

// The side that a combo port ought to use; the one in use when neither has a link.
static uint8_t wanted_side(const t_device *dev, bool sfp_first)
{
    if (!dev->phy_link && !dev->sfp_link)
        return dev->sub_port;
    if (sfp_first)
        return dev->sfp_link ? SUB_PORT_SFP : SUB_PORT_PHY;
    return dev->phy_link ? SUB_PORT_PHY : SUB_PORT_SFP;
}

static void keep_on_wanted_side(t_device *dev, bool sfp_first)
{
    update_combo_device_status(dev);
    if (wanted_side(dev, sfp_first) != dev->sub_port)
        toggle_combo_state(dev);
}

static void look_at_wan_port(bool sfp_first)
{
    char name[NAME_SIZE];
    if (get_wan_device_name(name, sizeof name) != OK) {
        LOG_AS(PASS, Error, "get_wan_device_name failed!\n");
        return;
    }
    t_device *dev = find_device(port_model.dev_hashmap_head, name);
    const t_device *now_wan = port_model.wan_dev;
    const bool has_moved = dev ? dev != now_wan || port_model.role_is_away : now_wan && !port_model.role_is_away;
    if (has_moved)
        wish_for(t_wish::role_look);
    if (!dev) {
        LOG_AS(PASS, Error, "Can't find the device:%s in hash list!\n", name);
        return;
    }
    if (dev->is_combo)
        keep_on_wanted_side(dev, sfp_first);
    else
        LOG_AS(PASS, Debug, "Device %s is not combo device, ignore auto combo state change!\n", name);
}

uint32_t wan_combo_auto_switch(t_combo_state *state)
{
    bool active = port_model.enable && port_model.router_mode;
    if (active && state->pass % PREFERENCE_EVERY_PASSES == 0) {
        char preference[UCI_VALUE_SIZE] = "phy";
        if (_uci_get_value("network.auto_wan_detect.wan_combo_first_priority", preference) != OK)
            LOG(Error, "Unable to get network.auto_wan_detect.wan_combo_first_priority, treat it as phy!\n");
        LOG(Debug, "Success get network.auto_wan_detect.wan_combo_first_priority=%s\n", preference);
        state->sfp_first = has_prefix(preference, "sfp");
        if (!state->sfp_first && !has_prefix(preference, "phy"))
            LOG(Error,
                "network.auto_wan_detect.wan_combo_first_priority only support phy/sfp, %s not supported! treat it as "
                "phy\n",
                preference);
        dump_all_device(port_model.dev_hashmap_head);
    }
    if (active && state->pass % DECISION_EVERY_PASSES == 0)
        look_at_wan_port(state->sfp_first);
    state->pass = (state->pass + 1) % PASS_WRAP;

    t_mutex_guard guard(engine_gate->locks.combo_block_lock);
    uint32_t pause_seconds = COMBO_INTERVAL_SECONDS;
    if (engine_gate->combo_switch_blocked) {
        LOG(Debug, "Block wan_combo_auto_switch for %ds due to success switch wan!\n",
            static_cast<int>(SWITCH_BLOCK_SECONDS));
        pause_seconds = SWITCH_BLOCK_SECONDS;
    }
    engine_gate->combo_switch_blocked = 0;
    return pause_seconds;
}

void *wan_combo_switch_thread(void *)
{
    t_combo_state state = {};
    while (!sleep_unless_stopped(wan_combo_auto_switch(&state) * MILLISECONDS_PER_SECOND))
        ;
    wait_for_the_end();
}
