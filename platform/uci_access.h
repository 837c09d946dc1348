// SPDX-License-Identifier: MIT
// Single values of the router's configuration in /etc/config. Each call opens and frees a context of its own, so any
// thread may call; results are OK or UCI_ACCESS_FAILED, and every failure has been logged.
#pragma once

#include <uci.h>

#include "platform/uci_limits.h"

// Reads the string option at `p_uci_str` ("package.section.option") into `value`, which is left alone on failure. A
// path of UCI_PATH_SIZE characters or more is refused.
int _uci_get_value(const char *p_uci_str, char (&value)[UCI_VALUE_SIZE]);

// Sets and commits one option. `p_uci_str` is cut at its first dot by the call, so it must be writable.
int _uci_set_value_commit(char *p_uci_str, const char *p_value);

// A package opened for a walk over its sections; closed at the end of the scope. `package` is null when it could not be
// loaded. The name is borrowed.
struct t_uci_package {
    uci_package *package;

    explicit t_uci_package(const char *name);
    ~t_uci_package();
    t_uci_package(const t_uci_package &) = delete;
    t_uci_package &operator=(const t_uci_package &) = delete;

    // Writes the library's reason to standard error, as the library would.
    void tell_error() const;

private:
    uci_context *context_; // null when memory is short
    const char *name_;
    int error_;
};
