// SPDX-License-Identifier: MIT
#include "platform/uci_save_folder.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <uci.h>

#include "platform/log.h"
#include "platform/shared.h"
#include "platform/uci_limits.h"

namespace {

constexpr char NOWHERE[] = "/dev/null"; // there is nothing below a device
static_assert(sizeof NOWHERE <= sizeof UCI_SAVEDIR, "written over the name of the save folder");

enum class t_folder { ours, foreign, unknown };

t_flag foreign_told; // the line about it is said once

bool is_ours(const struct stat &file)
{
    return file.st_uid == geteuid();
}

// A file that somebody left while the folder was open to others is still there.
t_folder judge_files(DIR *folder)
{
    while (const dirent *entry = readdir(folder)) {
        struct stat file = {};
        if (fstatat(dirfd(folder), entry->d_name, &file, AT_SYMLINK_NOFOLLOW) == 0 &&
            strcmp(entry->d_name, "..") != 0 && !is_ours(file))
            return t_folder::foreign;
    }
    return t_folder::ours;
}

// No folder, and a file of ours in its place, hold no changes of anybody.
t_folder judge_save_folder()
{
    struct stat file = {};
    if (lstat(UCI_SAVEDIR, &file) != 0)
        return errno == ENOENT ? t_folder::ours : t_folder::unknown;
    if (!is_ours(file) || S_ISLNK(file.st_mode))
        return t_folder::foreign;
    if (!S_ISDIR(file.st_mode))
        return t_folder::ours;
    if (file.st_mode & (S_IWGRP | S_IWOTH))
        return t_folder::foreign;
    DIR *folder = opendir(UCI_SAVEDIR);
    if (!folder)
        return t_folder::unknown;
    const t_folder result = judge_files(folder);
    closedir(folder);
    return result;
}

} // namespace

bool uci_guard_save_folder(uci_context *context)
{
    const t_folder folder = judge_save_folder();
    if (folder != t_folder::foreign)
        foreign_told = 0;
    else if (!__atomic_exchange_n(&foreign_told.value, uint8_t{1}, __ATOMIC_ACQ_REL))
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

t_uci_own_save_folder::t_uci_own_save_folder(uci_context *context, const char *package)
    : folder_("/tmp/wan_detect-XXXXXX"), package_(package), ready_(true)
{
    if (strcmp(context->savedir, NOWHERE) != 0) {
        folder_[0] = '\0';
        return;
    }
    if (!mkdtemp(folder_))
        folder_[0] = '\0';
    ready_ = folder_[0] && uci_set_savedir(context, folder_) == UCI_OK;
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
