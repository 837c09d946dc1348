// SPDX-License-Identifier: MIT
// The daemon's whole side of the bus, from its connection to its handlers, against a bus daemon that sends anything.
// The input is a row of steps: a byte that chooses the step, and what that step needs. Bytes that a call waits for have
// to be there before it; a wait for bytes that never come ends with the connection, or with the call's own time limit.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <libubus.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "adapters/engine_handlers.h"
#include "adapters/network_status.h"
#include "model/lists.h"
#include "platform/bus.h"
#include "platform/log.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/private_files.h"
#include "tests/support/world.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr int MOST_STEPS = 64;
constexpr int MOST_TURNS = 1000;
constexpr int MICROSECONDS_PER_MS = 1000;
constexpr int64_t MICROSECONDS_PER_S = 1'000'000;
constexpr uint8_t IPV6 = 0x40;
constexpr uint8_t CONFIRM = 0x80;

enum t_step : uint8_t { PREPARE_BYTES, ARRIVE, ASK_STATUS, FIRE_TIMER, KNOCK_ANSWERED, HANG_UP, REFUSE, ACCEPT, STEPS };

// The one connection at a time that matters, and what the loop would watch.
std::string arriving;
std::string sent;
bool hung_up;
bool refused;
std::vector<uloop_fd *> watched;
std::vector<uloop_timeout *> timers;

ssize_t take(void *buffer, size_t size)
{
    const size_t taken = std::min(size, arriving.size());
    if (taken > 0)
        memcpy(buffer, arriving.data(), taken);
    arriving.erase(0, taken);
    return static_cast<ssize_t>(taken);
}

template <typename Thing> void forget(std::vector<Thing *> &things, Thing *thing)
{
    things.erase(std::remove(things.begin(), things.end(), thing), things.end());
}

bool is_watched(const uloop_fd *fd)
{
    return std::find(watched.begin(), watched.end(), fd) != watched.end();
}

// As the loop does while bytes are left; after a hang-up it takes the descriptor out and calls once more.
void serve()
{
    ubus_context *context = wan_detect_ubus_context();
    for (int turn = 0; context && is_watched(&context->sock) && (hung_up || !arriving.empty()); turn++) {
        REQUIRE(turn < MOST_TURNS);
        if (hung_up) {
            forget(watched, &context->sock);
            context->sock.registered = false;
            context->sock.eof = context->sock.error = true;
        }
        context->sock.cb(&context->sock, ULOOP_READ);
        context = wan_detect_ubus_context();
    }
}

void fire_first_timer()
{
    if (timers.empty())
        return;
    uloop_timeout *timer = timers.front();
    forget(timers, timer);
    timer->pending = false;
    timer->cb(timer);
}

void answer_knock()
{
    const ubus_context *context = wan_detect_ubus_context();
    for (uloop_fd *fd : watched)
        if (!context || fd != &context->sock) {
            fd->cb(fd, ULOOP_READ);
            return;
        }
}

void take_step(uint8_t choice, t_input &input)
{
    switch (choice % STEPS) {
    case PREPARE_BYTES:
        arriving += text_of(input.block());
        break;
    case ARRIVE:
        arriving += text_of(input.block());
        serve();
        break;
    case ASK_STATUS: {
        const int status = get_network_status(choice & IPV6, choice & CONFIRM);
        REQUIRE(status >= NETWORK_DISCONNECTED && status <= NETWORK_POOR_CONNECTED);
        break;
    }
    case FIRE_TIMER:
        fire_first_timer();
        break;
    case KNOCK_ANSWERED:
        answer_knock();
        break;
    case HANG_UP:
        hung_up = true;
        serve();
        break;
    case REFUSE:
    case ACCEPT:
        refused = choice % STEPS == REFUSE;
        break;
    }
}

void check_delay(int delay_ms)
{
    REQUIRE(delay_ms >= 0);
}

int check_request(const t_proto_detect_request *request)
{
    REQUIRE(!request->dev || find_device(port_model.dev_hashmap_head, request->dev->name) == request->dev);
    return 0;
}

int store_link(t_device *dev, bool up)
{
    dev->link_active = up;
    return 0;
}

void build_router()
{
    port_model = {};
    for (const char *name : {"eth0", "eth1"})
        add_port_to(port_model, name);
    for (const char *name : {"dhcp", "pppoe"})
        add_protocol_to(port_model, name);
}

// The lowest one, so it is another as soon as one was left open.
int next_descriptor()
{
    const int fd = eventfd(0, EFD_CLOEXEC);
    REQUIRE(fd >= 0);
    close(fd);
    return fd;
}

void forget_connection()
{
    arriving.clear();
    sent.clear();
    hung_up = refused = false;
    watched.clear();
    timers.clear();
}

} // namespace

