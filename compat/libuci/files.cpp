// SPDX-License-Identifier: MIT
// Files: reading under a lock, and replacing one so that a power cut leaves the old or the new.
#include "files.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace uci_impl {

namespace {

constexpr size_t first_read_size = 4096;     // bytes
constexpr size_t largest_file = INT_MAX / 2; // bytes; positions in error texts are ints
constexpr mode_t mode_bits = 07777;
constexpr int most_reopenings = 1000; // of a file that others keep replacing

int code_of_errno()
{
    return errno == ENOENT || errno == ENOTDIR || errno == ENXIO ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
}

// A signal ends the wait, and whoever wants the file has failed.
int wait_for_lock(int fd, int operation)
{
    return flock(fd, operation) == 0 ? UCI_OK : UCI_ERR_IO;
}

bool is_same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int open_locked(const char *path, int flags, mode_t mode, int lock, scoped_fd *fd)
{
    for (int i = 0; i < most_reopenings; ++i) {
        // Not to be held up by a FIFO, which is refused below.
        fd->reset(open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
        if (!fd->valid())
            return code_of_errno();
        struct stat opened = {};
        if (fstat(fd->get(), &opened) != 0)
            return UCI_ERR_IO;
        if (!S_ISREG(opened.st_mode))
            return UCI_ERR_NOTFOUND;
        int rc = wait_for_lock(fd->get(), lock);
        if (rc != UCI_OK)
            return rc;
        // Whoever held the lock may have put another file in this place; the lock on the old one guards nothing.
        struct stat current = {};
        if (stat(path, &current) == 0 && is_same_file(opened, current))
            return UCI_OK;
    }
    return UCI_ERR_IO;
}

int write_all(int fd, const char *data, size_t size)
{
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return UCI_ERR_IO;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return UCI_OK;
}

// The temporary file beside the one it will replace; gone with its scope unless kept.
class temporary_file {
public:
    ~temporary_file()
    {
        if (path_ != nullptr)
            unlink(path_.get());
    }

    int create(const char *directory, const char *package, scoped_fd *fd)
    {
        char *path = nullptr;
        if (asprintf(&path, "%s/.%s.uci-XXXXXX", directory, package) < 0)
            return UCI_ERR_MEM;
        heap<char> guard(path);
        fd->reset(mkostemp(path, O_CLOEXEC));
        if (!fd->valid())
            return UCI_ERR_IO;
        path_ = std::move(guard);
        return UCI_OK;
    }

    const char *path() const { return path_.get(); }
    void keep() { path_.reset(); }

private:
    heap<char> path_;
};

// Makes a rename inside the directory survive a power cut.
int sync_directory(const char *directory)
{
    scoped_fd fd(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.valid())
        return UCI_ERR_IO;
    // Some file systems cannot sync a directory and say so; there is nothing more to be done on them.
    return fsync(fd.get()) == 0 || errno == EINVAL || errno == ENOTSUP ? UCI_OK : UCI_ERR_IO;
}

int grow(file_text *text, size_t *capacity)
{
    size_t wanted = *capacity == 0 ? first_read_size : *capacity * 2;
    if (wanted > largest_file)
        return UCI_ERR_IO;
    auto *grown = static_cast<char *>(realloc(text->data.get(), wanted));
    if (grown == nullptr)
        return UCI_ERR_MEM;
    static_cast<void>(text->data.release());
    text->data.reset(grown);
    *capacity = wanted;
    return UCI_OK;
}

// read_some(buffer, size) returns the bytes it got, 0 at the end, negative for an error.
template <typename reader_type> int read_whole(file_text *text, reader_type read_some)
{
    size_t capacity = 0;
    text->size = 0;
    for (;;) {
        if (text->size + 1 >= capacity) {
            int rc = grow(text, &capacity);
            if (rc != UCI_OK)
                return rc;
        }
        ssize_t n = read_some(text->data.get() + text->size, capacity - text->size - 1);
        if (n < 0)
            return UCI_ERR_IO;
        text->size += static_cast<size_t>(n);
        text->data.get()[text->size] = '\0';
        if (n == 0)
            return UCI_OK;
    }
}

} // namespace

char *join_path(const char *directory, const char *name)
{
    const size_t length = strlen(directory);
    const size_t size = strlen(name) + 1;
    auto *path = static_cast<char *>(malloc(length + 1 + size));
    if (path == nullptr)
        return nullptr;
    memcpy(path, directory, length + 1);
    path[length] = '/';
    memcpy(path + length + 1, name, size);
    return path;
}

int open_shared(const char *path, scoped_fd *fd)
{
    return open_locked(path, O_RDONLY, 0, LOCK_SH, fd);
}

int open_exclusive(const char *path, int flags, mode_t mode, scoped_fd *fd)
{
    return open_locked(path, O_RDWR | flags, mode, LOCK_EX, fd);
}

int read_all(int fd, file_text *text)
{
    if (lseek(fd, 0, SEEK_SET) != 0)
        return UCI_ERR_IO;
    return read_whole(text, [fd](char *buffer, size_t size) {
        ssize_t n = 0;
        do {
            n = read(fd, buffer, size);
        } while (n < 0 && errno == EINTR);
        return n;
    });
}

int read_stream(FILE *stream, file_text *text)
{
    return read_whole(text, [stream](char *buffer, size_t size) {
        size_t n = fread(buffer, 1, size, stream);
        return n == 0 && ferror(stream) != 0 ? ssize_t{-1} : static_cast<ssize_t>(n);
    });
}

int append_all(int fd, const char *data, size_t size)
{
    off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0)
        return UCI_ERR_IO;
    int rc = write_all(fd, data, size);
    // Half a line would hide every later one.
    if (rc != UCI_OK && ftruncate(fd, end) != 0)
        return UCI_ERR_IO;
    return rc;
}

