// SPDX-License-Identifier: MIT
// The connection to the system bus: set-up, loss and return, and calls to other services. Loop thread only.
#pragma once

#include <cstdint>

struct blob_buf;
struct ubus_context;
struct ubus_event_handler;
struct ubus_object;
struct ubus_request;
struct blob_attr;

// Bus daemons of long standing listen at the first path. Where it does not exist the library's own default counts,
// which no header tells; in current releases it is the second one.
constexpr const char *BUS_SOCKET_PATH = "/var/run/ubus.sock";
constexpr const char *BUS_DEFAULT_SOCKET_PATH = "/var/run/ubus/ubus.sock";
constexpr int BUS_CALL_TIMEOUT_MS = 1000;
constexpr int BUS_RECONNECT_INTERVAL_MS = 1000;

// Which path counts now; null for the library's own.
const char *bus_path();

using t_bus_reply_handler = void (*)(ubus_request *request, int type, blob_attr *message);

// What the daemon offers on the bus; filled in by the floor above before wan_detect_ubus_init.
struct t_bus_exports {
    ubus_object *object;
    ubus_event_handler *event_handler;
    const char *event_pattern;
    ubus_object *beside; // one more, which the daemon can do without; null for none
};

// Connects, adds the object and registers the event. 0, or -1 after a Critical line; every failure also raises SIGTERM.
int wan_detect_ubus_init(const t_bus_exports *offer);

// Closes the connection, if there is one.
void wan_detect_ubus_done();

// The connection, or null. For handlers that reply.
ubus_context *wan_detect_ubus_context();

// Where callers come in while no loop runs; negative when nobody can. They are served as the loop would serve them.
int wan_detect_ubus_socket();
void wan_detect_ubus_serve();

// True when there is no connection, also when the bus daemon closed it and the loop has not come to notice.
bool wan_detect_ubus_is_lost();

// Calls `method` of `object` and waits at most BUS_CALL_TIMEOUT_MS for the bus daemon, and as long for the answer. The
// bus library's status (0 is success), ERR_INVALID_INPUT for a missing name, ERR_BUS_OBJECT when nobody offers the
// object or the bus does not answer. `context` reaches the reply handler as request->priv.
int ubus_call_method(const char *object, const char *method, blob_buf *message, t_bus_reply_handler reply,
                     void *context);
