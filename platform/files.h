// SPDX-License-Identifier: MIT
// Small files: results that are deleted and written whole.
#pragma once

// Removes a file; a failure is only logged.
void delete_file(const char *path);

// Truncates or creates `path` and writes `text`, without a newline. False when the file cannot be opened or written;
// the caller logs that.
bool write_whole_file(const char *path, const char *text);
