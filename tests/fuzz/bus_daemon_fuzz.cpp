// SPDX-License-Identifier: MIT
// What clients send to the bus daemon. The input is a row of steps: a byte that chooses the client and what happens to
// it, and for bytes that it sends a block. The ids that the daemon gives out count from 0xa0000001 on.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "compat/libubus/ubusd/bus.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr uint8_t CLIENT_MASK = 0x03;
constexpr size_t CLIENTS = CLIENT_MASK + 1;
constexpr size_t COMMON_CLIENT = CLIENTS - 1; // the only one that is not root
constexpr uid_t COMMON_USER = 65534;
enum t_step : uint8_t { SEND, STOP_READING, READ_AGAIN, READ_IN_PIECES, SHUT_DOWN, HANG_UP, STEPS };
constexpr size_t PIECE = 7; // bytes that a slow reader takes at a time
constexpr uint32_t ID_BEFORE_FIRST = 0xa0000000;
constexpr int MOST_STEPS = 256;

struct t_peer {
    uint32_t id = 0; // 0 when it is not connected
    int fd = -1;
    t_octets sends;
    std::string got;
    size_t takes = SIZE_MAX; // bytes at a time; 0 when it does not read
    bool closed = false;
};

t_peer peers[CLIENTS];
uint32_t last_id;

t_peer *peer_of(int fd)
{
    const auto found =
        std::find_if(peers, peers + CLIENTS, [fd](const t_peer &peer) { return peer.id && peer.fd == fd; });
    return found == peers + CLIENTS ? nullptr : found;
}

void connect(t_peer &peer)
{
    peer = {};
    peer.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    REQUIRE(peer.fd >= 0);
    peer.id = last_id + 1;
    ubusd::add_client(peer.fd);
    REQUIRE(ubusd::find_client(peer.id));
}

// Calls the daemon as its loop would.
void wake(t_peer &peer, unsigned events)
{
    ubusd::client *client = ubusd::find_client(peer.id);
    if (!client)
        return;
    client->sock.cb(&client->sock, events);
}

// Everything that reached a client is whole frames, but for the last one.
void check_frames(const t_peer &peer)
{
    constexpr size_t HEAD = 12;
    t_octets left(reinterpret_cast<const uint8_t *>(peer.got.data()), peer.got.size());
    while (left.size() >= HEAD) {
        const size_t length = static_cast<size_t>(left[9]) << 16 | static_cast<size_t>(left[10]) << 8 | left[11];
        REQUIRE(left[0] == 0 && left[1] <= UBUS_MSG_MONITOR && length >= sizeof(blob_attr));
        left = left.subspan(std::min(left.size(), sizeof(ubus_msghdr) + length));
    }
}

void close_peer(t_peer &peer)
{
    peer.closed = true;
    wake(peer, ULOOP_READ);
    REQUIRE(!ubusd::find_client(peer.id));
    check_frames(peer);
    peer = {};
}

// The loop has taken the descriptor out when it reports a hang-up.
void hang_up(t_peer &peer)
{
    ubusd::client *client = ubusd::find_client(peer.id);
    uloop_fd_delete(&client->sock);
    client->sock.eof = true;
    close_peer(peer);
}

void take_step(t_peer &peer, t_step step, t_input &input)
{
    switch (step) {
    case SEND:
        peer.sends = input.block();
        // Frames beyond those of one turn wait for the next.
        for (size_t before = peer.sends.size() + 1; ubusd::find_client(peer.id) && peer.sends.size() < before;) {
            before = peer.sends.size();
            wake(peer, ULOOP_READ);
        }
        break;
    case STOP_READING:
        peer.takes = 0;
        break;
    case READ_AGAIN:
    case READ_IN_PIECES:
        peer.takes = step == READ_AGAIN ? SIZE_MAX : PIECE;
        wake(peer, ULOOP_WRITE);
        break;
    case SHUT_DOWN:
        close_peer(peer);
        return;
    case HANG_UP:
        hang_up(peer);
        return;
    case STEPS:
        break;
    }
    if (!ubusd::find_client(peer.id)) {
        check_frames(peer);
        peer = {};
    }
}

} // namespace

extern "C" ssize_t __real_read(int fd, void *buffer, size_t size);
extern "C" ssize_t __wrap_read(int fd, void *buffer, size_t size)
{
    if (size != sizeof last_id)
        return __real_read(fd, buffer, size);
    last_id++;
    memcpy(buffer, &last_id, sizeof last_id);
    return sizeof last_id;
}

extern "C" ssize_t __wrap_recv(int fd, void *buffer, size_t size, int)
{
    t_peer *peer = peer_of(fd);
    REQUIRE(peer);
    const size_t taken = std::min(size, peer->sends.size());
    if (taken == 0 && !peer->closed) {
        errno = EAGAIN;
        return -1;
    }
    if (taken > 0)
        memcpy(buffer, peer->sends.data(), taken);
    peer->sends = peer->sends.subspan(taken);
    return static_cast<ssize_t>(taken);
}

extern "C" ssize_t __wrap_sendmsg(int fd, const msghdr *message, int)
{
    t_peer *peer = peer_of(fd);
    REQUIRE(peer);
    if (peer->closed || peer->takes == 0) {
        errno = peer->closed ? EPIPE : EAGAIN;
        return -1;
    }
    size_t total = 0;
    for (size_t i = 0; i < message->msg_iovlen; i++) {
        const size_t taken = std::min(message->msg_iov[i].iov_len, peer->takes - total);
        peer->got.append(static_cast<const char *>(message->msg_iov[i].iov_base), taken);
        total += taken;
    }
    return static_cast<ssize_t>(total);
}

extern "C" int __wrap_shutdown(int fd, int)
{
    t_peer *peer = peer_of(fd);
    REQUIRE(peer);
    peer->closed = true;
    return 0;
}

extern "C" int __wrap_getsockopt(int fd, int, int, void *value, socklen_t *)
{
    ucred credentials = {};
    if (peer_of(fd) == &peers[COMMON_CLIENT])
        credentials = {.pid = 1, .uid = COMMON_USER, .gid = COMMON_USER};
    memcpy(value, &credentials, sizeof credentials);
    return 0;
}

void prepare() {}

// The loop takes over the signals, so it must not begin before the fuzzer has its own.
static bool start_daemon()
{
    ubusd::initialise_clients();
    ubusd::initialise_objects();
    return uloop_init() == 0 && ubusd::open_random_source() == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool started = start_daemon();
    REQUIRE(started);
    last_id = ID_BEFORE_FIRST;
    t_input input(data, size);
    for (int steps = 0; !input.empty() && steps < MOST_STEPS; steps++) {
        const uint8_t choice = input.byte();
        t_peer &peer = peers[choice & CLIENT_MASK];
        if (!peer.id)
            connect(peer);
        take_step(peer, static_cast<t_step>((choice >> 2) % STEPS), input);
    }
    for (t_peer &peer : peers)
        if (peer.id)
            close_peer(peer);
    REQUIRE(!ubusd::find_object(ID_BEFORE_FIRST + 2));
    return 0;
}
