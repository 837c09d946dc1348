// SPDX-License-Identifier: MIT
// Small files: results that are deleted and written whole.
#pragma once

// Removes a file; a failure is only logged.
void delete_file(const char *path);

// Puts a file with exactly `text`, readable for everybody, in the place of the absolute `path`; whoever reads meanwhile
// sees the former file or the new one. A link there is replaced, a folder there gets another name. False when the file
// cannot be written, and the former one is still there; the caller logs that.
bool write_whole_file(const char *path, const char *text);
