// SPDX-License-Identifier: MIT
#include "model/port_names.h"

#include <cstdlib>
#include <cstring>

#include "model/config_text.h"
#include "platform/text.h"

static char prefixes[CONFIG_TEXT_SIZE] = "eth";

void set_port_prefixes(const char *words)
{
    const bool is_empty = words[strspn(words, " ")] == '\0';
    bounded_copy(prefixes, is_empty ? DEFAULT_PORT_PREFIX : words, sizeof prefixes);
    if (setenv(PORT_PREFIX_VARIABLE, is_empty ? "" : prefixes, 1) != 0)
        unsetenv(PORT_PREFIX_VARIABLE); // the script looks itself
}

bool is_port_name(const char *name)
{
    char prefix[CONFIG_TEXT_SIZE];
    for (const char *rest = prefixes; next_word(&rest, prefix);) {
        if (has_prefix(name, prefix))
            return true;
    }
    return false;
}

bool is_own_port_name(const char *name)
{
    return is_port_name(name) && !strchr(name, '.');
}
