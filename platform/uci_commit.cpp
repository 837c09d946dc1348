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
#include "platform/text.h"
#include "platform/uci_context.h"
#include "platform/uci_limits.h"
#include "platform/uci_lock.h"
#include "platform/uci_save_folder.h"

namespace {

constexpr const char *UCI_SAVEDIR_PARENT = "/tmp";
constexpr mode_t MODE_BITS = 07777;

struct t_text {
    char *bytes = nullptr; // owns
    size_t size = 0;

    t_text() = default;
    ~t_text() { free(bytes); }
    t_text(const t_text &) = delete;
    t_text &operator=(const t_text &) = delete;
};

bool is_same(const t_text &a, const t_text &b)
{
    return a.size == b.size && memcmp(a.bytes, b.bytes, a.size) == 0;
}

// A text as the library writes it begins and ends with an empty line.
bool is_cut(const t_text &found, const t_text &wanted)
{
    if (found.size >= wanted.size || memcmp(found.bytes, wanted.bytes, found.size) != 0)
        return false;
    return found.size < 2 || memcmp(found.bytes + found.size - 2, "\n\n", 2) != 0;
}

// The text that a commit would write.
int write_text(uci_context *context, uci_package *package, t_text *text)
{
    FILE *stream = open_memstream(&text->bytes, &text->size);
    if (!stream)
        return UCI_ERR_MEM;
    const int result = uci_export(context, stream, package, false);
    return fclose(stream) == 0 ? result : static_cast<int>(UCI_ERR_MEM);
}

enum class t_changes { none, waiting };

// The same of the package as it is stored, with the changes that wait or without.
int write_stored_text(const char *name, t_changes changes, t_text *text)
{
    t_uci_context_guard guard(open_uci_context());
    if (!guard.context || (changes == t_changes::none && !uci_leave_save_folder(guard.context)))
        return UCI_ERR_MEM;
    uci_package *package = nullptr;
    const int result = load_uci_package(guard.context, name, &package);
    return result == UCI_OK ? write_text(guard.context, package, text) : result;
}

// True when neither the file nor the changes that wait hold anything else than `wanted`.
bool is_stored_already(const char *name, const t_text &wanted)
{
    for (t_changes changes : {t_changes::none, t_changes::waiting}) {
        t_text stored;
        if (write_stored_text(name, changes, &stored) != UCI_OK || !is_same(stored, wanted))
            return false;
    }
    return true;
}

bool read_all(int fd, size_t size, t_text *text)
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

// A configuration file that nobody else reads or writes as long as this exists; for the library, too, it is locked.
class t_locked_file {
public:
    explicit t_locked_file(const char *path) : guard_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}

    // False when the file is no file or cannot be locked in time.
    bool read(t_text *text, mode_t *mode) const
    {
        struct stat file = {};
        if (guard_.fd < 0 || flock(guard_.fd, LOCK_EX) != 0 || fstat(guard_.fd, &file) != 0 || !S_ISREG(file.st_mode))
            return false;
        *mode = file.st_mode & MODE_BITS;
        return read_all(guard_.fd, static_cast<size_t>(file.st_size), text);
    }

private:
    t_fd_guard guard_;
};

bool write_draft(int fd, const t_text &text, mode_t mode)
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
bool replace_file(const char *path, const t_text &text, mode_t mode)
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

// Somebody else may have used up the room while the library wrote. The former text had room before.
int look_after_commit(const char *path, const t_text &former, const t_text &wanted)
{
    const t_locked_file file(path);
    t_text found;
    mode_t mode = 0;
    if (!file.read(&found, &mode) || !is_cut(found, wanted))
        return UCI_OK;
    const bool is_back = replace_file(path, former, mode);
    LOG(Error, "%s was cut by its commit, its former text is %s\n", path, is_back ? "back" : "lost");
    return UCI_ERR_IO;
}

// Half a change that waits would be passed over in silence.
bool may_wait()
{
    return has_disk_room(access(UCI_SAVEDIR, F_OK) == 0 ? UCI_SAVEDIR : UCI_SAVEDIR_PARENT, 1, 0);
}

bool has_room(const char *path, const t_text &former, const t_text &wanted)
{
    char folder[PATH_MAX];
    bounded_copy(folder, path, sizeof folder);
    *strrchr(folder, '/') = '\0';
    return has_disk_room(folder, wanted.size, former.size);
}

// False when the file cannot be read or locked, or when there is no room beside it.
bool may_be_replaced(const char *path, const t_text &wanted, t_text *former)
{
    mode_t mode = 0;
    return t_locked_file(path).read(former, &mode) && has_room(path, *former, wanted);
}

} // namespace

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
    const t_uci_own_save_folder folder(context, name);
    if (!folder.is_ready() || !realpath((*package)->path, path) || !may_wait())
        return UCI_ERR_IO;
    if (!may_be_replaced(path, wanted, &former)) {
        uci_save(context, *package);
        return UCI_ERR_IO;
    }
    const t_uci_lock_watch locks;
    const int result = uci_commit(context, package, false);
    if (result != UCI_OK || locks.gave_up())
        return result != UCI_OK ? result : static_cast<int>(UCI_ERR_IO);
    return look_after_commit(path, former, wanted);
}
