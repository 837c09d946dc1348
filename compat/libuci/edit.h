// SPDX-License-Identifier: MIT
// Changes to the tree. Each either happens completely, with its entry among the waiting changes if it is to be
// recorded, or leaves everything as it was. All return an error code of uci.h.
#pragma once

#include <uci.h>

namespace uci_impl {

// Recorded changes wait in uci_package::delta; a package loaded by path records nothing.
enum class recording : bool { off, on };

int create_section(uci_package *package, const char *type, const char *name, recording record, uci_section **section);
int change_type(uci_section *section, const char *type, recording record);
int change_option(uci_section *section, const char *name, const char *value, recording record);
int append_item(uci_section *section, const char *name, const char *value, recording record);

// The public functions of the same names, for a pointer that may still need its lookup.
int edit_set(uci_context *ctx, uci_ptr *ptr, recording record);
int edit_delete(uci_context *ctx, uci_ptr *ptr, recording record);
int edit_rename(uci_context *ctx, uci_ptr *ptr, recording record);
int edit_add_list(uci_context *ctx, uci_ptr *ptr, recording record);
int edit_del_list(uci_context *ctx, uci_ptr *ptr, recording record);
// position counts from 0; past the end means the end.
int edit_reorder(uci_section *section, int position, recording record);

} // namespace uci_impl
