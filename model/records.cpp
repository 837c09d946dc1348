// SPDX-License-Identifier: MIT
// Names of records: copying, showing and comparing them.
#include "model/records.h"

#include <cstring>

void copy_name(char (&field)[NAME_SIZE], const char *name)
{
    memset(field, 0, NAME_SIZE);
    if (name)
        memcpy(field, name, strnlen(name, NAME_SIZE - 1));
}

const char *device_name(const t_device *dev)
{
    return dev ? dev->name : "null";
}

const char *protocol_name(const t_protocol *protocol)
{
    return protocol ? protocol->name : "null";
}

bool has_prefix(const char *text, const char *keyword)
{
    return text && strncmp(text, keyword, strlen(keyword)) == 0;
}
