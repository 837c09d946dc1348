// SPDX-License-Identifier: MIT
#include "platform/uci_commit.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/disk_room.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/tallies.h"
#include "platform/text.h"
#include "platform/uci_context.h"
#include "platform/uci_limits.h"
#include "platform/uci_lock.h"
#include "platform/uci_save_folder.h"

constexpr mode_t MODE_BITS = 07777;

namespace {

struct t_text {
    char *bytes = nullptr; // owns
    size_t size = 0;

    t_text() = default;
    ~t_text() { free(bytes); }
    t_text(const t_text &) = delete;
    t_text &operator=(const t_text &) = delete;
};

} // namespace

static bool is_same(const t_text &a, const t_text &b)
{
    return a.size == b.size && memcmp(a.bytes, b.bytes, a.size) == 0;
}

// A text as the library writes it begins and ends with an empty line.
static bool is_cut(const t_text &found, const t_text &wanted)
{
    if (found.size >= wanted.size || memcmp(found.bytes, wanted.bytes, found.size) != 0)
        return false;
    return found.size < 2 || memcmp(found.bytes + found.size - 2, "\n\n", 2) != 0;
}

// The text that a commit would write.
static int write_text(uci_context *context, uci_package *package, t_text *text)
{
    FILE *stream = open_memstream(&text->bytes, &text->size);
    if (!stream)
        return UCI_ERR_MEM;
    const int result = uci_export(context, stream, package, false);
    return fclose(stream) == 0 ? result : static_cast<int>(UCI_ERR_MEM);
}

namespace {

enum class t_changes { none, waiting };

} // namespace

// The same of the package as it is stored, with the changes that wait or without.
static int write_stored_text(const char *name, t_changes changes, t_text *text)
{
    const t_uci_context_guard context = open_uci_context();
    if (!context || (changes == t_changes::none && !uci_leave_save_folder(context.get())))
        return UCI_ERR_MEM;
    uci_package *package = nullptr;
    const int result = load_uci_package(context.get(), name, &package);
    return result == UCI_OK ? write_text(context.get(), package, text) : result;
}

// True when neither the file nor the changes that wait hold anything else than `wanted`.
static bool is_stored_already(const char *name, const t_text &wanted)
{
    for (t_changes changes : {t_changes::none, t_changes::waiting}) {
        t_text stored;
        if (write_stored_text(name, changes, &stored) != UCI_OK || !is_same(stored, wanted))
            return false;
    }
    return true;
}

static bool read_all(int fd, size_t size, t_text *text)
{
    text->bytes = static_cast<char *>(malloc(size + 1));
    if (!text->bytes)
        return false;
    while (text->size < size) {
        const ssize_t got = read(fd, text->bytes + text->size, size - text->size);
        if (got <= 0)
            return false;
        text->size += static_cast<size_t>(got);
    }
    return true;
}

namespace {

enum class t_lock { none, exclusive };

} // namespace

// False when the file is no file, or cannot be locked in time; the lock ends with the call.
static bool read_file(const char *path, t_lock lock, t_text *text, mode_t *mode)
{
    const t_fd_guard guard(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat file = {};
    if (guard.fd < 0 || (lock == t_lock::exclusive && flock(guard.fd, LOCK_EX) != 0) || fstat(guard.fd, &file) != 0 ||
        !S_ISREG(file.st_mode))
        return false;
    *mode = file.st_mode & MODE_BITS;
    return read_all(guard.fd, static_cast<size_t>(file.st_size), text);
}

static bool write_draft(int fd, const t_text &text, mode_t mode)
{
    size_t written = 0;
    while (written < text.size) {
        const ssize_t put = write(fd, text.bytes + written, text.size - written);
        if (put <= 0)
            return false;
        written += static_cast<size_t>(put);
    }
    return fchmod(fd, mode) == 0 && fsync(fd) == 0;
}

// Through a draft, so that there never is half of it.
static bool replace_file(const char *path, const t_text &text, mode_t mode)
{
    char draft[PATH_MAX];
    if (snprintf(draft, sizeof draft, "%s.XXXXXX", path) >= static_cast<int>(sizeof draft))
        return false;
    const t_fd_guard guard(mkostemp(draft, O_CLOEXEC));
    if (guard.fd < 0)
        return false;
    if (write_draft(guard.fd, text, mode) && rename(draft, path) == 0)
        return true;
    unlink(draft);
    return false;
}

// Somebody else may have used up the room while the library wrote. The former text had room before. Whoever replaces
// the file does so as a whole, so neither the look nor the return to the former text waits for a lock.
static int look_after_commit(const char *path, const t_text &former, const t_text &wanted)
{
    t_text found;
    mode_t mode = 0;
    if (!read_file(path, t_lock::none, &found, &mode)) {
        LOG(Error, "%s cannot be read after its commit\n", path);
        return UCI_ERR_IO;
    }
    if (!is_cut(found, wanted))
        return UCI_OK;
    const bool is_back = replace_file(path, former, mode);
    LOG(Error, "%s was cut by its commit, its former text is %s\n", path, is_back ? "back" : "lost");
    return UCI_ERR_IO;
}

static bool has_room(const char *path, const t_text &former, const t_text &wanted)
{
    char folder[PATH_MAX];
    bounded_copy(folder, path, sizeof folder);
    *strrchr(folder, '/') = '\0';
    return has_disk_room(folder, wanted.size, former.size);
}

// False when the file cannot be read or locked, or when there is no room beside it.
static bool may_be_replaced(const char *path, const t_text &wanted, t_text *former)
{
    mode_t mode = 0;
    return read_file(path, t_lock::exclusive, former, &mode) && has_room(path, *former, wanted);
}

int commit_uci_package(uci_context *context, uci_package **package)
{
    t_text wanted;
    const int written = write_text(context, *package, &wanted);
    if (written != UCI_OK)
        return written;
    char name[UCI_PATH_SIZE]; // the package does not outlive the commit
    bounded_copy(name, (*package)->e.name, sizeof name);
    if (is_stored_already(name, wanted))
        return UCI_OK;
    char path[PATH_MAX];
    t_text former;
    if (!realpath((*package)->path, path) || !uci_may_wait(context, name))
        return UCI_ERR_IO;
    const t_uci_own_save_folder folder(context, name);
    if (!folder.is_ready())
        return UCI_ERR_IO;
    if (!may_be_replaced(path, wanted, &former)) {
        uci_save(context, *package);
        return UCI_ERR_IO;
    }
    const t_uci_lock_watch locks;
    const int result = uci_commit(context, package, false);
    if (result != UCI_OK)
        return result;
    const int seen = look_after_commit(path, former, wanted);
    if (locks.gave_up() || seen != UCI_OK)
        return UCI_ERR_IO;
    tallies.commits.add(1);
    return UCI_OK;
}
