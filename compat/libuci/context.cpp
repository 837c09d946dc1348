// SPDX-License-Identifier: MIT
// Contexts and their directories.
#include "support.h"
#include "tree.h"

#include <cstring>

namespace uci_impl {

namespace {

struct path_record {
    uci_element e;
};

void path_free(uci_element *path)
{
    list_remove(&path->list);
    free(path->name);
    free(path);
}

int add_delta_path(uci_context *ctx, const char *dir)
{
    if (find_element(&ctx->delta_path, dir) != nullptr)
        return UCI_OK;
    auto *path = static_cast<path_record *>(calloc(1, sizeof(path_record)));
    if (path == nullptr)
        return UCI_ERR_MEM;
    list_init(&path->e.list);
    path->e.type = UCI_TYPE_PATH;
    path->e.name = strdup(dir);
    if (path->e.name == nullptr) {
        free(path);
        return UCI_ERR_MEM;
    }
    list_append(&ctx->delta_path, &path->e.list);
    return UCI_OK;
}

int set_directory(char **slot, const char *dir)
{
    if (dir == nullptr)
        return UCI_ERR_INVAL;
    return replace_text(slot, dir) ? UCI_OK : UCI_ERR_MEM;
}

} // namespace

} // namespace uci_impl

using namespace uci_impl;

uci_context *uci_alloc_context(void)
{
    auto *ctx = static_cast<uci_context *>(calloc(1, sizeof(uci_context)));
    if (ctx == nullptr)
        return nullptr;
    list_init(&ctx->root);
    list_init(&ctx->backends);
    list_init(&ctx->delta_path);
    ctx->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
    ctx->pctx = static_cast<uci_parse_context *>(calloc(1, sizeof(uci_parse_context)));
    ctx->confdir = strdup(UCI_CONFDIR);
    ctx->savedir = strdup(UCI_SAVEDIR);
    ctx->conf2dir = strdup(UCI_CONF2DIR);
    bool complete =
        ctx->pctx != nullptr && ctx->confdir != nullptr && ctx->savedir != nullptr && ctx->conf2dir != nullptr;
    if (!complete || add_delta_path(ctx, UCI_SAVEDIR) != UCI_OK) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

void uci_free_context(uci_context *ctx)
{
    if (ctx == nullptr)
        return;
    while (!uci_list_empty(&ctx->root))
        package_free(uci_to_package(list_to_element(ctx->root.next)));
    while (!uci_list_empty(&ctx->delta_path))
        path_free(list_to_element(ctx->delta_path.next));
    free(ctx->pctx);
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx->conf2dir);
    free(ctx);
}

int uci_set_confdir(uci_context *ctx, const char *dir)
{
    return guarded(ctx, [&] { return set_directory(&ctx->confdir, dir); });
}

int uci_set_savedir(uci_context *ctx, const char *dir)
{
    return guarded(ctx, [&] {
        int rc = set_directory(&ctx->savedir, dir);
        return rc == UCI_OK ? add_delta_path(ctx, dir) : rc;
    });
}

int uci_set_conf2dir(uci_context *ctx, const char *dir)
{
    return guarded(ctx, [&] { return set_directory(&ctx->conf2dir, dir); });
}

int uci_add_delta_path(uci_context *ctx, const char *dir)
{
    return guarded(ctx, [&] { return dir != nullptr ? add_delta_path(ctx, dir) : UCI_ERR_INVAL; });
}
