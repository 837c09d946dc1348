// SPDX-License-Identifier: MIT
// Replaces platform/command.cpp and platform/bus_call.cpp.
#include "tests/unit/core/fake_router.h"

#include <algorithm>
#include <cstdio>

#include "core/link_scan.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/text.h"
#include "platform/uci_access.h"
#include "tests/support/router_config.h"
#include "tests/unit/support/sandbox.h"

t_fake_router fake_router;

int t_fake_router::count(const std::string &command) const
{
    return static_cast<int>(std::count(commands.begin(), commands.end(), command));
}

static std::string port_state_json()
{
    std::string json = "{";
    for (const auto &[port, up] : fake_router.links)
        json += (json.size() > 1 ? ",\"" : "\"") + port + "\":" + (up ? "true" : "false");
    return json + "}";
}

int capture_command(std::span<char> room, const char *command)
{
    room[0] = '\0';
    if (fake_router.on_capture)
        fake_router.on_capture(command);
    if (!fake_router.commands_start)
        return -1;
    std::string output = fake_router.outputs[command];
    if (std::string(command) == PORT_STATE_COMMAND)
        output = fake_router.port_state_output.empty() ? port_state_json() : fake_router.port_state_output;
    bounded_copy(room.data(), output.c_str(), room.size());
    return 0;
}

int run_command(const char *command)
{
    fake_router.commands.push_back(command);
    if (fake_router.on_command)
        fake_router.on_command(command);
    if (std::string(command) == "online-test")
        return fake_router.online_test_status << 8;
    char port[32];
    if (fake_router.swap_works && sscanf(command, "network_lanwan_swap set %31s", port) == 1) {
        char key[] = "switch.wan.switch_port";
        _uci_set_value_commit(key, port);
    }
    return 0;
}

int ubus_call_method(const char *object, const char *method, blob_buf *, t_bus_reply_handler, void *context)
{
    fake_router.bus_calls.push_back(std::string(object) + " " + method);
    if (fake_router.bus_result == 0)
        *static_cast<int *>(context) = fake_router.network_state;
    return fake_router.bus_result;
}

void write_switch_config(int ports, int wan_port, const std::string &more, int combo_port)
{
    write_config("switch", switch_config(ports, "port" + std::to_string(wan_port), combo_port) + more);
}
