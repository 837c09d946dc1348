// SPDX-License-Identifier: MIT
// Small files: results that are deleted and written whole.
#pragma once

// Removes a file; a failure is only logged.
void delete_file(const char *path);

// Puts a file with exactly `text` in the place of `path`; whoever reads meanwhile sees the former file or the new one.
// False when it cannot be written, and the former one is still there; the caller logs that.
bool write_whole_file(const char *path, const char *text);
