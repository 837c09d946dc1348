// SPDX-License-Identifier: MIT
// The network manager's replies. The input is a byte that chooses the form (from 0x80 on, JSON), and the reply.
#include <libubus.h>

#include "adapters/network_status.h"
#include "model/records.h"
#include "platform/log.h"
#include "tests/fuzz/support/bus_message.h"

namespace {

constexpr uint8_t JSON_FORM = 0x80;

} // namespace

void prepare()
{
    log_set_level(LOG_LEVEL_Debug);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const uint8_t form = input.byte();
    t_fuzz_message message(input.rest(), form >= JSON_FORM);
    ubus_request request = {};

    int state = NETWORK_POOR_CONNECTED;
    request.priv = &state;
    ubus_call_network_interface_cb(&request, 0, message.attribute());
    REQUIRE(state >= NETWORK_UNKNOWN && state <= NETWORK_CONNECTING);

    t_device dev = {};
    copy_name(dev.name, "eth1");
    request.priv = &dev;
    ubus_call_network_device_cb(&request, 0, message.attribute());
    REQUIRE(dev.active <= 1 && dev.link_active <= 1);
    return 0;
}