text_builder::~text_builder()
{
    if (stream_ != nullptr)
        fclose(stream_);
    free(data_);
}

int text_builder::finish()
{
    if (stream_ == nullptr)
        return UCI_ERR_MEM;
    bool complete = ferror(stream_) == 0;
    complete = fclose(stream_) == 0 && complete;
    stream_ = nullptr;
    return complete ? UCI_OK : UCI_ERR_MEM;
}

int replace_file(const char *path, const char *package, int locked, const text_builder &text)
{
    heap<char> target(realpath(path, nullptr));
    heap<char> directory(target != nullptr ? strdup(target.get()) : nullptr);
    struct stat old = {};
    if (directory == nullptr || fstat(locked, &old) != 0)
        return UCI_ERR_IO;
    *strrchr(directory.get(), '/') = '\0';
    const char *place = *directory != '\0' ? directory.get() : "/";

    temporary_file temporary;
    scoped_fd fd;
    int rc = temporary.create(place, package, &fd);
    if (rc != UCI_OK)
        return rc;
    if (write_all(fd.get(), text.data(), text.size()) != UCI_OK || fchmod(fd.get(), old.st_mode & mode_bits) != 0 ||
        fsync(fd.get()) != 0 || rename(temporary.path(), target.get()) != 0)
        return UCI_ERR_IO;
    temporary.keep();
    return sync_directory(place);
}

bool is_same_file(const char *a, const char *b)
{
    struct stat first = {};
    struct stat second = {};
    return stat(a, &first) == 0 && stat(b, &second) == 0 && is_same_file(first, second);
}

void unlink_if_same(const char *path, int fd)
{
    struct stat opened = {};
    struct stat current = {};
    if (fstat(fd, &opened) == 0 && stat(path, &current) == 0 && is_same_file(opened, current))
        unlink(path);
}

int make_directory(const char *path, const char *model)
{
    struct stat status = {};
    const mode_t mode = stat(model, &status) == 0 ? status.st_mode & mode_bits : UCI_DIRMODE;
    return mkdir(path, mode) == 0 || errno == EEXIST ? UCI_OK : UCI_ERR_IO;
}

} // namespace uci_impl
