// SPDX-License-Identifier: MIT
// A library context on the router's configuration, for the sources of uci_access.h and for commits.
#pragma once

#include <uci.h>

constexpr int UCI_ACCESS_FAILED = -1;

// Null when memory is short. The caller frees it.
uci_context *open_uci_context();

// Like uci_load and, in the extended syntax, uci_lookup_ptr; but when a file stayed locked it is UCI_ERR_IO, whatever
// the library made of that.
int load_uci_package(uci_context *context, const char *name, uci_package **package);
int look_up_uci_path(uci_context *context, uci_ptr *pointer, char *path);

struct t_uci_context_guard {
    uci_context *context;
    explicit t_uci_context_guard(uci_context *made) : context(made) {}
    ~t_uci_context_guard()
    {
        if (context)
            uci_free_context(context);
    }
    t_uci_context_guard(const t_uci_context_guard &) = delete;
    t_uci_context_guard &operator=(const t_uci_context_guard &) = delete;
};
