// SPDX-License-Identifier: MIT
// The network manager's view of the upstream as its replies tell it, the online test, and the router's mode.
#include "adapters/network_status.h"

#include <csignal>
#include <cstring>
#include <sys/wait.h>

#include <libubus.h>

#include "adapters/bus_message.h"
#include "model/records.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/printable_text.h"
#include "platform/result_codes.h"
#include "platform/text.h"
#include "platform/uci_access.h"

namespace {

// What is read of an interface's status, which holds more: the state, or three flags without one.
enum { INTERFACE_UP, INTERFACE_PENDING, INTERFACE_AVAILABLE, INTERFACE_STATE, INTERFACE_FIELDS };
constexpr blobmsg_policy INTERFACE_POLICY[INTERFACE_FIELDS] = {{"up", BLOBMSG_TYPE_BOOL},
                                                               {"pending", BLOBMSG_TYPE_BOOL},
                                                               {"available", BLOBMSG_TYPE_BOOL},
                                                               {"state", BLOBMSG_TYPE_STRING}};

enum { DEVICE_UP, DEVICE_LINK, DEVICE_FIELDS };
constexpr blobmsg_policy DEVICE_POLICY[DEVICE_FIELDS] = {{"up", BLOBMSG_TYPE_BOOL}, {"link", BLOBMSG_TYPE_BOOL}};

int network_state(const char *text)
{
    if (strcmp(text, "connected") == 0)
        return NETWORK_CONNECTED;
    if (strcmp(text, "connecting") == 0)
        return NETWORK_CONNECTING;
    return NETWORK_DISCONNECTED;
}

// A stock network manager tells no state in a word. NETWORK_UNKNOWN when it does not tell these three either.
int state_by_flags(blob_attr *const (&fields)[INTERFACE_FIELDS])
{
    if (!fields[INTERFACE_UP] || !fields[INTERFACE_PENDING] || !fields[INTERFACE_AVAILABLE])
        return NETWORK_UNKNOWN;
    if (blobmsg_get_bool(fields[INTERFACE_UP]))
        return NETWORK_CONNECTED;
    return blobmsg_get_bool(fields[INTERFACE_PENDING]) ? NETWORK_CONNECTING : NETWORK_DISCONNECTED;
}

} // namespace

void ubus_call_network_interface_cb(ubus_request *request, int, blob_attr *message)
{
    int *state = static_cast<int *>(request->priv);
    if (!state)
        return;
    *state = NETWORK_UNKNOWN;
    blob_attr *fields[INTERFACE_FIELDS];
    if (!parse_bus_message(INTERFACE_POLICY, fields, message)) {
        LOG(Info, "Error parsing ubus call network.interface status '{\"interface\":\"...\"}'\n");
        return;
    }
    if (!fields[INTERFACE_STATE]) {
        // Other programs read the log by this word.
        LOG(Info, "Error parsing data:\"%s\" in ubus call network.interface status '{\"interface\":\"...\"}'\n",
            "speed");
        *state = state_by_flags(fields);
        return;
    }
    const char *text = blobmsg_get_string(fields[INTERFACE_STATE]);
    *state = network_state(text);
    LOG(Debug, "ubus success get network.interface status '{\"interface\":\"...\"}' state=%s\n",
        t_printable_text(text).text);
}

void ubus_call_network_device_cb(ubus_request *request, int, blob_attr *message)
{
    t_device *dev = static_cast<t_device *>(request->priv);
    if (!dev || dev->name[0] == '\0') {
        LOG(Error, "Error passing the device pointer when sending ubus!\n");
        return;
    }
    blob_attr *fields[DEVICE_FIELDS];
    if (!parse_bus_message(DEVICE_POLICY, fields, message)) {
        LOG(Error, "Error parsing ubus call network.device status '{\"name\":\"%s\"}'\n", dev->name);
        return;
    }
    if (!fields[DEVICE_UP] || !fields[DEVICE_LINK]) {
        LOG(Error, "Error parsing data:\"%s\" in ubus call network.device status '{\"name\":\"%s\"}'\n",
            fields[DEVICE_UP] ? "link" : "up", dev->name);
        return;
    }
    bool up = blobmsg_get_bool(fields[DEVICE_UP]);
    bool link = blobmsg_get_bool(fields[DEVICE_LINK]);
    dev->active = up;
    dev->link_active = link;
    LOG(Debug, "Device:%s status update: up:%s, link:%s\n", dev->name, true_or_false(up), true_or_false(link));
}

namespace {

constexpr const char *ONLINE_TEST_COMMAND = "online-test";
constexpr int ONLINE_TEST_ONLINE = 0;
constexpr int ONLINE_TEST_OFFLINE = 1;

// What the questions so far tell of the network manager itself, whatever its answers were.
struct t_network_manager {
    bool has_answered;  // ever
    bool out_of_reach;  // at the last question
    bool was_not_asked; // then, for the bus was lost or memory short
};

t_network_manager network_manager;

void remember_manager(int status)
{
    network_manager.out_of_reach = status == ERR_BUS_OBJECT || status == UBUS_STATUS_CONNECTION_FAILED;
    network_manager.was_not_asked = network_manager.out_of_reach && wan_detect_ubus_is_lost();
    if (!network_manager.out_of_reach && status != UBUS_STATUS_TIMEOUT)
        network_manager.has_answered = true;
}

// Status of the call, other than 0 without one; the answer goes to `state`.
int call_network_manager(blob_buf *question, const char *interface, int *state)
{
    if (blob_buf_init(question, 0) != 0 || blobmsg_add_string(question, "interface", interface) != 0) {
        network_manager.out_of_reach = network_manager.was_not_asked = true;
        return UBUS_STATUS_NO_MEMORY;
    }
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
    return network_manager.out_of_reach && (network_manager.has_answered || network_manager.was_not_asked);
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
