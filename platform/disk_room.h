// SPDX-License-Identifier: MIT
// Whether a disk has room for a file, as far as it tells.
#pragma once

#include <cstddef>

// True when the disk below `folder` may be written and has room for a new file of `bytes` bytes, or does not tell.
// `beside` are the bytes of the file that the new one is to replace. Otherwise an Error line says what is missing.
bool has_disk_room(const char *folder, size_t bytes, size_t beside);
