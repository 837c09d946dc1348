// SPDX-License-Identifier: MIT
// Bringing waiting changes into the files of their packages, or saving them for later.
#include "delta.h"
#include "packages.h"
#include "tree.h"

#include <fcntl.h>

namespace uci_impl {

namespace {

// The locked files of one commit, the package before its waiting changes; readers lock them in the same order. Who
// finds the new package has to wait until its changes are gone from the waiting ones, so everyone sees each change
// once.
struct commit_files {
    commit_files() = default;
    commit_files(const commit_files &) = delete;
    commit_files &operator=(const commit_files &) = delete;
    ~commit_files()
    {
        // An empty file made for its lock alone; done while the lock is held.
        if (created != nullptr)
            unlink_if_same(created, config.get());
    }

    const char *created = nullptr; // borrowed path; null if the file was there before
    scoped_fd config;
    scoped_fd delta; // not valid if nothing was ever saved
};

int lock_config(const char *path, commit_files *files)
{
    int rc = open_exclusive(path, 0, 0, &files->config);
    if (rc != UCI_ERR_NOTFOUND)
        return rc;
    rc = open_exclusive(path, O_CREAT, UCI_FILEMODE, &files->config);
    if (rc != UCI_OK)
        return UCI_ERR_IO;
    files->created = path;
    return UCI_OK;
}

int lock_files(uci_context *ctx, uci_package *package, commit_files *files)
{
    int rc = lock_config(package->path, files);
    if (rc != UCI_OK)
        return rc;
    if (!package->has_delta)
        return UCI_OK;
    heap<char> path(saved_delta_path(ctx, package->e.name));
    if (path == nullptr)
        return UCI_ERR_MEM;
    rc = open_exclusive(path.get(), 0, 0, &files->delta);
    if (rc == UCI_ERR_NOTFOUND) {
        files->delta.reset();
        return UCI_OK;
    }
    return rc;
}

// Writes the package over its file; only then may the waiting changes go.
int write_out(uci_package *package, commit_files *files)
{
    text_builder text;
    if (text.stream() != nullptr)
        write_package(text.stream(), package, false, false);
    int rc = text.finish();
    if (rc == UCI_OK)
        rc = replace_file(package->path, package->e.name, files->config.get(), text);
    if (rc != UCI_OK)
        return rc;
    return !files->delta.valid() || ftruncate(files->delta.get(), 0) == 0 ? UCI_OK : UCI_ERR_IO;
}

int overwrite_file(uci_context *ctx, uci_package *package)
{
    commit_files files;
    int rc = lock_files(ctx, package, &files);
    return rc == UCI_OK ? write_out(package, &files) : rc;
}

// A package like this one as it now stands in the locked files.
int read_again(uci_context *ctx, const uci_package *package, commit_files *files, uci_package *fresh, int *applied)
{
    file_text text;
    fresh->uses_conf2 = package->uses_conf2;
    int rc = read_all(files->config.get(), &text);
    if (rc == UCI_OK)
        rc = parse_config(ctx, text.data.get(), text.size, fresh, recording::off);
    if (rc == UCI_OK)
        rc = apply_other_deltas(ctx, fresh, applied);
    return rc == UCI_OK && files->delta.valid() ? apply_delta_file(ctx, fresh, files->delta.get(), applied) : rc;
}

void take_place_of(uci_package *old, uci_package *fresh)
{
    list_insert_before(&old->e.list, &fresh->e.list);
    package_free(old);
}

// The text of a package knows no empty lists.
void drop_empty_lists(uci_package *package)
{
    uci_element *s = nullptr;
    uci_foreach_element(&package->sections, s)
    {
        uci_element *o = nullptr;
        uci_element *next = nullptr;
        uci_foreach_element_safe(&uci_to_section(s)->options, next, o)
        {
            uci_option *option = uci_to_option(o);
            if (option->type == UCI_TYPE_LIST && uci_list_empty(&option->v.list))
                option_free(option);
        }
    }
}

int commit_changes(uci_context *ctx, uci_package **package)
{
    int rc = save_delta(ctx, *package);
    commit_files files;
    if (rc == UCI_OK)
        rc = lock_files(ctx, *package, &files);
    if (rc != UCI_OK)
        return rc;

    uci_package *fresh = package_create(ctx, (*package)->e.name, (*package)->path);
    if (fresh == nullptr)
        return UCI_ERR_MEM;
    int applied = 0;
    rc = read_again(ctx, *package, &files, fresh, &applied);
    if (rc == UCI_OK && applied > 0)
        rc = write_out(fresh, &files);
    if (rc != UCI_OK || applied == 0) {
        package_free(fresh);
        return rc;
    }
    drop_empty_lists(fresh);
    delta_list_clear(&fresh->saved_delta);
    take_place_of(*package, fresh);
    *package = fresh;
    return UCI_OK;
}

int commit(uci_context *ctx, uci_package **package, bool overwrite)
{
    uci_package *p = *package;
    if (p->has_delta && !overwrite)
        return commit_changes(ctx, package);
    // Changes nobody saved are not to be written behind their back.
    if (p->has_delta && !uci_list_empty(&p->delta))
        return UCI_OK;
    int rc = overwrite_file(ctx, p);
    if (rc == UCI_OK)
        delta_list_clear(&p->saved_delta);
    return rc;
}

} // namespace

} // namespace uci_impl

using namespace uci_impl;

int uci_save(uci_context *ctx, uci_package *p)
{
    return guarded(ctx, [&] {
        if (p == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        return p->has_delta ? save_delta(ctx, p) : overwrite_file(ctx, p);
    });
}

int uci_commit(uci_context *ctx, uci_package **package, bool overwrite)
{
    return guarded(ctx, [&] {
        if (package == nullptr || *package == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        return commit(ctx, package, overwrite);
    });
}
