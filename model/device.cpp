// SPDX-License-Identifier: MIT
// Names of ports: copying and showing them.
#include "model/device.h"

#include <cstring>

void copy_name(char (&field)[NAME_SIZE], const char *name)
{
    memset(field, 0, NAME_SIZE);
    if (name)
        bounded_copy(field, name, NAME_SIZE);
}

const char *device_name(const t_device *dev)
{
    return dev ? dev->name : "null";
}
