// SPDX-License-Identifier: MIT
// A library context on the router's configuration, for the sources of uci_access.h and for commits.
#pragma once

#include <memory>

#include <uci.h>

struct t_uci_context_closer {
    void operator()(uci_context *context) const { uci_free_context(context); }
};
using t_uci_context_guard = std::unique_ptr<uci_context, t_uci_context_closer>;

// Null when memory is short.
t_uci_context_guard open_uci_context();

// Like uci_load and, in the extended syntax, uci_lookup_ptr; but when a file stayed locked it is UCI_ERR_IO, whatever
// the library made of that.
int load_uci_package(uci_context *context, const char *name, uci_package **package);
int look_up_uci_path(uci_context *context, uci_ptr *pointer, char *path);
