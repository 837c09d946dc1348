// SPDX-License-Identifier: MIT
// What the port-state script prints.
#include "core/link_change.h"
#include "core/link_scan.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/log.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/fuzz.h"

static int changes;

int wan_detect_process_link_change(t_device *dev, bool up)
{
    REQUIRE((dev->link_active != 0) != up);
    dev->link_active = up;
    changes++;
    return 0;
}

void prepare()
{
    log_set_level(LOG_LEVEL_Debug);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_device *ports = nullptr;
    for (const char *name : {"eth0", "eth1", "eth2"})
        keep_device(&ports, create_new_device(name));
    commands_print(text_of({data, size}));
    changes = 0;
    REQUIRE(update_eth_link_status_using_script(ports) == (changes > 0));
    update_eth_link_status(ports); // nothing is new the second time
    const int before = changes;
    REQUIRE(update_eth_link_status_using_script(ports) == 0 && changes == before);
    release_all_device(&ports);
    return 0;
}
