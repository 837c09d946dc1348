// SPDX-License-Identifier: MIT
// What the combo-state script prints.
#include "adapters/link_status.h"
#include "model/records.h"
#include "platform/log.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/fuzz.h"

void prepare()
{
    log_set_level(LOG_LEVEL_Debug);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_device dev = {};
    copy_name(dev.name, "eth4");
    dev.port_num = 4;
    dev.is_combo = 1;
    commands_print(text_of({data, size}));
    const bool changed = update_combo_device_status(&dev) == 1;
    REQUIRE(changed == (dev.phy_link || dev.sfp_link));
    REQUIRE(dev.sub_port == SUB_PORT_SFP || dev.sub_port == SUB_PORT_PHY);
    REQUIRE(update_combo_device_status(&dev) == 0);
    return 0;
}
