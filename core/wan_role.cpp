// SPDX-License-Identifier: MIT
#include "core/wan_role.h"

#include <cstring>

#include "core/cycle.h"
#include "core/retries.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "model/records.h"
#include "platform/log.h"
#include "platform/result_codes.h"

t_role look_at_role()
{
    char before[NAME_SIZE];
    copy_name(before, port_model.wan_role[0] ? port_model.wan_role : device_name(port_model.wan_dev));
    char name[NAME_SIZE];
    if (!wan_role_moved(&port_model, name))
        return t_role::unmoved;
    if (take_wan_role(&port_model, name) != OK)
        return t_role::foreign;
    LOG(Info, "The wan role was moved from %s to %s!\n", before, name);
    begin_retries_anew();
    return t_role::moved;
}

void follow_moved_role()
{
    if (cycle_is_open())
        return; // the cycle looks itself
    const bool was_away = wan_role_is_foreign();
    if (look_at_role() != t_role::moved || !port_model.enable || !port_model.router_mode)
        return;
    reopen_after_wan_loss();
    if (was_away)
        look_again_later(); // nobody looked meanwhile
}

bool wan_role_is_foreign()
{
    return port_model.role_is_away;
}
