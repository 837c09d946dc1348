// SPDX-License-Identifier: MIT
#include "core/look_again.h"

#include "core/candidates.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/retries.h"
#include "model/port_model.h"
#include "platform/log.h"

void uloop_look_again(uloop_timeout *)
{
    LOG_ENTER();
    if (!port_model.enable || !port_model.router_mode || engine.state == t_cycle_state::ending)
        return; // the end plans the next look
    if (cycle_is_running()) {
        begin_look(false);
        list_all_candidates();
        return look_in(0);
    }
    // A cycle that is about to open looks itself.
    if (cycle_is_open() || engine.init_wan_detect_all.pending || current_wan_is_good())
        return;
    begin_look(true);
    note_opener(t_opener::look_again);
    open_cycle_over_all_in(0);
}
