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
    const t_device *before = port_model.wan_dev;
    if (!wan_role_moved(&port_model))
        return t_role::unmoved;
    if (update_wan_device(&port_model) != OK)
        return t_role::foreign;
    const t_device *now_wan = port_model.wan_dev;
    LOG(Info, "The wan role was moved from %s to %s!\n", device_name(before), device_name(now_wan));
    begin_retries_anew();
    return t_role::moved;
}

void follow_moved_role()
{
    if (cycle_is_open())
        return; // the cycle looks itself
    if (look_at_role() == t_role::moved && port_model.enable && port_model.router_mode)
        reopen_after_wan_loss();
}

bool wan_role_is_foreign()
{
    const t_device *former = port_model.wan_dev;
    return former && port_model.wan_role[0] && strcmp(port_model.wan_role, former->name) != 0;
}
