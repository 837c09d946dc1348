// SPDX-License-Identifier: MIT
// Finding and loading packages, and reading them from other texts.
#include "delta.h"
#include "names.h"
#include "packages.h"
#include "tree.h"

#include <cstring>
#include <glob.h>
#include <sys/stat.h>

namespace uci_impl {

namespace {

bool is_path(const char *name)
{
    return name[0] == '/' || strncmp(name, "./", 2) == 0;
}

bool is_regular_file(const char *path)
{
    struct stat file = {};
    return stat(path, &file) == 0 && S_ISREG(file.st_mode);
}

struct free_package {
    void operator()(uci_package *package) const { package_free(package); }
};
using package_guard = std::unique_ptr<uci_package, free_package>;

int make_package_at_path(uci_context *ctx, const char *path, uci_package **package)
{
    const char *name = strrchr(path, '/') + 1;
    if (!is_valid_package(name))
        return UCI_ERR_INVAL;
    *package = package_create(ctx, name, path);
    if (*package == nullptr)
        return UCI_ERR_MEM;
    (*package)->has_delta = false;
    return UCI_OK;
}

// Moves the packages of a list into the context, each in place of the loaded one of its name.
void list_packages(uci_context *ctx, uci_list *packages)
{
    while (!uci_list_empty(packages)) {
        uci_element *e = list_to_element(packages->next);
        list_remove(&e->list);
        uci_package *old = find_package(ctx, e->name);
        if (old != nullptr)
            package_free(old);
        list_append(&ctx->root, &e->list);
    }
}

int import_one(uci_context *ctx, const file_text &text, const char *name, uci_package **package)
{
    if (!is_valid_package_line(name))
        return UCI_ERR_INVAL;
    uci_package *created = nullptr;
    int rc = make_package(ctx, name, &created);
    if (rc != UCI_OK)
        return rc;
    package_guard guard(created);
    rc = parse_config(ctx, text.data.get(), text.size, created, recording::off);
    if (rc != UCI_OK)
        return rc;
    uci_list single = {};
    list_init(&single);
    list_append(&single, &guard.release()->e.list);
    list_packages(ctx, &single);
    if (package != nullptr)
        *package = created;
    return UCI_OK;
}

int import_many(uci_context *ctx, const file_text &text, uci_package **package)
{
    uci_list packages = {};
    list_init(&packages);
    int rc = parse_packages(ctx, text.data.get(), text.size, &packages);
    if (rc != UCI_OK) {
        while (!uci_list_empty(&packages))
            package_free(uci_to_package(list_to_element(packages.next)));
        return rc;
    }
    uci_package *last = uci_list_empty(&packages) ? nullptr : uci_to_package(list_to_element(packages.prev));
    list_packages(ctx, &packages);
    if (package != nullptr)
        *package = last;
    return UCI_OK;
}

bool is_listed_name(const char *name)
{
    return name[0] != '.' && strpbrk(name, ". ") == nullptr && is_valid_package(name);
}

const char *base_name(const char *path)
{
    return strrchr(path, '/') + 1;
}

bool is_listed_file(const char *path)
{
    return is_listed_name(base_name(path)) && is_regular_file(path);
}

// One block: the pointers, their closing null, then the names.
char **names_block(const glob_t &files)
{
    size_t count = 0;
    size_t bytes = 0;
    for (size_t i = 0; i < files.gl_pathc; ++i) {
        if (is_listed_file(files.gl_pathv[i])) {
            count++;
            bytes += strlen(base_name(files.gl_pathv[i])) + 1;
        }
    }
    size_t pointers = (count + 1) * sizeof(char *);
    auto *block = static_cast<char **>(calloc(1, pointers + bytes));
    if (block == nullptr)
        return nullptr;
    char *text = reinterpret_cast<char *>(block) + pointers;
    size_t used = 0;
    for (size_t i = 0; i < files.gl_pathc && used < count; ++i) {
        const char *name = base_name(files.gl_pathv[i]);
        size_t size = strlen(name) + 1;
        // A file that appeared since the first look has no room.
        if (!is_listed_file(files.gl_pathv[i]) || size > bytes)
            continue;
        block[used++] = static_cast<char *>(memcpy(text, name, size));
        text += size;
        bytes -= size;
    }
    return block;
}

int list_configs(uci_context *ctx, char ***list)
{
    heap<char> pattern(join_path(ctx->confdir, "*"));
    if (pattern == nullptr)
        return UCI_ERR_MEM;
    glob_t files = {};
    int found = glob(pattern.get(), 0, nullptr, &files);
    if (found != 0) {
        globfree(&files);
        return found == GLOB_NOSPACE ? UCI_ERR_MEM : UCI_ERR_NOTFOUND;
    }
    *list = names_block(files);
    globfree(&files);
    return *list != nullptr ? UCI_OK : UCI_ERR_MEM;
}

} // namespace

uci_package *find_package(uci_context *ctx, const char *name)
{
    uci_element *e = nullptr;
    uci_foreach_element(&ctx->root, e)
    {
        uci_package *package = uci_to_package(e);
        if (strcmp(is_path(name) ? package->path : e->name, name) == 0)
            return package;
    }
    return nullptr;
}

int make_package(uci_context *ctx, const char *name, uci_package **package)
{
    if (is_path(name))
        return make_package_at_path(ctx, name, package);
    if (!is_valid_package(name) || strchr(name, '/') != nullptr)
        return UCI_ERR_INVAL;
    heap<char> path(join_path(ctx->conf2dir, name));
    bool uses_conf2 = path != nullptr && is_regular_file(path.get());
    if (!uses_conf2)
        path.reset(join_path(ctx->confdir, name));
    if (path == nullptr)
        return UCI_ERR_MEM;
    *package = package_create(ctx, name, path.get());
    if (*package == nullptr)
        return UCI_ERR_MEM;
    (*package)->uses_conf2 = uses_conf2;
    return UCI_OK;
}

int load_package(uci_context *ctx, const char *name, uci_package **package)
{
    uci_package *created = nullptr;
    int rc = make_package(ctx, name, &created);
    if (rc != UCI_OK)
        return rc;
    package_guard guard(created);
    if (find_package(ctx, created->e.name) != nullptr)
        return UCI_ERR_DUPLICATE;

    // Held until the waiting changes are read too, so that no commit moves them into the file in between.
    scoped_fd fd;
    file_text text;
    rc = open_shared(created->path, &fd);
    if (rc == UCI_OK)
        rc = read_all(fd.get(), &text);
    if (rc == UCI_OK)
        rc = parse_config(ctx, text.data.get(), text.size, created, recording::off);
    if (rc == UCI_OK && created->has_delta)
        rc = apply_all_deltas(ctx, created);
    if (rc != UCI_OK)
        return rc;
    list_append(&ctx->root, &guard.release()->e.list);
    *package = created;
    return UCI_OK;
}

} // namespace uci_impl

