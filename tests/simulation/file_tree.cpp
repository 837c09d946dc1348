// SPDX-License-Identifier: MIT
// The tree itself, and descriptors on its files.
#include "tests/simulation/file_tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/simulation/checks.h"
#include "tests/simulation/open_file.h"

namespace sim {

std::map<std::string, t_node_ref, std::less<>> files;
bool disk_is_full = false;

static ino_t numbers_given = 1;
static const char WORLD_AS_HOLDER = 0;

static std::string folder_above(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

t_node_ref new_node(const std::string &path, decltype(t_node::type) type, mode_t mode)
{
    auto node = std::make_shared<t_node>();
    node->type = type;
    node->number = ++numbers_given;
    node->mode = mode;
    node->changed = now();
    files[path] = node;
    return node;
}

t_node_ref put_folder(const std::string &path, mode_t mode)
{
    if (const auto found = files.find(path); found != files.end())
        return found->second;
    if (path != "/")
        put_folder(folder_above(path));
    return new_node(path, t_node::folder, mode);
}

t_node_ref put_file(const std::string &path, const std::string &text)
{
    put_folder(folder_above(path));
    t_node_ref node = new_node(path, t_node::file, 0644);
    node->text = text;
    return node;
}

t_node_ref put_made_file(const std::string &path, std::function<std::string()> made)
{
    t_node_ref node = put_file(path, "");
    node->made = std::move(made);
    return node;
}

t_node_ref put_link(const std::string &path, const std::string &target)
{
    put_folder(folder_above(path));
    t_node_ref node = new_node(path, t_node::link, 0777);
    node->text = target;
    return node;
}

void remove_file(const std::string &path)
{
    files.erase(path);
}

std::string text_of_file(const std::string &path)
{
    const auto found = files.find(path);
    return found == files.end() ? "" : found->second->made ? found->second->made() : found->second->text;
}

// The lock is on the file that stood there then, whoever has put another one in its place meanwhile.
void lock_by_world(const std::string &path, bool locked)
{
    static std::map<std::string, t_node_ref> held;
    const auto found = files.find(path);
    if (const auto before = held.find(path); before != held.end()) {
        std::erase_if(before->second->locks, [](const t_file_lock &one) { return one.holder == &WORLD_AS_HOLDER; });
        held.erase(before);
    }
    if (!locked || found == files.end())
        return;
    found->second->locks.push_back({&WORLD_AS_HOLDER, true});
    held[path] = found->second;
}

t_open_file::t_open_file(std::string opened_path, t_node_ref opened)
    : path(std::move(opened_path)), node(std::move(opened))
{
    if (node->made)
        node->text = node->made();
}

t_open_file::~t_open_file()
{
    unlock();
    if (was_written)
        saw({.deed = t_deed::file_written, .text = path.c_str()});
}

void t_open_file::unlock()
{
    auto &locks = node->locks;
    locks.erase(
        std::remove_if(locks.begin(), locks.end(), [this](const t_file_lock &one) { return one.holder == this; }),
        locks.end());
}

ssize_t t_open_file::read(void *buffer, size_t size)
{
    if (node->type == t_node::folder) {
        errno = EISDIR;
        return -1;
    }
    if (node->type == t_node::device || position >= node->text.size())
        return 0;
    const size_t got = std::min(size, node->text.size() - position);
    memcpy(buffer, node->text.data() + position, got);
    position += got;
    return static_cast<ssize_t>(got);
}

ssize_t t_open_file::write(const void *data, size_t size)
{
    if (node->type == t_node::device) { // the console
        print(std::string(static_cast<const char *>(data), size).c_str());
        return static_cast<ssize_t>(size);
    }
    if (disk_is_full) {
        errno = ENOSPC;
        return -1;
    }
    if (flags & O_APPEND)
        position = node->text.size();
    if (position + size > node->text.size())
        node->text.resize(position + size);
    memcpy(node->text.data() + position, data, size);
    position += size;
    node->changed = now();
    was_written = true;
    return static_cast<ssize_t>(size);
}

int lock_file(int fd, int operation)
{
    auto *file = description_as<t_open_file>(fd);
    if (!file) {
        errno = EBADF;
        return -1;
    }
    const int kind = operation & ~LOCK_NB;
    if (kind == LOCK_UN) {
        file->unlock();
        return 0;
    }
    for (const t_file_lock &one : file->node->locks)
        if (one.holder != file && (one.exclusive || kind == LOCK_EX)) {
            errno = EWOULDBLOCK;
            return -1;
        }
    file->unlock();
    file->node->locks.push_back({file, kind == LOCK_EX});
    return 0;
}

} // namespace sim
