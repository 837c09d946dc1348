// SPDX-License-Identifier: MIT
// The log printer, and where descriptors 0 to 2 lead while the log is open.
#include "platform/log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/guards.h"
#include "platform/text.h"

int log_level = LOG_LEVEL_Error;

constexpr const char *LOG_FILE = "/tmp/wan_detect.log";
constexpr const char *CONSOLE = "/dev/console";
constexpr int STANDARD_DESCRIPTORS = 3;
constexpr size_t PREFIX_SIZE = 128;
constexpr char LEVEL_WORDS[] = "\0\0Critical\0Error\0Warning\0Notice\0Info\0Debug\0";
static_assert(count_of_texts(LEVEL_WORDS) == LOG_LEVEL_Debug + 1);

// When descriptors 0 to 2 are led elsewhere.
enum class t_opening : uint8_t { when_asked, with_first_line, never };

static std::atomic<t_opening> opening = t_opening::when_asked;
static int console_fd = -1;
static int saved_fds[STANDARD_DESCRIPTORS] = {-1, -1, -1};

// A daemon started with closed standard descriptors would get one of them for the log and then close it itself.
static int above_standard_descriptors(int fd)
{
    if (fd < 0 || fd >= STANDARD_DESCRIPTORS)
        return fd;
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, STANDARD_DESCRIPTORS);
    close(fd);
    return moved;
}

namespace {

// Standard output, or standard error; one thread at a time. Whoever speaks is held up by no reader for longer than
// LOG_WAIT_LIMIT_MS.
class t_outlet {
public:
    constexpr t_outlet(int standard_fd, const char *path) : standard_fd_(standard_fd), path_(path) {}
    void put(const char *text, size_t size);
    void leave();

private:
    int fd_of_line();
    ssize_t write_now(int fd, const char *text, size_t size) const;
    bool has_room(int fd, t_time_stamp start);
    bool may_try_again(t_time_stamp start);
    size_t write_to(int fd, const char *text, size_t size, t_time_stamp start);

