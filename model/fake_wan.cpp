// SPDX-License-Identifier: MIT
// The note of the fake WAN port, in the model and in the configuration.
#include "model/fake_wan.h"

#include <cstring>

#include "model/config_text.h"
#include "model/port_names.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

static bool give_up_nothing(const t_device *, bool)
{
    return false;
}

bool (*remove_fake_wan_if_match)(const t_device *dev, bool need_link) = give_up_nothing;

void forget_fake_wan(t_port_model *model)
{
    char key[UCI_PATH_SIZE]; // the call cuts it
    bounded_copy(key, FAKE_WAN_KEY, sizeof key);
    _uci_set_value_commit(key, FAKE_WAN_NONE);
    model->fake_wan = nullptr;
}

int init_fake_wan_device(t_port_model *model)
{
    model->fake_wan = nullptr;
    char port[UCI_VALUE_SIZE] = "-1";
    const int result = _uci_get_value(FAKE_WAN_KEY, port);
    if (result != OK) {
        LOG(Warning, "Get network.auto_wan_detect.fake_wan_port failed!\n");
        forget_fake_wan(model);
        return result;
    }
    if (strcmp(port, FAKE_WAN_NONE) == 0) {
        LOG(Debug, "network.auto_wan_detect.fake_wan_port=-1, meaning there is no fake_wan\n");
        return OK;
    }
    char key[SWITCH_KEY_SIZE];
    char ifname[UCI_VALUE_SIZE];
    if (read_switch_ifname("port", port, key, ifname) != OK || !is_port_name(ifname)) {
        LOG(Error, "%s=%s, or not begin with \"eth\"\n", key, ifname);
        return ERR_CONFIG_VALUE;
    }
    model->fake_wan = find_device(model->dev_hashmap_head, ifname);
    LOG(Debug, "Success get fake_wan :%s\n", device_name(model->fake_wan));
    return OK;
}
