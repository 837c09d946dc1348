// SPDX-License-Identifier: MIT
// From "package.section.option=value" to the elements it names.
#pragma once

#include <uci.h>

namespace uci_impl {

// Cuts str in place. On failure ptr is zeroed. UCI_OK, UCI_ERR_PARSE, UCI_ERR_INVAL.
int parse_tuple(uci_ptr *ptr, char *str);

// str null: the names, or the elements, are already in ptr.
int lookup(uci_context *ctx, uci_ptr *ptr, char *str, bool extended);

// Looks a pointer up unless that was done, and completes its names from its elements. UCI_ERR_INVAL without package.
int resolve(uci_context *ctx, uci_ptr *ptr);

} // namespace uci_impl
