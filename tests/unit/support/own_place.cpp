// SPDX-License-Identifier: MIT
#include "tests/unit/support/own_place.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

bool make_mounts_private()
{
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// In a chroot / is no mount point: it can be made one, and private, only from the namespace's own root, to which
// entering the namespace once more leads.
bool make_mounts_private_in_chroot()
{
    const int here = open("/", O_PATH | O_CLOEXEC), own = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    char path[PATH_MAX];
    const bool done = setns(own, CLONE_NEWNS) == 0 && make_mounts_private() && fchdir(here) == 0 &&
                      getcwd(path, sizeof path) != nullptr &&
                      mount(path, path, nullptr, MS_BIND | MS_REC, nullptr) == 0 && chroot(path) == 0 &&
                      chdir("/") == 0;
    close(here);
    close(own);
    return done;
}

// How many users this user namespace knows.
unsigned users_here()
{
    unsigned here = 0, there = 0, count = 0;
    std::ifstream("/proc/self/uid_map") >> here >> there >> count;
    return count;
}

bool is_hosts_root()
{
    return users_here() == UINT_MAX;
}

bool has_mounts_below(const std::string &folder)
{
    std::ifstream mounts("/proc/self/mounts");
    for (std::string source, point, rest; mounts >> source >> point && std::getline(mounts, rest);)
        if (point.rfind(folder + "/", 0) == 0)
            return true;
    return false;
}

// By a character device 0/0 an overlay knows what was removed.
void hide(const std::vector<std::string> &names, const std::string &folder, const std::string &upper)
{
    for (const std::string &name : names)
        if (fs::exists(fs::symlink_status(folder + "/" + name)))
            require(mknod((upper + "/" + name).c_str(), S_IFCHR, 0) == 0, "to hide " + folder + "/" + name);
}

void bind_to(const std::string &source, const std::string &target)
{
    require(mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 || errno == ENOENT,
            "to bind " + source);
}

// A plain user may not lay an overlay over other mounts: there each thing is bound to its place in a folder of his own.
void bind_each(const std::string &folder, const std::string &upper, const std::vector<std::string> &left_over)
{
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename(), place = upper + "/" + name;
        if (std::find(left_over.begin(), left_over.end(), name) != left_over.end())
            continue;
        if (entry.is_symlink()) {
            fs::create_symlink(fs::read_symlink(entry.path()), place);
            continue;
        }
        if (entry.is_directory())
            fs::create_directory(place);
        else
            std::ofstream(place).flush();
        bind_to(entry.path(), place);
    }
    bind_to(upper, folder);
}

} // namespace

void require(bool done, const std::string &what)
{
    if (done)
        return;
    fprintf(stderr, "cannot have a place of its own: %s: %s (unit tests need root, or user namespaces)\n", what.c_str(),
            strerror(errno));
    _exit(1);
}

void become_root()
{
    if (geteuid() == 0)
        return;
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    require(unshare(CLONE_NEWUSER) == 0, "a user namespace");
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    require(geteuid() == 0 && getegid() == 0, "root of a user namespace");
}

void enter_namespaces(int further)
{
    become_root();
    require(unshare(CLONE_NEWNS | further) == 0, "namespaces");
    require(make_mounts_private() || make_mounts_private_in_chroot(), "private mounts");
}

void lay_over(const std::string &folder, const std::string &scratch, const std::vector<std::string> &left_over)
{
    std::string name = folder;
    std::replace(name.begin(), name.end(), '/', '_');
    const std::string upper = scratch + "/" + name + "/upper", work = scratch + "/" + name + "/work";
    fs::create_directories(upper);
    fs::create_directories(work);
    if (!is_hosts_root() && has_mounts_below(folder)) {
        bind_each(folder, upper, left_over);
        return;
    }
    hide(left_over, folder, upper);
    const std::string options =
        "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + work +
        (is_hosts_root() ? "" : ",userxattr"); // others than the host's root may keep no other marks
    require(mount("overlay", folder.c_str(), "overlay", 0, options.c_str()) == 0, "an overlay on " + folder);
}

bool has_other_users()
{
    return users_here() > 1;
}