    const int standard_fd_;
    const char *const path_;
    int own_fd_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool is_socket_ = false;
    bool reader_is_deaf_ = false;
    bool line_was_cut_ = false;
};

constinit t_outlet output(STDOUT_FILENO, "/proc/self/fd/1");
constinit t_outlet complaints(STDERR_FILENO, "/proc/self/fd/2");
pthread_mutex_t turn = PTHREAD_MUTEX_INITIALIZER;

void t_outlet::leave()
{
    if (own_fd_ != -1)
        close(own_fd_);
    own_fd_ = -1;
    line_was_cut_ = false;
}

// The room that there is may be taken by another program, and a terminal may have it for one byte, so lines go through
// a descriptor that does not wait; not the one that others share, who would not expect it. Where none can be had a pipe
// is written to all the same, and a terminal, which may be stopped for hours, is not: -1.
int t_outlet::fd_of_line()
{
    struct stat status = {};
    is_socket_ = fstat(standard_fd_, &status) == 0 && S_ISSOCK(status.st_mode);
    const bool is_pipe = S_ISFIFO(status.st_mode);
    if (!is_pipe && !isatty(standard_fd_))
        return standard_fd_;
    if (own_fd_ != -1 && (status.st_dev != device_ || status.st_ino != inode_))
        leave();
    if (own_fd_ == -1) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
        own_fd_ = above_standard_descriptors(open(path_, O_WRONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    }
    return own_fd_ == -1 && is_pipe ? standard_fd_ : own_fd_;
}

ssize_t t_outlet::write_now(int fd, const char *text, size_t size) const
{
    return is_socket_ ? sendto(fd, text, size, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0) : write(fd, text, size);
}

// A pipe that a service manager reads no more, or a console that was told to wait, would hold up whoever speaks. Where
// nobody can tell there is room.
bool t_outlet::has_room(int fd, t_time_stamp start)
{
    pollfd out = {fd, POLLOUT, 0};
    int ready = 0;
    do {
        const int64_t left_ms =
            reader_is_deaf_ ? 0 : std::max<int64_t>(LOG_WAIT_LIMIT_MS - milliseconds_since(start), 0);
        ready = poll(&out, 1, static_cast<int>(left_ms));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0)
        reader_is_deaf_ = true;
    return ready != 0;
}

// Another program took the room, or writes to the same terminal just now.
bool t_outlet::may_try_again(t_time_stamp start)
{
    if (errno == EINTR)
        return true;
    if (errno != EAGAIN)
        return false;
    if (milliseconds_since(start) >= LOG_WAIT_LIMIT_MS)
        reader_is_deaf_ = true;
    if (!reader_is_deaf_)
        sleep_ms(1);
    return !reader_is_deaf_;
}

// How much was written; the rest has no room in time, or no reader ever.
size_t t_outlet::write_to(int fd, const char *text, size_t size, t_time_stamp start)
{
    size_t done = 0;
    while (done < size && has_room(fd, start)) {
        const ssize_t written = write_now(fd, text + done, std::min<size_t>(size - done, PIPE_BUF));
        if (written > 0) {
            reader_is_deaf_ = false;
            done += static_cast<size_t>(written);
        } else if (written == 0 || !may_try_again(start)) {
            break;
        }
    }
    return done;
}

void t_outlet::put(const char *text, size_t size)
{
    const t_time_stamp start = get_time_stamp();
    const int fd = fd_of_line();
    if (fd == -1 || (line_was_cut_ && write_to(fd, "\n", 1, start) == 0))
        return;
    const size_t written = write_to(fd, text, size, start);
    line_was_cut_ = written > 0 && written < size;
}

struct t_free {
    void operator()(char *text) const { free(text); }
};

} // namespace

// `format` may end the line; without memory for one that is longer than LOG_LINE_SIZE it is cut.
static void __attribute__((format(printf, 3, 0)))
put_line(t_outlet *outlet, const char *prefix, const char *format, va_list arguments)
{
    char line[LOG_LINE_SIZE];
    const size_t start = bounded_copy(line, prefix, sizeof line);
    va_list again;
    va_copy(again, arguments);
    const int wanted = vsnprintf(line + start, sizeof line - start, format, arguments);
    const size_t size = start + static_cast<size_t>(std::max(wanted, 0));
    const std::unique_ptr<char, t_free> longer(size < sizeof line ? nullptr : static_cast<char *>(malloc(size + 1)));
    if (longer) {
        bounded_copy(longer.get(), prefix, size + 1);
        vsnprintf(longer.get() + start, size + 1 - start, format, again);
    } else if (size >= sizeof line) {
        line[sizeof line - 2] = '\n';
    }
    va_end(again);
    t_mutex_guard speaking(turn);
    outlet->put(longer ? longer.get() : line, longer ? size : std::min(size, sizeof line - 1));
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

void log_say(t_log_place place, const char *function, const char *format, ...)
{
    if (log_get_level() < place.level)
        return;
    if (opening == t_opening::with_first_line)
        log_open();
    char prefix[PREFIX_SIZE];
    snprintf(prefix, sizeof prefix, "[wan_detect][%s][%ld][%s:%d]: ", text_at(LEVEL_WORDS, place.level), log_uptime(),
             function, place.line);
    va_list arguments;
    va_start(arguments, format);
    put_line(&output, prefix, format, arguments);
    va_end(arguments);
}

void log_enter(uint16_t line, const char *function)
{
    log_say({LOG_LEVEL_Debug, line}, function, "Entering function: %s!\n", function);
}

void log_print_always(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    put_line(&output, "", format, arguments);
    va_end(arguments);
}

void log_complain(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    put_line(&complaints, "", format, arguments);
    va_end(arguments);
}

long log_uptime()
{
    struct sysinfo info = {};
    if (sysinfo(&info) == 0)
        return info.uptime;
    log_complain("Failed to get sysinfo, errno:%u, reason:%s\n", static_cast<unsigned>(errno), strerror(errno));
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
    console_fd = above_standard_descriptors(open_destination());
    if (console_fd == -1)
        return;
    t_mutex_guard speaking(turn);
    output.leave();
    complaints.leave();
    for (int fd = 0; fd < STANDARD_DESCRIPTORS; fd++) {
        saved_fds[fd] = fcntl(fd, F_DUPFD_CLOEXEC, STANDARD_DESCRIPTORS);
        // dup2 closes the old one itself; closed by hand, its number could go to another thread's socket meanwhile.
        dup2(console_fd, fd);
    }
}

void log_close()
{
    log_set_level(LOG_LEVEL_NONE);
    t_mutex_guard speaking(turn);
    output.leave();
    complaints.leave();
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
