// SPDX-License-Identifier: MIT
// The tree in memory: packages own sections, sections own options, options own their text or their items.
// Nothing here records a change. A null result means that memory has run out.
#pragma once

#include <uci.h>

namespace uci_impl {

void list_init(uci_list *list);
void list_append(uci_list *list, uci_list *entry);
void list_insert_before(uci_list *position, uci_list *entry);
void list_remove(uci_list *entry);

// The first element of that name, or null.
uci_element *find_element(uci_list *list, const char *name);
uci_section *find_section(uci_package *package, const char *name);
uci_option *find_option(uci_section *section, const char *name);

// A package outside of every list.
uci_package *package_create(uci_context *ctx, const char *name, const char *path);
void package_free(uci_package *package);

// Appended to the package; name null or empty: anonymous.
uci_section *section_create(uci_package *package, const char *type, const char *name);
void section_free(uci_section *section);

// Appended to the section: an empty list until it is given a text.
uci_option *option_create(uci_section *section, const char *name);
void option_free(uci_option *option);

// These leave the old value in place when they fail.
bool option_set_string(uci_option *option, const char *value);
bool option_append_item(uci_option *option, const char *value);
void item_free(uci_element *item);

bool replace_text(char **slot, const char *text);

uci_delta *delta_create(uci_command cmd, const char *section, const char *option, const char *value);
void delta_free(uci_delta *delta);
void delta_list_clear(uci_list *list);

struct free_delta {
    void operator()(uci_delta *delta) const { delta_free(delta); }
};

} // namespace uci_impl
