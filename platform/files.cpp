// SPDX-License-Identifier: MIT
// Result files. They stand in a folder where anybody may put things, so no name there is trusted.
#include "platform/files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/log.h"

constexpr size_t DRAFT_PATH_SIZE = 256;
constexpr char DRAFT_MARK[] = ".draft."; // stands between a result's name and some random letters
constexpr char ASIDE_MARK[] = ".aside.";
constexpr char RANDOM_LETTERS[] = "XXXXXX";
constexpr mode_t RESULT_MODE = 0644;
constexpr int MOST_ENTRIES_SWEPT = 1000; // a stranger's thousands of files keep nobody waiting

using t_draft_path = char[DRAFT_PATH_SIZE];

static bool make_template(t_draft_path &made, const char *path, const char *mark)
{
    const int length = snprintf(made, sizeof made, "%s%s%s", path, mark, RANDOM_LETTERS);
    return length >= 0 && static_cast<size_t>(length) < sizeof made;
}

static bool is_draft_name(const char *name, const char *result, size_t result_length)
{
    const size_t marked = result_length + sizeof DRAFT_MARK - 1;
    return strncmp(name, result, result_length) == 0 &&
           strncmp(name + result_length, DRAFT_MARK, marked - result_length) == 0 &&
           strlen(name) == marked + sizeof RANDOM_LETTERS - 1;
}

static bool is_plain_file_of_our_own(int folder, const char *name)
{
    struct stat status = {};
    return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == geteuid();
}

// A life that ended between a draft and its place left that behind; one by one they would fill the memory.
static void sweep_drafts(const char *path)
{
    const char *slash = strrchr(path, '/');
    if (!slash)
        return;
    t_draft_path folder_path;
    snprintf(folder_path, sizeof folder_path, "%.*s", static_cast<int>(slash - path + 1), path);
    DIR *folder = opendir(folder_path);
    if (!folder)
        return;
    const char *name = slash + 1;
    const size_t length = strlen(name);
    const dirent *entry = nullptr;
    for (int i = 0; i < MOST_ENTRIES_SWEPT && (entry = readdir(folder)); i++)
        if (is_draft_name(entry->d_name, name, length) && is_plain_file_of_our_own(dirfd(folder), entry->d_name))
            unlinkat(dirfd(folder), entry->d_name, 0);
    closedir(folder);
}

// False, and no file, when the text does not fit onto the disk.
static bool write_draft(t_draft_path &draft, const char *text)
{
    const int fd = mkostemp(draft, O_CLOEXEC);
    if (fd < 0)
        return false;
    fchmod(fd, RESULT_MODE);
    const size_t length = strlen(text);
    const bool written = write(fd, text, length) == static_cast<ssize_t>(length);
    // A full disk may show itself only at the end.
    if (close(fd) == 0 && written)
        return true;
    unlink(draft);
    return false;
}

// It goes to a name of its own, with what it holds, in the place of an empty folder that only we know.
static bool move_folder_aside(const char *path)
{
    t_draft_path aside;
    if (!make_template(aside, path, ASIDE_MARK) || !mkdtemp(aside))
        return false;
    if (rename(path, aside) == 0)
        return true;
    rmdir(aside);
    return false;
}

static bool put_in_place(const char *draft, const char *path)
{
    if (rename(draft, path) == 0)
        return true;
    return errno == EISDIR && move_folder_aside(path) && rename(draft, path) == 0;
}

void delete_file(const char *path)
{
    if (unlink(path) == 0)
        LOG(Debug, "file:%s deleted!\n", path);
    else
        LOG(Info, "file:%s delete failed!\n", path);
}

bool write_whole_file(const char *path, const char *text)
{
    t_draft_path draft;
    if (!make_template(draft, path, DRAFT_MARK))
        return false;
    sweep_drafts(path);
    if (!write_draft(draft, text))
        return false;
    if (put_in_place(draft, path))
        return true;
    unlink(draft);
    return false;
}
