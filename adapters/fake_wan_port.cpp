// SPDX-License-Identifier: MIT
// The fake WAN port is given up as soon as the real port is known or detection is off.
#include "adapters/fake_wan_port.h"

#include <cstring>

#include "model/fake_wan.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"

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
