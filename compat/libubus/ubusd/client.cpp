// SPDX-License-Identifier: MIT
// A connection from its greeting to its end: who the peer is, and the frames it sends.
#include "bus.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ubusd {
namespace {

// So many frames of one client are served before the others get their turn.
constexpr int FRAMES_PER_TURN = 32;

avl_tree clients;

using ubus_frame::BLOB_WORD_BYTES;
using ubus_frame::HEADER_BYTES;
using ubus_frame::SMALLEST_FRAME_BYTES;

enum class receive_result { frame, nothing_yet, client_lost };

void free_client(client *from)
{
    drop_queue(*from);
    close(from->sock.fd);
    free(from->user);
    free(from->group);
    free(from->body);
    free(from);
}

void remove_client(client *from)
{
    from->can_send = false;
    uloop_fd_delete(&from->sock);
    remove_objects_of(*from);
    release_id(clients, from->id);
    free_client(from);
}

bool identify(client &peer)
{
    ucred credentials = {};
    socklen_t length = sizeof(credentials);
    if (getsockopt(peer.sock.fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) < 0) {
        return false;
    }
    const passwd *user = getpwuid(credentials.uid);
    const group *group = getgrgid(credentials.gid);
    if (!user || !group) {
        return false;
    }
    peer.is_root = credentials.uid == 0;
    peer.user = strdup(user->pw_name);
    peer.group = strdup(group->gr_name);
    return peer.user && peer.group;
}

bool begin_body(client &from)
{
    blob_attr word = {.id_len = from.start.word_be};
    size_t length = blob_raw_len(&word);
    if (!ubus_frame::is_valid_blob_length(length)) {
        return false;
    }
    from.body = static_cast<blob_attr *>(malloc(length));
    if (from.body) {
        memcpy(from.body, &word, BLOB_WORD_BYTES);
    }
    return from.body != nullptr;
}

ssize_t receive_into(client &from, void *start, size_t have, size_t want)
{
    ssize_t count = recv(from.sock.fd, static_cast<char *>(start) + have, want - have, MSG_DONTWAIT);
    if (count > 0) {
        from.received += static_cast<size_t>(count);
    }
    return count;
}

receive_result receive_frame(client &from)
{
    for (;;) {
        ssize_t count;
        if (from.received < SMALLEST_FRAME_BYTES) {
            count = receive_into(from, &from.start, from.received, SMALLEST_FRAME_BYTES);
        } else {
            if (!from.body && !begin_body(from)) {
                return receive_result::client_lost;
            }
            size_t have = from.received - HEADER_BYTES;
            size_t want = blob_raw_len(from.body);
            if (have == want) {
                return receive_result::frame;
            }
            count = receive_into(from, from.body, have, want);
        }
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return receive_result::client_lost;
        }
        if (count < 0 && errno == EAGAIN) {
            return receive_result::nothing_yet;
        }
    }
}

void serve_frame(client &from)
{
    request req = {.from = &from,
                   .head = ubus_frame::decode(from.start.head),
                   .body = from.body,
                   .attributes = ubus_frame::parse(from.body)};
    from.body = nullptr;
    from.received = 0;
    handle_request(req);
    free(req.body);
}

// After a hang-up the loop calls no more, so everything that is left is served at once.
void handle_socket(uloop_fd *sock, unsigned int events)
{
    client *from = container_of(sock, client, sock);
    if (events & ULOOP_WRITE && sock->registered) {
        flush_queue(*from);
    }
    if (!sock->registered) {
        from->can_send = false;
    }
    for (int served = 0; served < FRAMES_PER_TURN || !sock->registered; served++) {
        receive_result result = receive_frame(*from);
        if (result == receive_result::nothing_yet && sock->registered) {
            return;
        }
        if (result != receive_result::frame) {
            remove_client(from);
            return;
        }
        serve_frame(*from);
    }
}

void greet(client &to)
{
    ubus_frame::message nothing;
    ubus_frame::header head = {.type = UBUS_MSG_HELLO, .peer = to.id.id};
    send_frame(to, head, nothing.bytes());
}

} // namespace

void initialise_clients()
{
    initialise_table(clients);
}

client *find_client(uint32_t id)
{
    id_node *found = find_id(clients, id);
    return found ? container_of(found, client, id) : nullptr;
}

void add_client(int fd)
{
    auto *peer = static_cast<client *>(calloc(1, sizeof(client)));
    if (!peer) {
        close(fd);
        return;
    }
    peer->sock.fd = fd;
    peer->sock.cb = handle_socket;
    peer->can_send = true;
    INIT_LIST_HEAD(&peer->objects);
    INIT_LIST_HEAD(&peer->queue);
    if (!identify(*peer) || !assign_id(clients, peer->id)) {
        free_client(peer);
        return;
    }
    if (uloop_fd_add(&peer->sock, ULOOP_READ) < 0) {
        remove_client(peer);
        return;
    }
    greet(*peer);
}

} // namespace ubusd