// A connected one from the start: the daemon asks the kernel whether the library still has a socket of the bus.
extern "C" int __wrap_socket(int, int, int)
{
    hung_up = false;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
        return -1;
    close(ends[1]);
    return ends[0];
}

extern "C" int __wrap_connect(int, const sockaddr *, socklen_t)
{
    errno = ECONNREFUSED;
    return refused ? -1 : 0;
}

// A connection that was hung up still gives what had arrived.
extern "C" int __wrap_poll(pollfd *sockets, nfds_t count, int timeout_ms)
{
    for (nfds_t i = 0; i < count; i++)
        sockets[i].revents = sockets[i].events;
    if (arriving.empty() && !hung_up && count > 0 && (sockets[0].events & POLLIN)) {
        hung_up = timeout_ms < 0;
        fake_clock.advance_ms(std::max(timeout_ms, 0));
        return hung_up ? static_cast<int>(count) : 0;
    }
    return static_cast<int>(count);
}

extern "C" ssize_t __wrap_read(int, void *buffer, size_t size)
{
    if (!arriving.empty() || hung_up)
        return take(buffer, size);
    errno = EAGAIN;
    return -1;
}

extern "C" ssize_t __wrap_readv(int fd, const iovec *parts, int count)
{
    ssize_t total = 0;
    for (int i = 0; i < count; i++) {
        const ssize_t got = __wrap_read(fd, parts[i].iov_base, parts[i].iov_len);
        if (got < 0)
            return total > 0 ? total : got;
        total += got;
        if (static_cast<size_t>(got) < parts[i].iov_len)
            break;
    }
    return total;
}

extern "C" ssize_t __wrap_recv(int, void *buffer, size_t size, int flags)
{
    REQUIRE(flags & MSG_PEEK);
    const size_t taken = std::min(size, arriving.size());
    if (taken > 0)
        memcpy(buffer, arriving.data(), taken);
    return static_cast<ssize_t>(taken);
}

extern "C" ssize_t __wrap_sendmsg(int, const msghdr *message, int)
{
    if (hung_up) {
        errno = EPIPE;
        return -1;
    }
    size_t total = 0;
    for (size_t i = 0; i < message->msg_iovlen; i++) {
        sent.append(static_cast<const char *>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
        total += message->msg_iov[i].iov_len;
    }
    return static_cast<ssize_t>(total);
}

extern "C" int __wrap_shutdown(int, int)
{
    hung_up = true;
    return 0;
}

extern "C" int __wrap_raise(int signal)
{
    REQUIRE(signal == SIGTERM); // an attempt to connect that failed ends the daemon
    return 0;
}

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now)
{
    if (clock != CLOCK_MONOTONIC)
        return __real_clock_gettime(clock, now);
    now->tv_sec = fake_clock.now_us / MICROSECONDS_PER_S;
    now->tv_nsec = fake_clock.now_us % MICROSECONDS_PER_S * MICROSECONDS_PER_MS;
    return 0;
}

// The fuzzer keeps its signals.
extern "C" int __wrap_uloop_init()
{
    return 0;
}

extern "C" int __wrap_uloop_fd_add(uloop_fd *fd, unsigned)
{
    if (!is_watched(fd))
        watched.push_back(fd);
    fd->registered = true;
    fd->eof = fd->error = false;
    return 0;
}

extern "C" int __wrap_uloop_fd_delete(uloop_fd *fd)
{
    forget(watched, fd);
    fd->registered = false;
    return 0;
}

extern "C" int __wrap_uloop_timeout_set(uloop_timeout *timer, int)
{
    forget(timers, timer);
    timers.push_back(timer);
    timer->pending = true;
    return 0;
}

extern "C" int __wrap_uloop_timeout_cancel(uloop_timeout *timer)
{
    forget(timers, timer);
    timer->pending = false;
    return 0;
}

void prepare()
{
    enter_private_files();
    write_private_file("/tmp/wan_detect.log", "");
    log_set_level(LOG_LEVEL_Debug);
    static t_bound_gate gate;
    engine_handlers = {check_delay, check_request, store_link, nullptr};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const int first_descriptor = next_descriptor();
    forget_connection();
    build_router();
    arriving = text_of(input.block());
    if (wan_detect_ubus_init(wan_detect_bus_exports()) == 0)
        for (int steps = 0; !input.empty() && steps < MOST_STEPS; steps++)
            take_step(input.byte(), input);
    wan_detect_ubus_done();
    wan_detect_bus_exports_release();
    REQUIRE(timers.empty() && watched.empty());
    free_device_list(&port_model.banned_list.head);
    release_port_model(&port_model);
    log_close(); // the method "log" may have opened it
    log_set_level(LOG_LEVEL_Debug);
    REQUIRE(next_descriptor() == first_descriptor);
    return 0;
}
