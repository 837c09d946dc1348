// SPDX-License-Identifier: MIT
// The log printer, and where descriptors 0 to 2 lead while the log is open.
#include "platform/log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/text.h"

int log_level = LOG_LEVEL_Error;

constexpr const char *LOG_FILE = "/tmp/wan_detect.log";
constexpr const char *CONSOLE = "/dev/console";
constexpr int STANDARD_DESCRIPTORS = 3;
constexpr char LEVEL_WORDS[] = "\0\0Critical\0Error\0Warning\0Notice\0Info\0Debug\0";
static_assert(count_of_texts(LEVEL_WORDS) == LOG_LEVEL_Debug + 1);

// When descriptors 0 to 2 are led elsewhere.
enum class t_opening : uint8_t { when_asked, with_first_line, never };

static std::atomic<t_opening> opening = t_opening::when_asked;
static std::atomic<bool> stream_prepared;
static std::atomic<bool> reader_is_deaf;
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

// A pipe that a service manager reads no more, or a console that was told to wait, would hold up whoever speaks. Where
// there is room at all there is room for a line, and where nobody can tell as well.
static bool there_is_room()
{
    pollfd out = {STDOUT_FILENO, POLLOUT, 0};
    const t_time_stamp start = get_time_stamp();
    int64_t left_ms = reader_is_deaf ? 0 : LOG_WAIT_LIMIT_MS;
    int ready = 0;
    while ((ready = poll(&out, 1, static_cast<int>(left_ms))) < 0 && errno == EINTR)
        left_ms = std::max<int64_t>(LOG_WAIT_LIMIT_MS - milliseconds_since(start), 0);
    reader_is_deaf = ready == 0;
    return !reader_is_deaf;
}

namespace {

// While one exists no other thread speaks.
struct t_turn {
    t_turn()
    {
        flockfile(stdout);
        has_room = there_is_room();
    }
    ~t_turn() { funlockfile(stdout); }
    t_turn(const t_turn &) = delete;
    t_turn &operator=(const t_turn &) = delete;

    bool has_room;
};

} // namespace

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
    if (log_get_level() < place.level)
        return;
    if (opening == t_opening::with_first_line)
        log_open();
    prepare_stream();
    const long uptime = log_uptime();
    const t_turn turn;
    if (!turn.has_room)
        return;
    va_list arguments;
    va_start(arguments, format);
    printf("[wan_detect][%s][%ld][%s:%d]: ", text_at(LEVEL_WORDS, place.level), uptime, function, place.line);
    vprintf(format, arguments);
    va_end(arguments);
}

void log_enter(uint16_t line, const char *function)
{
    log_say({LOG_LEVEL_Debug, line}, function, "Entering function: %s!\n", function);
}

void log_print_always(const char *format, ...)
{
    prepare_stream();
    const t_turn turn;
    if (!turn.has_room)
        return;
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

void log_open_with_first_line()
{
    opening = t_opening::with_first_line;
}

void log_stay_on_standard_output()
{
    opening = t_opening::never;
}

void log_open()
{
    if (console_fd != -1 || opening == t_opening::never)
        return;
    opening = t_opening::when_asked;
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
    opening = t_opening::when_asked;
    if (console_fd == -1)
        return;
    LOG(Debug, "close console_fd!\n");
    close(console_fd);
    console_fd = -1;
}
