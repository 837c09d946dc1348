// SPDX-License-Identifier: MIT
// Result files.
#include "platform/files.h"

#include <cstdio>
#include <unistd.h>

#include "platform/log.h"

void delete_file(const char *path)
{
    if (unlink(path) == 0)
        LOG(Debug, "file:%s deleted!\n", path);
    else
        LOG(Info, "file:%s delete failed!\n", path);
}

bool write_whole_file(const char *path, const char *text)
{
    FILE *file = fopen(path, "we");
    if (!file)
        return false;
    bool written = fputs(text, file) >= 0;
    // A full disk may show itself only when the buffer is written out.
    return fclose(file) == 0 && written;
}
