// SPDX-License-Identifier: MIT
// The virtual router's network manager as the bus sees it: the object "network.interface" with its method "status".
// The lab looks at the WAN port for real and keeps the outcome in a file; an answer never waits for the network.
// A "stock" manager knows no states: it tells whether the interface is up, on its way there, or could go there.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include <libubus.h>
}

namespace {

constexpr int RECONNECT_PAUSE_MS = 100;
constexpr size_t STATE_SIZE = 32;

const char *socket_path;
const char *state_path;
bool stock;
ubus_context *bus;
blob_buf reply;

// Reads the state kept by the lab; no file means that there is no network yet.
void read_state(char (&state)[STATE_SIZE])
{
    snprintf(state, sizeof state, "disconnected");
    const int fd = open(state_path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    const ssize_t got = read(fd, state, STATE_SIZE - 1);
    close(fd);
    if (got > 0)
        state[got] = '\0';
}

bool is_ipv4_wan(const char *name)
{
    return strcmp(name, "internet") == 0 || strcmp(name, "wan") == 0;
}

void add_status(const char *state)
{
    const bool up = strcmp(state, "connected") == 0;
    blobmsg_add_u8(&reply, "up", up);
    if (!stock) {
        blobmsg_add_string(&reply, "state", state);
        return;
    }
    blobmsg_add_u8(&reply, "pending", strcmp(state, "connecting") == 0);
    blobmsg_add_u8(&reply, "available", true);
    blobmsg_add_u8(&reply, "autostart", true);
    blobmsg_add_u8(&reply, "dynamic", false);
    if (up)
        blobmsg_add_u32(&reply, "uptime", 1);
    blobmsg_add_string(&reply, "proto", "dhcp");
}

const blobmsg_policy status_policy[] = {{"interface", BLOBMSG_TYPE_STRING}};

int answer_status(ubus_context *context, ubus_object *, ubus_request_data *request, const char *, blob_attr *message)
{
    blob_attr *interface = nullptr;
    blobmsg_parse(status_policy, 1, &interface, blobmsg_data(message), static_cast<unsigned>(blobmsg_len(message)));
    if (!interface)
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *name = blobmsg_get_string(interface);
    char state[STATE_SIZE];
    if (is_ipv4_wan(name))
        read_state(state);
    else if (strcmp(name, "wanv6") == 0)
        strcpy(state, "disconnected");
    else
        return UBUS_STATUS_NOT_FOUND;
    blob_buf_init(&reply, 0);
    add_status(state);
    return ubus_send_reply(context, request, reply.head);
}

ubus_method methods[] = {{"status", answer_status, 0, 0, status_policy, 1}};
ubus_object_type object_type = {"network.interface", 0, methods, 1};

ubus_object make_object()
{
    ubus_object object = {};
    object.name = object_type.name;
    object.type = &object_type;
    object.methods = methods;
    object.n_methods = 1;
    return object;
}

ubus_object object = make_object();
uloop_timeout reconnect_timer;

// The bus may be restarted: come back as soon as it listens again.
void reconnect(uloop_timeout *timer)
{
    if (ubus_reconnect(bus, socket_path) != UBUS_STATUS_OK)
        uloop_timeout_set(timer, RECONNECT_PAUSE_MS);
    else
        ubus_add_uloop(bus);
}

void on_connection_lost(ubus_context *)
{
    uloop_timeout_set(&reconnect_timer, RECONNECT_PAUSE_MS);
}

} // namespace

int main(int argc, char **argv)
{
    stock = argc == 4 && strcmp(argv[3], "stock") == 0;
    if (argc != 3 && !stock) {
        fprintf(stderr, "usage: %s SOCKET STATE_FILE [stock]\n", argv[0]);
        return EXIT_FAILURE;
    }
    socket_path = argv[1];
    state_path = argv[2];
    uloop_init();
    bus = ubus_connect(socket_path);
    if (!bus) {
        fprintf(stderr, "cannot connect to %s\n", socket_path);
        return EXIT_FAILURE;
    }
    reconnect_timer.cb = reconnect;
    bus->connection_lost = on_connection_lost;
    ubus_add_uloop(bus);
    const int status = ubus_add_object(bus, &object);
    if (status != UBUS_STATUS_OK) {
        fprintf(stderr, "cannot publish network.interface: %s\n", ubus_strerror(status));
        return EXIT_FAILURE;
    }
    uloop_run();
    ubus_free(bus);
    uloop_done();
    return EXIT_SUCCESS;
}
