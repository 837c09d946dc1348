// SPDX-License-Identifier: MIT
// Files: where a package lives, reading under a lock, and replacing one so that a power cut leaves the old or the new.
// Functions returning int give an error code of uci.h; UCI_ERR_NOTFOUND stands for a missing or non-regular file.
#pragma once

#include "support.h"

#include <cstddef>
#include <sys/types.h>

namespace uci_impl {

// A new string, or null when memory has run out.
char *join_path(const char *directory, const char *name);

struct file_text {
    heap<char> data;
    size_t size = 0;
};

// Opens a regular file and waits for its lock. The descriptor is that of the file now at the path, even if it was
// replaced while we waited.
int open_shared(const char *path, scoped_fd *fd);
int open_exclusive(const char *path, int flags, mode_t mode, scoped_fd *fd);

// The whole content, from the start, ended by a NUL that is not counted.
int read_all(int fd, file_text *text);
int read_stream(FILE *stream, file_text *text);

// Adds the text to the end of the file, or nothing of it.
int append_all(int fd, const char *data, size_t size);

// A text built in memory; with room for what open_memstream needs.
class text_builder {
public:
    text_builder() { stream_ = open_memstream(&data_, &size_); }
    text_builder(const text_builder &) = delete;
    text_builder &operator=(const text_builder &) = delete;
    ~text_builder();

    FILE *stream() const { return stream_; }
    // Ends the text. UCI_ERR_MEM if it is incomplete.
    int finish();
    const char *data() const { return data_; }
    size_t size() const { return size_; }

private:
    FILE *stream_ = nullptr;
    char *data_ = nullptr;
    size_t size_ = 0;
};

// Replaces the file behind path (links are followed) by the text, under the mode of the locked file it had so far.
// On the disk for good when it succeeds.
int replace_file(const char *path, const char *package, int locked, const text_builder &text);

// Whether both paths lead to one file that exists.
bool is_same_file(const char *a, const char *b);

// Removes the file at path if it still is the open one.
void unlink_if_same(const char *path, int fd);

// Creates the directory, if it is missing, with the mode of a model; for its owner alone where there is no model.
int make_directory(const char *path, const char *model);

} // namespace uci_impl
