// SPDX-License-Identifier: MIT
#include "core/look_again.h"

#include "core/candidates.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "model/banned.h"
#include "model/port_model.h"
#include "platform/log.h"

static void list_anew()
{
    refresh_reserved_ports();
    update_banned_device_list(&port_model.banned_list);
    generate_possible_wan_dev_list(true); // some wait where the network manager is away
    look_in(0);
}

void uloop_look_again(uloop_timeout *)
{
    LOG_ENTER();
    if (!port_model.enable || !port_model.router_mode || engine.state == t_cycle_state::ending)
        return; // the end plans the next look
    if (cycle_is_running()) {
        begin_look(false);
        return list_anew();
    }
    // A cycle that is about to open looks itself.
    if (cycle_is_open() || engine.init_wan_detect_all.pending)
        return;
    if (ask_whether_wan_works())
        return end_trial_at_rest(); // no cycle follows soon
    begin_look(true);
    note_opener(t_opener::look_again);
    open_cycle_over_all_in(0);
}
