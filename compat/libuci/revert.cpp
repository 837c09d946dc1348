// SPDX-License-Identifier: MIT
// Dropping changes that wait in the save directory.
#include "delta.h"
#include "delta_line.h"
#include "lookup.h"
#include "packages.h"
#include "tree.h"

#include <cstring>

namespace uci_impl {

namespace {

bool is_about(const delta_line &line, const uci_ptr &ptr)
{
    if (ptr.section == nullptr)
        return true;
    if (strcmp(line.ptr.section, ptr.section) != 0)
        return false;
    return ptr.option == nullptr || (line.ptr.option != nullptr && strcmp(line.ptr.option, ptr.option) == 0);
}

// Copies the lines that are not about ptr.
int filter_delta(const file_text &text, const char *package, const uci_ptr &ptr, FILE *out)
{
    line_reader reader(text.data.get(), text.size);
    delta_line line;
    for (;;) {
        size_t start = reader.consumed();
        int rc = next_delta_line(&reader, package, &line);
        if (rc == UCI_ERR_NOTFOUND)
            return UCI_OK;
        if (rc != UCI_OK)
            return rc;
        if (!line.valid || !is_about(line, ptr))
            fwrite(text.data.get() + start, 1, reader.consumed() - start, out);
    }
}

int drop_changes(uci_context *ctx, const uci_ptr &ptr)
{
    heap<char> path(saved_delta_path(ctx, ptr.p->e.name));
    if (path == nullptr)
        return UCI_ERR_MEM;
    scoped_fd fd;
    file_text text;
    int rc = open_exclusive(path.get(), 0, 0, &fd);
    if (rc == UCI_ERR_NOTFOUND)
        return UCI_OK;
    if (rc == UCI_OK)
        rc = read_all(fd.get(), &text);
    if (rc != UCI_OK)
        return rc;

    text_builder kept;
    rc = kept.stream() != nullptr ? filter_delta(text, ptr.p->e.name, ptr, kept.stream()) : UCI_ERR_MEM;
    int finished = kept.finish();
    if (rc != UCI_OK || finished != UCI_OK)
        return rc != UCI_OK ? rc : finished;
    // What is kept is never longer than what was there, so it fits in place.
    if (kept.size() == text.size)
        return UCI_OK;
    bool written = pwrite(fd.get(), kept.data(), kept.size(), 0) == static_cast<ssize_t>(kept.size());
    return written && ftruncate(fd.get(), static_cast<off_t>(kept.size())) == 0 ? UCI_OK : UCI_ERR_IO;
}

// Takes the package from its files again; names that belonged to the old one go with it.
int reload(uci_context *ctx, uci_ptr *ptr)
{
    heap<char> name(strdup(ptr->p->e.name));
    if (name == nullptr)
        return UCI_ERR_MEM;
    if (ptr->package == ptr->p->e.name)
        ptr->package = nullptr;
    if (ptr->s != nullptr && ptr->section == ptr->s->e.name)
        ptr->section = nullptr;
    if (ptr->o != nullptr && ptr->option == ptr->o->e.name)
        ptr->option = nullptr;
    package_free(ptr->p);
    ptr->p = nullptr;
    ptr->s = nullptr;
    ptr->o = nullptr;
    ptr->last = nullptr;
    int rc = load_package(ctx, name.get(), &ptr->p);
    if (rc == UCI_OK)
        ptr->last = &ptr->p->e;
    return rc;
}

} // namespace

} // namespace uci_impl

using namespace uci_impl;

int uci_revert(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] {
        if (ptr == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        int rc = resolve(ctx, ptr);
        if (rc != UCI_OK)
            return rc;
        if (!ptr->p->has_delta)
            return static_cast<int>(UCI_ERR_INVAL);
        // What was not saved yet is dropped by the same rules.
        rc = save_delta(ctx, ptr->p);
        if (rc == UCI_OK)
            rc = drop_changes(ctx, *ptr);
        return rc == UCI_OK ? reload(ctx, ptr) : rc;
    });
}