using namespace uci_impl;

int uci_load(uci_context *ctx, const char *name, uci_package **package)
{
    return guarded(ctx, [&] {
        uci_package *loaded = nullptr;
        if (name == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        int rc = load_package(ctx, name, &loaded);
        if (rc == UCI_OK && package != nullptr)
            *package = loaded;
        return rc;
    });
}

int uci_unload(uci_context *ctx, uci_package *p)
{
    return guarded(ctx, [&] {
        if (p == nullptr)
            return UCI_ERR_INVAL;
        package_free(p);
        return UCI_OK;
    });
}

int uci_import(uci_context *ctx, FILE *stream, const char *name, uci_package **package, bool single)
{
    return guarded(ctx, [&] {
        if (stream == nullptr || (single && name == nullptr))
            return static_cast<int>(UCI_ERR_INVAL);
        file_text text;
        int rc = read_stream(stream, &text);
        if (rc != UCI_OK)
            return rc;
        if (package != nullptr && *package != nullptr)
            return parse_config(ctx, text.data.get(), text.size, *package, recording::on);
        return name != nullptr ? import_one(ctx, text, name, package) : import_many(ctx, text, package);
    });
}

int uci_list_configs(uci_context *ctx, char ***list)
{
    return guarded(ctx, [&] { return list != nullptr ? list_configs(ctx, list) : UCI_ERR_INVAL; });
}
