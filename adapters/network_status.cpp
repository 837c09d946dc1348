// SPDX-License-Identifier: MIT
// The network manager's view of the upstream, the online test, and the router's mode.
#include "adapters/network_status.h"

#include <csignal>
#include <sys/wait.h>

#include <libubus.h>

#include "model/records.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/uci_access.h"

namespace {

constexpr const char *ONLINE_TEST_COMMAND = "online-test";
constexpr int ONLINE_TEST_ONLINE = 0;
constexpr int ONLINE_TEST_OFFLINE = 1;

// What the questions so far tell of the network manager itself, whatever its answers were.
struct t_network_manager {
    bool has_answered; // ever
    bool out_of_reach; // at the last question
    bool bus_was_lost; // then
};

t_network_manager network_manager;

void remember_manager(int status)
{
    network_manager.out_of_reach = status == ERR_BUS_OBJECT || status == UBUS_STATUS_CONNECTION_FAILED;
    network_manager.bus_was_lost = network_manager.out_of_reach && wan_detect_ubus_is_lost();
    if (!network_manager.out_of_reach && status != UBUS_STATUS_TIMEOUT)
        network_manager.has_answered = true;
}

// Status of the call, other than 0 without one; the answer goes to `state`.
int call_network_manager(blob_buf *question, const char *interface, int *state)
{
    if (blob_buf_init(question, 0) != 0 || blobmsg_add_string(question, "interface", interface) != 0)
        return UBUS_STATUS_NO_MEMORY;
    const int status = ubus_call_method("network.interface", "status", question, ubus_call_network_interface_cb, state);
    remember_manager(status);
    return status;
}

// The same; `state` is NETWORK_UNKNOWN without an answer.
int ask_network_manager(const char *interface, int *state)
{
    *state = NETWORK_UNKNOWN;
    blob_buf question = {};
    const int status = call_network_manager(&question, interface, state);
    blob_buf_free(&question);
    return status;
}

bool ended_with(int status, int code)
{
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == code;
}

} // namespace

int get_network_status(int ipv6, int check)
{
    int state;
    const char *interface = ipv6 ? "wanv6" : "internet";
    int failed = ask_network_manager(interface, &state);
    if (failed)
        LOG(Info, "Failed to run ubus call network.interface status '{\"interface\":\"%s\"}'\n", interface);
    bool unreadable = failed || state == NETWORK_UNKNOWN;
    if (unreadable && ipv6)
        return NETWORK_DISCONNECTED;
    if (unreadable) {
        failed = ask_network_manager("wan", &state);
        if (failed)
            LOG(Error, "Failed to run ubus call network.interface status '{\"interface\":\"wan\"}'\n");
        if (failed || state == NETWORK_UNKNOWN) {
            state = NETWORK_DISCONNECTED;
            if (!check)
                return state;
        }
    }
    if (check && state == NETWORK_CONNECTED && !check_online())
        state = NETWORK_POOR_CONNECTED;
    switch (state) {
    case NETWORK_UNKNOWN:
        LOG(Debug, "Get network status return: unknown status\n");
        break;
    case NETWORK_DISCONNECTED:
        LOG(Debug, "Get network status return: disconnected\n");
        break;
    case NETWORK_CONNECTED:
        LOG(Debug, "Get network status return: connected\n");
        break;
    case NETWORK_CONNECTING:
        LOG(Debug, "Get network status return: connecting\n");
        break;
    case NETWORK_POOR_CONNECTED:
        LOG(Debug, "Get network status return: poor connected\n");
        break;
    default:
        LOG(Debug, "Get network status return: unknown status! Impossibe!\n");
        break;
    }
    return state;
}

bool network_manager_is_away()
{
    return network_manager.out_of_reach && (network_manager.has_answered || network_manager.bus_was_lost);
}

void forget_network_manager()
{
    network_manager = {};
}

bool check_online()
{
    int status = run_command(ONLINE_TEST_COMMAND);
    if (ended_with(status, ONLINE_TEST_ONLINE))
        return true;
    if (ended_with(status, ONLINE_TEST_OFFLINE))
        return false;
    LOG(Error, "online-test failed, try again!!\n");
    // Where children are collected by somebody else, their exit status is lost.
    struct sigaction by_default = {};
    by_default.sa_handler = SIG_DFL;
    struct sigaction previous = {};
    sigaction(SIGCHLD, &by_default, &previous);
    status = run_command(ONLINE_TEST_COMMAND);
    sigaction(SIGCHLD, &previous, nullptr);
    return ended_with(status, ONLINE_TEST_ONLINE);
}

bool get_is_router_mode()
{
    char mode[UCI_VALUE_SIZE] = {};
    if (_uci_get_value("sysmode.sysmode.mode", mode) != OK) {
        LOG(Error, "Unable to get sysmode.sysmode.mode, treat it as router!\n");
        return true;
    }
    return has_prefix(mode, "router");
}
