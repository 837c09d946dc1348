// SPDX-License-Identifier: MIT
// The fake WAN port: read at start-up, given up as soon as the real port is known or detection is off.
#include "model/fake_wan.h"

#include <cstring>

#include "model/config_text.h"
#include "model/tables.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

static void store_no_fake_wan()
{
    char key[UCI_PATH_SIZE]; // the call cuts it
    bounded_copy(key, FAKE_WAN_KEY, sizeof key);
    _uci_set_value_commit(key, FAKE_WAN_NONE);
}

int init_fake_wan_device(t_port_model *model)
{
    model->fake_wan = nullptr;
    char port[UCI_VALUE_SIZE] = "-1";
    const int result = _uci_get_value(FAKE_WAN_KEY, port);
    if (result != OK) {
        LOG(Warning, "Get network.auto_wan_detect.fake_wan_port failed!\n");
        store_no_fake_wan();
        return result;
    }
    if (strcmp(port, FAKE_WAN_NONE) == 0) {
        LOG(Debug, "network.auto_wan_detect.fake_wan_port=-1, meaning there is no fake_wan\n");
        return OK;
    }
    char key[SWITCH_KEY_SIZE];
    char ifname[UCI_VALUE_SIZE];
    if (read_switch_ifname("port", port, key, ifname) != OK || !is_ethernet_name(ifname)) {
        LOG(Error, "%s=%s, or not begin with \"eth\"\n", key, ifname);
        return ERR_CONFIG_VALUE;
    }
    model->fake_wan = find_device(model->dev_hashmap_head, ifname);
    LOG(Debug, "Success get fake_wan :%s\n", device_name(model->fake_wan));
    return OK;
}

int wan_detect_remove_fake_wan()
{
    if (!port_model.fake_wan)
        return ERR_INVALID_INPUT;
    store_no_fake_wan();
    port_model.fake_wan = nullptr;
    run_command(PORT_RELOAD_COMMAND);
    LOG(Debug, "Set fake_wan_dev=null, network.auto_wan_detect.fake_wan_port=-1.\n");
    return OK;
}

bool remove_fake_wan_if_match(const t_device *dev, bool need_link)
{
    if (!dev || !port_model.fake_wan || (need_link && !dev->link_active))
        return false;
    if (strcmp(port_model.fake_wan->name, dev->name) != 0)
        return false;
    return wan_detect_remove_fake_wan() == OK;
}
