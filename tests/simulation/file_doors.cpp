// SPDX-License-Identifier: MIT
// The doors that take a path, or a descriptor on a file.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "tests/simulation/checks.h"
#include "tests/simulation/door.h"
#include "tests/simulation/open_file.h"

using namespace sim;

constexpr long BLOCK_SIZE = 4096;
constexpr unsigned long BLOCKS = 1024;

static bool has_double_slash(const char *path)
{
    while ((path = strchr(path, '/')) && path[1] != '/')
        path++;
    return path;
}

static std::string clean(const char *path)
{
    std::string text = path;
    if (has_double_slash(path))
        for (size_t at = text.find("//"); at != std::string::npos; at = text.find("//", at))
            text.erase(at, 1);
    if (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

static t_node_ref find(std::string_view path)
{
    const auto found = files.find(path);
    if (found != files.end())
        return found->second;
    errno = ENOENT;
    return nullptr;
}

// Most paths are clean already.
static t_node_ref find_path(const char *path)
{
    const size_t length = strlen(path);
    const bool is_clean = !has_double_slash(path) && (length <= 1 || path[length - 1] != '/');
    return is_clean ? find({path, length}) : find(clean(path));
}

static bool has_folder_for(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const t_node_ref above = find(slash == 0 || slash == std::string::npos ? std::string_view("/")
                                                                           : std::string_view(path).substr(0, slash));
    return above && above->type == t_node::folder;
}

static int failure(int error)
{
    errno = error;
    return -1;
}

// --- opening

static int open_path(const char *raw_path, int flags, mode_t mode)
{
    const std::string path = clean(raw_path);
    t_node_ref node = find(path);
    if (node && (flags & O_CREAT) && (flags & O_EXCL))
        return failure(EEXIST);
    if (!node && (!(flags & O_CREAT) || !has_folder_for(path)))
        return failure(ENOENT);
    if (node && node->type != t_node::folder && (flags & O_DIRECTORY))
        return failure(ENOTDIR);
    if (node && node->type == t_node::link)
        return failure(ELOOP);
    if (!node)
        node = new_node(path, t_node::file, mode & 0777);
    auto file = std::make_shared<t_open_file>(path, node);
    if ((flags & O_TRUNC) && (flags & O_ACCMODE) != O_RDONLY) {
        node->text.clear();
        saw({.deed = t_deed::file_written, .text = path.c_str()}); // whoever reads it now
    }
    file->flags = flags & (O_ACCMODE | O_NONBLOCK | O_APPEND);
    return install_descriptor(std::move(file));
}

extern "C" int __real_open(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (!inside)
        return __real_open(path, flags, mode);
    door(t_door::file);
    return open_path(path, flags, mode);
}

DOOR(int, __open_2, (const char *path, int flags), (path, flags), t_door::file)
{
    return open_path(path, flags, 0);
}

// The last six letters of a template become another name each time.
static void fill_template(char *name)
{
    static uint64_t names_given;
    char *letters = name + strlen(name) - 6;
    uint64_t value = draw(4, ++names_given);
    for (int i = 0; i < 6; i++, value /= 26)
        letters[i] = static_cast<char>('a' + value % 26);
}

DOOR(int, mkostemp, (char *name, int flags), (name, flags), t_door::file)
{
    fill_template(name);
    return open_path(name, flags | O_RDWR | O_CREAT | O_EXCL, 0600);
}

static int make_folder(const char *raw_path, mode_t mode)
{
    const std::string path = clean(raw_path);
    if (files.count(path))
        return failure(EEXIST);
    if (!has_folder_for(path))
        return failure(ENOENT);
    new_node(path, t_node::folder, mode & 0777);
    return 0;
}

DOOR(int, mkdir, (const char *path, mode_t mode), (path, mode), t_door::file)
{
    return make_folder(path, mode);
}

DOOR(char *, mkdtemp, (char *name), (name), t_door::file)
{
    fill_template(name);
    return make_folder(name, 0700) == 0 ? name : nullptr;
}

namespace {

// What a stream of the C library reads: the text as it was when the file was opened.
struct t_reading {
    std::string text;
    size_t position;
};

ssize_t read_stream(void *cookie, char *buffer, size_t size)
{
    auto *reading = static_cast<t_reading *>(cookie);
    const size_t got = std::min(size, reading->text.size() - reading->position);
    memcpy(buffer, reading->text.data() + reading->position, got);
    reading->position += got;
    return static_cast<ssize_t>(got);
}

int seek_stream(void *cookie, off64_t *offset, int whence)
{
    auto *reading = static_cast<t_reading *>(cookie);
    if (whence != SEEK_SET || *offset < 0)
        return -1;
    reading->position = std::min(static_cast<size_t>(*offset), reading->text.size());
    return 0;
}

int close_stream(void *cookie)
{
    delete static_cast<t_reading *>(cookie);
    return 0;
}

} // namespace

DOOR(FILE *, fopen, (const char *path, const char *mode), (path, mode), t_door::file)
{
    const t_node_ref node = find_path(path);
    if (!node)
        return nullptr;
    if (mode[0] != 'r' || node->type != t_node::file)
        fail("fopen is used in a way that the simulation does not know: %s", path);
    auto *reading = new t_reading{node->made ? node->made() : node->text, 0};
    return fopencookie(reading, "r",
                       {.read = read_stream, .write = nullptr, .seek = seek_stream, .close = close_stream});
}

// --- looking

static int tell(const t_node_ref &node, struct stat *told)
{
    if (!node)
        return -1;
    *told = {};
    told->st_dev = 1;
    told->st_ino = node->number;
    told->st_nlink = 1;
    told->st_uid = node->owner;
    const mode_t types[] = {S_IFREG, S_IFDIR, S_IFLNK, S_IFCHR};
    told->st_mode = types[node->type] | node->mode;
    told->st_size = static_cast<off_t>(node->text.size());
    told->st_mtim = {node->changed / SECOND, static_cast<long>(node->changed % SECOND) * 1000};
    return 0;
}

DOOR(int, stat, (const char *path, struct stat *told), (path, told), t_door::file)
{
    return tell(find_path(path), told);
}

DOOR(int, lstat, (const char *path, struct stat *told), (path, told), t_door::file)
{
    return tell(find_path(path), told);
}

// What each line of the log asks of standard output is no step of the world.
QUIET_DOOR(int, fstat, (int fd, struct stat *told), (fd, told))
{
    if (fd > STDERR_FILENO)
        sim::door(t_door::file);
    const auto *file = description_as<t_open_file>(fd);
    if (!file)
        return failure(EBADF);
    return tell(file->node, told);
}

DOOR(int, fstatat, (int fd, const char *name, struct stat *told, int flags), (fd, name, told, flags), t_door::file)
{
    const auto *folder = description_as<t_open_file>(fd);
    return folder ? tell(find(clean((folder->path + "/" + name).c_str())), told) : failure(EBADF);
}

DOOR(int, access, (const char *path, int mode), (path, mode), t_door::file)
{
    return find_path(path) ? 0 : -1;
}

DOOR(char *, realpath, (const char *path, char *resolved), (path, resolved), t_door::file)
{
    const std::string text = clean(path);
    if (!find(text))
        return nullptr;
    return resolved ? strcpy(resolved, text.c_str()) : strdup(text.c_str());
}

DOOR(char *, __realpath_chk, (const char *path, char *resolved, size_t size), (path, resolved, size), t_door::file)
{
    return door_realpath(path, resolved);
}

DOOR(ssize_t, readlink, (const char *path, char *target, size_t size), (path, target, size), t_door::file)
{
    const t_node_ref node = find_path(path);
    if (!node || node->type != t_node::link)
        return failure(node ? EINVAL : ENOENT);
    const size_t length = std::min(size, node->text.size());
    memcpy(target, node->text.data(), length);
    return static_cast<ssize_t>(length);
}

DOOR(int, statfs, (const char *path, struct statfs *told), (path, told), t_door::file)
{
    *told = {};
    told->f_bsize = BLOCK_SIZE;
    told->f_blocks = BLOCKS;
    told->f_bfree = told->f_bavail = disk_is_full ? 0 : BLOCKS / 2;
    told->f_files = BLOCKS;
    told->f_ffree = disk_is_full ? 0 : BLOCKS / 2;
    return 0;
}

// --- changing

DOOR(int, rename, (const char *from, const char *to), (from, to), t_door::file)
{
    const std::string source = clean(from), target = clean(to);
    const t_node_ref node = find(source);
    if (!node || !has_folder_for(target))
        return failure(ENOENT);
    const t_node_ref there = find(target);
    if (there && there->type == t_node::folder && node->type != t_node::folder)
        return failure(EISDIR);
    files.erase(source);
    files[target] = node;
    saw({.deed = t_deed::file_written, .text = target.c_str()});
    return 0;
}

static int remove_path(const std::string &path, bool folder)
{
    const t_node_ref node = find(path);
    if (!node)
        return -1;
    if ((node->type == t_node::folder) != folder)
        return failure(folder ? ENOTDIR : EISDIR);
    files.erase(path);
    return 0;
}

DOOR(int, unlink, (const char *path), (path), t_door::file)
{
    return remove_path(clean(path), false);
}

DOOR(int, unlinkat, (int fd, const char *name, int flags), (fd, name, flags), t_door::file)
{
    const auto *folder = description_as<t_open_file>(fd);
    return folder ? remove_path(clean((folder->path + "/" + name).c_str()), false) : failure(EBADF);
}

DOOR(int, rmdir, (const char *path), (path), t_door::file)
{
    return remove_path(clean(path), true);
}

DOOR(int, fchmod, (int fd, mode_t mode), (fd, mode), t_door::file)
{
    const auto *file = description_as<t_open_file>(fd);
    if (!file)
        return failure(EBADF);
    file->node->mode = mode & 07777;
    return 0;
}

DOOR(int, fsync, (int fd), (fd), t_door::file)
{
    return description_of(fd) ? 0 : -1;
}

DOOR(int, ftruncate, (int fd, off_t size), (fd, size), t_door::file)
{
    const auto *file = description_as<t_open_file>(fd);
    if (!file)
        return failure(EBADF);
    file->node->text.resize(static_cast<size_t>(size));
    return 0;
}

DOOR(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), t_door::file)
{
    auto *file = description_as<t_open_file>(fd);
    if (!file)
        return failure(EBADF);
    const size_t start = whence == SEEK_SET ? 0 : whence == SEEK_END ? file->node->text.size() : file->position;
    file->position = static_cast<size_t>(static_cast<off_t>(start) + offset);
    return static_cast<off_t>(file->position);
}

// --- folders

namespace {

struct t_listing {
    int fd;
    std::vector<std::string> names;
    size_t next;
    dirent entry;
};

} // namespace

DOOR(DIR *, opendir, (const char *path), (path), t_door::file)
{
    const std::string folder = clean(path);
    const int fd = open_path(path, O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0)
        return nullptr;
    auto *listing = new t_listing{fd, {".", ".."}, 0, {}};
    const std::string prefix = folder == "/" ? folder : folder + "/";
    for (auto one = files.lower_bound(prefix); one != files.end() && one->first.rfind(prefix, 0) == 0; ++one)
        if (one->first.size() > prefix.size() && one->first.find('/', prefix.size()) == std::string::npos)
            listing->names.push_back(one->first.substr(prefix.size()));
    return reinterpret_cast<DIR *>(listing);
}

DOOR(dirent *, readdir, (DIR * folder), (folder), t_door::file)
{
    auto *listing = reinterpret_cast<t_listing *>(folder);
    if (listing->next == listing->names.size())
        return nullptr;
    listing->entry = {};
    snprintf(listing->entry.d_name, sizeof listing->entry.d_name, "%s", listing->names[listing->next++].c_str());
    return &listing->entry;
}

DOOR(int, dirfd, (DIR * folder), (folder), t_door::file)
{
    return reinterpret_cast<t_listing *>(folder)->fd;
}

DOOR(int, closedir, (DIR * folder), (folder), t_door::file)
{
    auto *listing = reinterpret_cast<t_listing *>(folder);
    const int result = close(listing->fd);
    delete listing;
    return result;
}

// --- whose they are

QUIET_DOOR(uid_t, geteuid, (void), ())
{
    return 0;
}
QUIET_DOOR(gid_t, getegid, (void), ())
{
    return 0;
}
QUIET_DOOR(mode_t, umask, (mode_t mask), (mask))
{
    return mask;
}
