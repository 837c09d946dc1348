// SPDX-License-Identifier: MIT
// Result files.
#include "platform/files.h"

#include <cstdio>
#include <unistd.h>

#include "platform/log.h"

constexpr size_t DRAFT_PATH_SIZE = 256;

void delete_file(const char *path)
{
    if (unlink(path) == 0)
        LOG(Debug, "file:%s deleted!\n", path);
    else
        LOG(Info, "file:%s delete failed!\n", path);
}

// False, and no file, when the text does not fit onto the disk.
static bool write_draft(const char *path, const char *text)
{
    unlink(path); // what an earlier life left behind
    FILE *file = fopen(path, "wxe");
    if (!file)
        return false;
    bool written = fputs(text, file) >= 0;
    // A full disk may show itself only when the buffer is written out.
    if (fclose(file) == 0 && written)
        return true;
    unlink(path);
    return false;
}

bool write_whole_file(const char *path, const char *text)
{
    char draft[DRAFT_PATH_SIZE];
    int length = snprintf(draft, sizeof draft, "%s.new", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof draft || !write_draft(draft, text))
        return false;
    if (rename(draft, path) == 0)
        return true;
    unlink(draft);
    return false;
}
