// SPDX-License-Identifier: MIT
// The router's swap command, run while both background threads are kept out, and the fake WAN port, which gives way to
// the real one.
#include "adapters/wan_switch.h"

#include <cstdio>
#include <cstring>
#include <sys/wait.h>

#include "adapters/engine_handlers.h"
#include "adapters/link_status.h"
#include "adapters/state_events.h"
#include "model/chronicle.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/gate.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

constexpr size_t COMMAND_SIZE = 64;
constexpr uint32_t AFTER_COMMAND_MS = 1;

const char *other_side_name(uint8_t sub_port)
{
    return phy_or_sfp(sub_port == SUB_PORT_SFP);
}

// Both block locks are held.
void block_both_threads()
{
    engine_gate->link_trigger_blocked = 1;
    engine_gate->combo_switch_blocked = 1;
}

// Both block locks are held. The port was looked at before they were free: a switch that held them has moved the role
// since, or somebody else has, and the command, which makes the port the WAN port as well, would give it back. Where
// the role cannot be read nobody knows.
bool toggle_is_void(const t_device *dev)
{
    return engine_gate->combo_switch_blocked || !port_model.enable || !wan_role_is_at(dev->name);
}

// The role is at another port than when it could be read last, and nobody has judged that; or at none of ours.
bool was_moved_from_known_port(const char *current)
{
    return port_model.wan_dev &&
           (port_model.role_is_away || strncmp(current, port_model.wan_dev->name, NAME_SIZE) != 0);
}

// -1 for a command that was not started, or did not end by itself.
int exit_status_of(int status)
{
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

void toggle_combo_state(t_device *dev)
{
    if (!dev || dev->name[0] == '\0') {
        LOG(Error, "Invalid dev!\n");
        return;
    }
    if (!dev->is_combo) {
        LOG(Error, "device %s not a combo device!\n", dev->name);
        return;
    }
    {
        t_mutex_guard link_guard(engine_gate->locks.link_block_lock);
        t_mutex_guard combo_guard(engine_gate->locks.combo_block_lock);
        if (toggle_is_void(dev)) {
            LOG(Info, "Device %s keeps its side, as it may not be the wan port any more!\n", dev->name);
            return;
        }
        uint8_t side = dev->sub_port;
        const char *old_side = sub_port_word(side);
        const char *new_side = other_side_name(side);
        char command[COMMAND_SIZE];
        snprintf(command, sizeof command, "network_lanwan_swap set port%d %s", dev->port_num, new_side);
        LOG(Debug, "wan_detect:Switching wan dev to %s, sub_port:%s execute:%s!\n", dev->name, new_side, command);
        run_command(command);
        LOG(Notice, "Toggle combo %s state, phy %s, sfp %s, serdes was using %s, success switch it to %s!\n", dev->name,
            up_or_down(dev->phy_link), up_or_down(dev->sfp_link), old_side, new_side);
        block_both_threads();
        LOG(Debug, "toggle_combo_state:success switch combo! Block update eth link & combo switch for %ds!\n",
            static_cast<int>(SWITCH_BLOCK_SECONDS));
        sleep_ms(AFTER_COMMAND_MS);
    }
    update_combo_device_status(dev);
}

void switch_wan_to_dev(t_device *dev, int force)
{
    if (!dev || dev->name[0] == '\0') {
        LOG(Error, "Invalid dev!\n");
        return;
    }
    char current[NAME_SIZE] = {};
    if (!force) {
        if (get_wan_device_name(current, sizeof current) != 0) {
            LOG(Error, "get_wan_device_name failed!\n");
            return;
        }
        if (strncmp(current, dev->name, NAME_SIZE) == 0) {
            LOG(Debug, "Same wan device, no need to switch!\n");
            return;
        }
        if (was_moved_from_known_port(current)) {
            LOG(Info, "The wan role is not at %s any more, whoever moved it keeps it!\n", port_model.wan_dev->name);
            return;
        }
    }
    char command[COMMAND_SIZE];
    if (dev->is_combo) {
        update_combo_device_status(dev);
        // Unlike a toggle, a switch keeps the side in use.
        snprintf(command, sizeof command, "network_lanwan_swap set port%d %s", dev->port_num,
                 sub_port_word(dev->sub_port));
    } else {
        snprintf(command, sizeof command, "network_lanwan_swap set port%d", dev->port_num);
    }
    LOG(Debug, "wan_detect:Switching wan dev to %s execute:%s!\n", dev->name, command);
    int pause_s = REDETECT_AFTER_SWITCH_SECONDS;
    int status = -1;
    {
        t_mutex_guard link_guard(engine_gate->locks.link_block_lock);
        t_mutex_guard combo_guard(engine_gate->locks.combo_block_lock);
        if (!force && !wan_role_is_at(current)) { // since a script was asked, or the locks were another's
            LOG(Info, "The wan role can't be seen at %s any more, so it stays where it is!\n", current);
            return;
        }
        if (engine_handlers.begin_swap)
            pause_s = engine_handlers.begin_swap(dev);
        status = exit_status_of(run_command(command));
        block_both_threads();
        LOG(Debug,
            "wan_detect:success switch! Block update eth link & combo switch for %ds!! Start re-detect all in %ds!\n",
            static_cast<int>(SWITCH_BLOCK_SECONDS), pause_s);
        if (engine_handlers.start_wan_detect_all)
            engine_handlers.start_wan_detect_all(pause_s * MILLISECONDS_PER_SECOND);
        sleep_ms(AFTER_COMMAND_MS);
    }
    LOG(Notice, "wan_detect:success switching wan dev to %s, port:%d!\n", dev->name, dev->port_num);
    note_opener(t_opener::after_swap);
    note_swap(status);
    announce_swap(dev, status, pause_s);
}

int wan_detect_remove_fake_wan()
{
    if (!port_model.fake_wan)
        return ERR_INVALID_INPUT;
    forget_fake_wan(&port_model);
    run_command(PORT_RELOAD_COMMAND);
    LOG(Debug, "Set fake_wan_dev=null, network.auto_wan_detect.fake_wan_port=-1.\n");
    return OK;
}

bool give_up_fake_wan_if_match(const t_device *dev, bool need_link)
{
    if (!dev || !port_model.fake_wan || (need_link && !dev->link_active))
        return false;
    if (strcmp(port_model.fake_wan->name, dev->name) != 0)
        return false;
    return wan_detect_remove_fake_wan() == OK;
}
