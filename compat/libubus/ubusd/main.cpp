// SPDX-License-Identifier: MIT
// The bus daemon: options, the listening socket, start and end.
#include "bus.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace ubusd {
namespace {

constexpr int EXIT_USAGE = 1;
constexpr int EXIT_NO_SOCKET = 255;
constexpr char DEFAULT_ACCESS_FOLDER[] = "/usr/share/acl.d";
constexpr mode_t DIRECTORY_MODE = 0755;
constexpr mode_t SOCKET_UMASK = 0111;

uloop_fd listener;
// Given up for a moment when descriptors run out, so that a connection can be accepted and closed: left waiting, it
// would keep the loop busy.
int spare_fd = -1;
const char *access_folder = DEFAULT_ACCESS_FOLDER;
uloop_signal reload;

int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-s <socket>] [-A <directory>]\n"
            "  -s <socket>     listen here (default %s)\n"
            "  -A <directory>  access lists of others than root (default %s)\n",
            program, ubus_frame::DEFAULT_SOCKET, DEFAULT_ACCESS_FOLDER);
    return EXIT_USAGE;
}

void open_spare_fd()
{
    spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void refuse_connection()
{
    close(spare_fd);
    int fd = accept4(listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
        close(fd);
    }
    open_spare_fd();
}

void accept_connections(uloop_fd *, unsigned int)
{
    for (;;) {
        int fd = accept4(listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            add_client(fd);
        } else if (errno == EMFILE || errno == ENFILE) {
            refuse_connection();
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

// The listening socket, or -1 with errno. Whoever listened there before is replaced.
int open_listener(const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path) + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    unlink(path);
    umask(SOCKET_UMASK);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0 || listen(fd, SOMAXCONN) < 0) {
        int reason = errno;
        close(fd);
        errno = reason;
        return -1;
    }
    return fd;
}

void set_termination_signals(int how)
{
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    sigaddset(&termination, SIGINT);
    sigprocmask(how, &termination, nullptr);
}

void admit_termination(uloop_timeout *)
{
    set_termination_signals(SIG_UNBLOCK);
}

// A signal before the loop runs would be forgotten when it starts, so it has to wait for the first turn.
void serve()
{
    uloop_timeout started = {};
    started.cb = admit_termination;
    uloop_timeout_set(&started, 0);
    uloop_run();
}

void read_access_lists_again(uloop_signal *)
{
    read_access_lists(access_folder);
}

int run(const char *path)
{
    signal(SIGHUP, SIG_IGN);
    set_termination_signals(SIG_BLOCK);
    if (uloop_init() < 0 || open_random_source() < 0) {
        perror("ubusd");
        return EXIT_FAILURE;
    }
    initialise_clients();
    initialise_objects();
    if (strcmp(path, ubus_frame::DEFAULT_SOCKET) == 0)
        mkdir(ubus_frame::DEFAULT_SOCKET_DIRECTORY, DIRECTORY_MODE);
    open_spare_fd();
    listener.fd = open_listener(path);
    if (listener.fd < 0) {
        perror("usock");
        return EXIT_NO_SOCKET;
    }
    listener.cb = accept_connections;
    uloop_fd_add(&listener, ULOOP_READ);
    read_access_lists(access_folder);
    reload.signo = SIGHUP;
    reload.cb = read_access_lists_again;
    uloop_signal_add(&reload);
    serve();
    unlink(path);
    return EXIT_SUCCESS;
}

} // namespace
} // namespace ubusd

int main(int argc, char **argv)
{
    const char *path = ubus_frame::DEFAULT_SOCKET;
    int option;
    while ((option = getopt(argc, argv, "s:A:")) != -1) {
        switch (option) {
        case 's':
            path = optarg;
            break;
        case 'A':
            ubusd::access_folder = optarg;
            break;
        default:
            return ubusd::usage(argv[0]);
        }
    }
    return optind < argc ? ubusd::usage(argv[0]) : ubusd::run(path);
}
