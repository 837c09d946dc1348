// SPDX-License-Identifier: MIT
// The rest of the configuration family: changes that wait in a context for their commit, lists, and the runtime state.
// Nobody calls them in this program; they are kept as one library with uci_access.h. Any thread, each with a context of
// its own; results are OK or UCI_ACCESS_FAILED, and every failure has been logged.
#pragma once

#include <cstddef>

#include <uci.h>

#include "platform/uci_limits.h"

// The slot-taking members keep their context in `*slot` for a later _uci_commit, and create it when the slot is empty.
int _uci_set_value(uci_context **slot, const char *package, const char *section, const char *option, const char *value);
int _uci_commit(uci_context *context);
int _uci_delete(uci_context **slot, const char *package, const char *section, const char *option);
int _uci_delete_commit(const char *package, const char *section, const char *option);
int _uci_add_list(uci_context **slot, const char *package, const char *section, const char *option, const char *value);
int _uci_add_list_commit(const char *package, const char *section, const char *option, const char *value);
int _uci_del_add_list(uci_context **slot, const char *package, const char *section, const char *option,
                      const char *value);
int _uci_del_add_list_commit(const char *package, const char *section, const char *option, const char *value);

// Reads a value of the runtime state kept in /var/state into `value` (`size` bytes, cut and terminated).
int _uci_get_state_value(const char *package, const char *section, const char *option, char *value, size_t size);
