// SPDX-License-Identifier: MIT
// The log printer, and where descriptors 0 to 2 lead while the log is open.
#include "platform/log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

int log_level = LOG_LEVEL_Error;

constexpr const char *LOG_FILE = "/tmp/wan_detect.log";
constexpr const char *CONSOLE = "/dev/console";
constexpr int STANDARD_DESCRIPTORS = 3;
constexpr const char *LEVEL_WORDS[] = {"", "", "Critical", "Error", "Warning", "Notice", "Info", "Debug"};

static std::atomic<bool> stream_prepared;
static int console_fd = -1;
static int saved_fds[STANDARD_DESCRIPTORS] = {-1, -1, -1};

// A file or pipe as standard output would be buffered in blocks, and a reader of the log would see lines late and cut.
static void prepare_stream()
{
    if (stream_prepared)
        return;
    stream_prepared = true;
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

// Whatever stands at that path: a pipe that nobody reads, or a line without a carrier, does not hold the caller up.
static int open_for_writing(const char *path, int flags = 0)
{
    const int fd = open(path, O_WRONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK | flags);
    if (fd >= 0)
        fcntl(fd, F_SETFL, O_WRONLY);
    return fd;
}

// Anybody may put something there. A link or a second name would lead root's pen into any file, a pipe would hold the
// daemon up once it is full.
static bool is_plain_file_of_our_own(int fd)
{
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

// The file is never created here: whoever wants the log there creates it first.
static int open_destination()
{
    const int fd = open_for_writing(LOG_FILE, O_NOFOLLOW);
    if (fd >= 0 && is_plain_file_of_our_own(fd))
        return fd;
    if (fd >= 0)
        close(fd);
    return open_for_writing(CONSOLE);
}

// A daemon started with closed standard descriptors would get one of them for the log and then close it itself.
static int above_standard_descriptors(int fd)
{
    if (fd < 0 || fd >= STANDARD_DESCRIPTORS)
        return fd;
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, STANDARD_DESCRIPTORS);
    close(fd);
    return moved;
}

void log_say(t_log_place place, const char *function, const char *format, ...)
{
    prepare_stream();
    const long uptime = log_uptime();
    va_list arguments;
    va_start(arguments, format);
    flockfile(stdout);
    printf("[wan_detect][%s][%ld][%s:%d]: ", LEVEL_WORDS[place.level], uptime, function, place.line);
    vprintf(format, arguments);
    funlockfile(stdout);
    va_end(arguments);
}

void log_enter(t_log_place place, const char *function)
{
    log_say(place, function, "Entering function: %s!\n", function);
}

void log_print_always(const char *format, ...)
{
    prepare_stream();
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    fflush(stdout);
}

long log_uptime()
{
    struct sysinfo info = {};
    if (sysinfo(&info) == 0)
        return info.uptime;
    fprintf(stderr, "Failed to get sysinfo, errno:%u, reason:%s\n", static_cast<unsigned>(errno), strerror(errno));
    return -1;
}

void log_open()
{
    if (console_fd != -1)
        return;
    prepare_stream();
    console_fd = above_standard_descriptors(open_destination());
    if (console_fd == -1)
        return;
    fflush(stdout);
    for (int fd = 0; fd < STANDARD_DESCRIPTORS; fd++) {
        saved_fds[fd] = fcntl(fd, F_DUPFD_CLOEXEC, STANDARD_DESCRIPTORS);
        // dup2 closes the old one itself; closed by hand, its number could go to another thread's socket meanwhile.
        dup2(console_fd, fd);
    }
}

void log_close()
{
    log_set_level(LOG_LEVEL_NONE);
    fflush(stdout);
    for (int fd = 0; fd < STANDARD_DESCRIPTORS; fd++) {
        if (saved_fds[fd] == -1)
            continue;
        dup2(saved_fds[fd], fd);
        close(saved_fds[fd]);
        saved_fds[fd] = -1;
    }
    if (console_fd == -1)
        return;
    close(console_fd);
    console_fd = -1;
}

void log_done()
{
    log_close();
    if (console_fd == -1)
        return;
    LOG(Debug, "close console_fd!\n");
    close(console_fd);
    console_fd = -1;
}
