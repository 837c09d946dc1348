// SPDX-License-Identifier: MIT
// The library's only wait is inside flock(), so this program has a flock() of its own, which the library is linked to
// like all of us: it gives up in time. A signal could end the wait, too, but it could also cut short the write of a
// commit that follows it.
#include "platform/uci_lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/ending.h"

constexpr uint32_t LOCK_POLL_MS = 5;
constexpr unsigned REFUSED_FILES = 8; // as many as are remembered

namespace {

struct t_file_id {
    dev_t device;
    ino_t number;
};

struct t_patience {
    int64_t spent_ms; // of the limit, at the end of the last wait
    t_time_stamp last_wait;
    unsigned given_up;
    unsigned refusals; // since all of the time was got back
    t_file_id refused[REFUSED_FILES];
};

} // namespace

// Of the program itself, so that no call into the loader is needed to find it.
static __attribute__((tls_model("initial-exec"))) thread_local t_patience patience;

static int lock_at_once(int fd, int operation)
{
    return static_cast<int>(syscall(SYS_flock, fd, operation | LOCK_NB));
}

static t_file_id identify(int fd)
{
    struct stat file = {};
    return fstat(fd, &file) == 0 ? t_file_id{file.st_dev, file.st_ino} : t_file_id{};
}

static bool was_refused(const t_file_id &file)
{
    const t_file_id *first = patience.refused;
    return std::any_of(first, first + std::min(patience.refusals, REFUSED_FILES),
                       [&](const t_file_id &one) { return one.device == file.device && one.number == file.number; });
}

static int64_t limit_of_wait_ms(const t_file_id &file, int64_t spent_ms)
{
    if (spent_ms == 0)
        patience.refusals = 0;
    const int64_t left_ms = uci_lock_limit() - spent_ms;
    return was_refused(file) ? left_ms : std::max(left_ms, UCI_LOCK_FLOOR_MS);
}

// What was spent of a longer limit counts as all of the shorter one that came after it.
static int64_t spent_of_limit_ms()
{
    const int64_t spent_ms = std::min(patience.spent_ms, uci_lock_limit());
    return std::max(spent_ms - milliseconds_since(patience.last_wait), int64_t{0});
}

// With the error of a wait that a signal has ended.
static int give_up(const t_file_id &file)
{
    if (!was_refused(file))
        patience.refused[patience.refusals++ % REFUSED_FILES] = file;
    patience.given_up++;
    errno = EINTR;
    return -1;
}

static int lock_within_limit(int fd, int operation)
{
    int result = lock_at_once(fd, operation);
    if (result == 0 || errno != EWOULDBLOCK)
        return result;
    const t_time_stamp start = get_time_stamp();
    const int64_t spent_ms = spent_of_limit_ms();
    const t_file_id file = identify(fd);
    int64_t waited_ms = 0;
    errno = EWOULDBLOCK;
    while (result != 0 && errno == EWOULDBLOCK && waited_ms < limit_of_wait_ms(file, spent_ms)) {
        sleep_ms(LOCK_POLL_MS);
        result = lock_at_once(fd, operation);
        waited_ms = milliseconds_since(start);
    }
    patience.spent_ms = spent_ms + waited_ms;
    patience.last_wait = get_time_stamp();
    return result != 0 && errno == EWOULDBLOCK ? give_up(file) : result;
}

static std::atomic<int> limit{UCI_LOCK_LIMIT_MS};

void set_uci_lock_limit(int64_t milliseconds)
{
    limit = static_cast<int>(milliseconds);
}

int64_t uci_lock_limit()
{
    const int64_t wanted_ms = limit;
    return end_is_asked_for() ? std::min(wanted_ms, UCI_LOCK_LIMIT_MS) : wanted_ms;
}

unsigned uci_locks_given_up()
{
    return patience.given_up;
}

extern "C" __attribute__((visibility("default"))) int flock(int fd, int operation) noexcept(noexcept(flock(0, 0)))
{
    if (operation & (LOCK_NB | LOCK_UN))
        return static_cast<int>(syscall(SYS_flock, fd, operation));
    return lock_within_limit(fd, operation);
}
