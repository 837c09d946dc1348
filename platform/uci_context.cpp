// SPDX-License-Identifier: MIT
// Contexts as this program wants them: its folders, and no lock that is waited for without a limit.
#include "platform/uci_context.h"

#include "platform/uci_limits.h"
#include "platform/uci_lock.h"
#include "platform/uci_save_folder.h"

t_uci_context_guard open_uci_context()
{
    t_uci_context_guard context(uci_alloc_context());
    if (context && (uci_set_confdir(context.get(), UCI_CONFIG_DIR) != UCI_OK || !uci_guard_save_folder(context.get())))
        context.reset();
    return context;
}

int load_uci_package(uci_context *context, const char *name, uci_package **package)
{
    const t_uci_lock_watch locks;
    const int result = uci_load(context, name, package);
    if (result != UCI_OK || !locks.gave_up())
        return result;
    uci_unload(context, *package);
    *package = nullptr;
    return UCI_ERR_IO;
}

int look_up_uci_path(uci_context *context, uci_ptr *pointer, char *path)
{
    const t_uci_lock_watch locks;
    const int result = uci_lookup_ptr(context, pointer, path, true);
    return result == UCI_OK && locks.gave_up() ? static_cast<int>(UCI_ERR_IO) : result;
}
