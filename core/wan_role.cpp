// SPDX-License-Identifier: MIT
#include "core/wan_role.h"

#include "core/cycle.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "model/port_model.h"

void read_role_anew()
{
    update_wan_device(&port_model);
    if (port_model.role_is_away)
        drop_swap_of_moved_role();
}

t_role look_where_role_is()
{
    const t_role role = look_at_role(&port_model);
    if (role != t_role::unmoved)
        drop_swap_of_moved_role();
    if (role == t_role::moved)
        begin_retries_anew();
    return role;
}

void follow_moved_role()
{
    if (cycle_is_open())
        return;
    const bool was_away = port_model.role_is_away;
    const t_role role = look_where_role_is();
    if (role == t_role::foreign)
        stop_looking_again(); // until it comes back
    if (role != t_role::moved)
        return;
    if (!port_model.enable || !port_model.router_mode)
        return;
    reopen_after_wan_loss();
    if (was_away) { // nobody looked meanwhile
        cut_pause_to_first();
        look_again_later();
    }
}
