// SPDX-License-Identifier: MIT
// Waiting changes: one line each, in a file per package of the save directory.
#pragma once

#include "files.h"

#include <uci.h>

namespace uci_impl {

// A change that makes no sense is skipped, one that cannot be made has no effect. *applied counts those understood.
// Applies an open file of waiting changes.
int apply_delta_file(uci_context *ctx, uci_package *package, int fd, int *applied);

// Applies the files of all delta directories but the save directory, whose file is the last to be applied.
int apply_other_deltas(uci_context *ctx, uci_package *package, int *applied);

// All of them, in their order.
int apply_all_deltas(uci_context *ctx, uci_package *package);

// The file of a package in the save directory; a new string or null.
char *saved_delta_path(uci_context *ctx, const char *package);

// Appends the changes made in memory to the save directory.
int save_delta(uci_context *ctx, uci_package *package);

} // namespace uci_impl
