// SPDX-License-Identifier: MIT
#include "core/wan_role.h"

#include "core/cycle.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "model/current_wan.h"

void follow_moved_role()
{
    if (cycle_is_open())
        return;
    const bool was_away = port_model.role_is_away;
    if (look_at_role(&port_model) != t_role::moved)
        return;
    drop_swap_of_moved_role();
    begin_retries_anew();
    if (!port_model.enable || !port_model.router_mode)
        return;
    reopen_after_wan_loss();
    if (was_away)
        look_again_later(); // nobody looked meanwhile
}
