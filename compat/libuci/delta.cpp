// SPDX-License-Identifier: MIT
// Waiting changes: one line each, in a file per package of the save directory.
#include "delta.h"

#include "delta_line.h"
#include "packages.h"
#include "tree.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace uci_impl {

namespace {

constexpr mode_t mode_bits = 07777;

int apply_delta(uci_context *ctx, uci_package *package, const char *text, size_t size, int *applied)
{
    line_reader reader(text, size);
    delta_line line;
    for (;;) {
        int rc = next_delta_line(&reader, package->e.name, &line);
        if (rc == UCI_ERR_NOTFOUND)
            return UCI_OK;
        if (rc != UCI_OK)
            return rc;
        if (!line.valid)
            continue;
        rc = keep_saved_delta(ctx, package, line);
        if (rc == UCI_OK)
            rc = apply_delta_line(ctx, package, &line);
        if (rc == UCI_ERR_MEM)
            return rc;
        ++*applied;
    }
}

// A delta directory nobody can read holds no changes for us.
int apply_delta_at(uci_context *ctx, uci_package *package, const char *path, int *applied)
{
    scoped_fd fd;
    int rc = open_shared(path, &fd);
    if (rc == UCI_OK)
        return apply_delta_file(ctx, package, fd.get(), applied);
    // One that is there and stays locked may hold some.
    return fd.valid() && rc != UCI_ERR_NOTFOUND ? rc : UCI_OK;
}

mode_t mode_of_config(const uci_package *package)
{
    struct stat config = {};
    return stat(package->path, &config) == 0 ? config.st_mode & mode_bits : UCI_FILEMODE;
}

// Adds the line end that is missing. Behind a backslash it would join the next line, and so takes another one.
int end_last_line(int fd, const file_text &text)
{
    const char *end = text.data.get() + text.size;
    bool is_whole = end[-1] == '\n';
    bool is_joined = is_whole ? text.size > 1 && end[-2] == '\\' : end[-1] == '\\';
    size_t missing = (is_whole ? 0 : 1) + (is_joined ? 1 : 0);
    return missing > 0 ? append_all(fd, "\n\n", missing) : UCI_OK;
}

// Makes the end of the file a place for further lines: a damaged last one must not swallow them.
int mend_end(int fd, const char *package)
{
    file_text text;
    int rc = read_all(fd, &text);
    if (rc != UCI_OK || text.size == 0)
        return rc;
    line_reader reader(text.data.get(), text.size);
    delta_line line;
    size_t start = 0;
    while ((rc = next_delta_line(&reader, package, &line)) == UCI_OK && !line.is_cut)
        start = reader.consumed();
    if (rc == UCI_OK)
        return ftruncate(fd, static_cast<off_t>(start)) == 0 ? UCI_OK : UCI_ERR_IO;
    return rc == UCI_ERR_NOTFOUND ? end_last_line(fd, text) : rc;
}

int append_to_file(uci_context *ctx, const uci_package *package, const text_builder &text)
{
    heap<char> path(saved_delta_path(ctx, package->e.name));
    if (path == nullptr)
        return UCI_ERR_MEM;
    int rc = make_directory(ctx->savedir, ctx->confdir);
    if (rc != UCI_OK)
        return rc;
    scoped_fd fd;
    if (open_exclusive(path.get(), O_CREAT, mode_of_config(package), &fd) != UCI_OK)
        return UCI_ERR_IO;
    rc = mend_end(fd.get(), package->e.name);
    return rc == UCI_OK ? append_all(fd.get(), text.data(), text.size()) : rc;
}

} // namespace

char *saved_delta_path(uci_context *ctx, const char *package)
{
    return join_path(ctx->savedir, package);
}

int apply_delta_file(uci_context *ctx, uci_package *package, int fd, int *applied)
{
    file_text text;
    int rc = read_all(fd, &text);
    return rc == UCI_OK ? apply_delta(ctx, package, text.data.get(), text.size, applied) : rc;
}

int apply_other_deltas(uci_context *ctx, uci_package *package, int *applied)
{
    heap<char> saved(saved_delta_path(ctx, package->e.name));
    if (saved == nullptr)
        return UCI_ERR_MEM;
    uci_element *e = nullptr;
    uci_foreach_element(&ctx->delta_path, e)
    {
        heap<char> path(join_path(e->name, package->e.name));
        if (path == nullptr)
            return UCI_ERR_MEM;
        // A commit holds the lock of the saved changes, and would wait for itself under another name of their file.
        bool is_saved = strcmp(e->name, ctx->savedir) == 0 || is_same_file(path.get(), saved.get());
        int rc = is_saved ? UCI_OK : apply_delta_at(ctx, package, path.get(), applied);
        if (rc != UCI_OK)
            return rc;
    }
    return UCI_OK;
}

int apply_all_deltas(uci_context *ctx, uci_package *package)
{
    int applied = 0;
    int rc = apply_other_deltas(ctx, package, &applied);
    if (rc != UCI_OK)
        return rc;
    heap<char> saved(saved_delta_path(ctx, package->e.name));
    return saved != nullptr ? apply_delta_at(ctx, package, saved.get(), &applied) : UCI_ERR_MEM;
}

int save_delta(uci_context *ctx, uci_package *package)
{
    if (uci_list_empty(&package->delta))
        return UCI_OK;
    text_builder text;
    uci_element *e = nullptr;
    if (text.stream() != nullptr) {
        uci_foreach_element(&package->delta, e)
        {
            write_delta_line(text.stream(), package->e.name, uci_to_delta(e));
        }
    }
    int rc = text.finish();
    if (rc == UCI_OK)
        rc = append_to_file(ctx, package, text);
    if (rc != UCI_OK)
        return rc;

    while (!uci_list_empty(&package->delta)) {
        uci_delta *delta = uci_to_delta(list_to_element(package->delta.next));
        list_remove(&delta->e.list);
        if ((ctx->flags & UCI_FLAG_SAVED_DELTA) != 0)
            list_append(&package->saved_delta, &delta->e.list);
        else
            delta_free(delta);
    }
    return UCI_OK;
}

} // namespace uci_impl
