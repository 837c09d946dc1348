// SPDX-License-Identifier: MIT
// Reading the network manager's replies.
#include "adapters/bus_replies.h"

#include <cstring>

#include <libubus.h>

#include "adapters/bus_message.h"
#include "model/records.h"
#include "platform/log.h"
#include "platform/printable_text.h"
#include "platform/text.h"

namespace {

// What an interface's status may hold; only the state is read, or three flags without one.
enum {
    INTERFACE_UP,
    INTERFACE_PENDING,
    INTERFACE_AVAILABLE,
    INTERFACE_AUTOSTART,
    INTERFACE_LINKSTATE,
    INTERFACE_CONNECTABLE,
    INTERFACE_CONNMODE,
    INTERFACE_STATE,
    INTERFACE_UPTIME,
    INTERFACE_L3_DEVICE,
    INTERFACE_PROTO,
    INTERFACE_DEVICE,
    INTERFACE_METRIC,
    INTERFACE_IPV4_ADDRESS,
    INTERFACE_IPV6_ADDRESS,
    INTERFACE_IPV6_PREFIX,
    INTERFACE_IPV6_PREFIX_ASSIGNMENT,
    INTERFACE_ROUTE,
    INTERFACE_DNS_SERVER,
    INTERFACE_DNS_SEARCH,
    INTERFACE_INACTIVE,
    INTERFACE_DATA,
    INTERFACE_FIELDS
};
constexpr blobmsg_policy INTERFACE_POLICY[INTERFACE_FIELDS] = {
    {"up", BLOBMSG_TYPE_BOOL},
    {"pending", BLOBMSG_TYPE_BOOL},
    {"available", BLOBMSG_TYPE_BOOL},
    {"autostart", BLOBMSG_TYPE_BOOL},
    {"linkstate", BLOBMSG_TYPE_STRING},
    {"connectable", BLOBMSG_TYPE_BOOL},
    {"connmode", BLOBMSG_TYPE_STRING},
    {"state", BLOBMSG_TYPE_STRING},
    {"uptime", BLOBMSG_TYPE_INT32},
    {"l3_device", BLOBMSG_TYPE_STRING},
    {"proto", BLOBMSG_TYPE_STRING},
    {"device", BLOBMSG_TYPE_STRING},
    {"metric", BLOBMSG_TYPE_INT32},
    {"ipv4-address", BLOBMSG_TYPE_ARRAY},
    {"ipv6-address", BLOBMSG_TYPE_ARRAY},
    {"ipv6-prefix", BLOBMSG_TYPE_ARRAY},
    {"ipv6-prefix-assignment", BLOBMSG_TYPE_ARRAY},
    {"route", BLOBMSG_TYPE_ARRAY},
    {"dns-server", BLOBMSG_TYPE_ARRAY},
    {"dns-search", BLOBMSG_TYPE_ARRAY},
    {"inactive", BLOBMSG_TYPE_TABLE},
    {"data", BLOBMSG_TYPE_TABLE},
};

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
