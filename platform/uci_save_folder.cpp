// SPDX-License-Identifier: MIT
#include "platform/uci_save_folder.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <uci.h>

#include "platform/disk_room.h"
#include "platform/log.h"
#include "platform/text.h"
#include "platform/uci_limits.h"

constexpr char NOWHERE[] = "/dev/null"; // there is nothing below a device
constexpr size_t ONE_CHANGE = 1;        // byte; a disk has room for a whole block or for none
constexpr char OWN_FOLDERS[][28] = {"/var/run/wan_detect-XXXXXX", "/tmp/wan_detect-XXXXXX"};
static_assert(sizeof NOWHERE <= sizeof UCI_SAVEDIR, "written over the name of the save folder");

namespace {

enum class t_folder { ours, foreign, unknown };

} // namespace

static std::atomic<bool> foreign_told; // the line about it is said once

static bool is_ours(const struct stat &file)
{
    return file.st_uid == geteuid();
}

// A file that somebody left while the folder was open to others is still there.
static t_folder judge_files(DIR *folder)
{
    while (const dirent *entry = readdir(folder)) {
        struct stat file = {};
        if (fstatat(dirfd(folder), entry->d_name, &file, AT_SYMLINK_NOFOLLOW) == 0 &&
            strcmp(entry->d_name, "..") != 0 && !is_ours(file))
            return t_folder::foreign;
    }
    return t_folder::ours;
}

static bool is_writable_by_others(const struct stat &file)
{
    return (file.st_mode & S_IWOTH) || ((file.st_mode & S_IWGRP) && file.st_gid != getegid());
}

// A free place would be free for everybody, later as well: taken, it stays ours in a sticky /tmp. A file of ours in it
// holds no changes of anybody.
static t_folder judge_save_folder()
{
    struct stat file = {};
    mkdir(UCI_SAVEDIR, S_IRWXU);
    if (lstat(UCI_SAVEDIR, &file) != 0)
        return t_folder::unknown;
    if (!is_ours(file) || S_ISLNK(file.st_mode))
        return t_folder::foreign;
    if (!S_ISDIR(file.st_mode))
        return t_folder::ours;
    if (is_writable_by_others(file))
        return t_folder::foreign;
    DIR *folder = opendir(UCI_SAVEDIR);
    if (!folder)
        return t_folder::unknown;
    const t_folder result = judge_files(folder);
    closedir(folder);
    return result;
}

static bool has_left(const uci_context *context)
{
    return strcmp(context->savedir, NOWHERE) == 0;
}

static bool waits_already(const char *package)
{
    char path[sizeof UCI_SAVEDIR + UCI_PATH_SIZE];
    snprintf(path, sizeof path, "%s/%s", UCI_SAVEDIR, package);
    struct stat file = {};
    return stat(path, &file) == 0 && file.st_size > 0;
}

// Its parent, with the last slash, is the part before the name.
static bool has_room_beside(const char *folder)
{
    char parent[PATH_MAX];
    bounded_copy(parent, folder, sizeof parent);
    *strrchr(parent, '/') = '\0';
    return has_disk_room(parent, ONE_CHANGE, 0);
}

bool uci_guard_save_folder(uci_context *context)
{
    const t_folder folder = judge_save_folder();
    if (folder != t_folder::foreign)
        foreign_told = false;
    else if (!foreign_told.exchange(true))
        LOG(Error, "%s may be written by others, what is saved there is ignored\n", UCI_SAVEDIR);
    return folder == t_folder::ours || uci_leave_save_folder(context);
}

// The library goes on reading the usual folder when it is given another one, so its name is written over.
bool uci_leave_save_folder(uci_context *context)
{
    uci_element *path;
    uci_foreach_element(&context->delta_path, path)
    {
        if (strcmp(path->name, UCI_SAVEDIR) == 0)
            memcpy(path->name, NOWHERE, sizeof NOWHERE);
    }
    return uci_set_savedir(context, NOWHERE) == UCI_OK;
}

bool uci_may_wait(uci_context *context, const char *package)
{
    if (has_left(context))
        return true;
    // Half a change that waits would be passed over in silence.
    return has_disk_room(UCI_SAVEDIR, ONE_CHANGE, 0) || (!waits_already(package) && uci_leave_save_folder(context));
}

t_uci_own_save_folder::t_uci_own_save_folder(uci_context *context, const char *package)
    : folder_(""), package_(package), ready_(!has_left(context))
{
    for (const char *name : OWN_FOLDERS) {
        if (ready_ || !has_room_beside(name))
            continue;
        bounded_copy(folder_, name, sizeof folder_);
        if (!mkdtemp(folder_))
            folder_[0] = '\0';
        ready_ = folder_[0] && uci_set_savedir(context, folder_) == UCI_OK;
    }
}

t_uci_own_save_folder::~t_uci_own_save_folder()
{
    if (!folder_[0])
        return;
    char path[sizeof folder_ + UCI_PATH_SIZE];
    snprintf(path, sizeof path, "%s/%s", folder_, package_);
    unlink(path);
    rmdir(folder_);
}
