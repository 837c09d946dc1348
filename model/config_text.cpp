// SPDX-License-Identifier: MIT
// Texts of the configuration.
#include "model/config_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "model/records.h"

static uci_element *find_element(const t_config_list &list, const char *name)
{
    for (uci_element &element : list) {
        if (strcmp(element.name, name) == 0)
            return &element;
    }
    return nullptr;
}

uci_section *find_config_section(uci_package *package, const char *name)
{
    uci_element *element = find_element(sections_of(package), name);
    return element ? uci_to_section(element) : nullptr;
}

uci_option *find_config_option(uci_section *section, const char *name)
{
    uci_element *element = find_element(options_of(section), name);
    return element ? uci_to_option(element) : nullptr;
}

bool next_word(const char **text, char (&word)[CONFIG_TEXT_SIZE])
{
    const char *start = *text + strspn(*text, " ");
    const size_t length = strcspn(start, " ");
    *text = start + length;
    snprintf(word, sizeof word, "%.*s", static_cast<int>(length), start);
    return length > 0;
}

bool parse_decimal(const char *text, long lowest, long highest, int *number)
{
    char *end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (end == text || *end || errno || value < lowest || value > highest)
        return false;
    *number = static_cast<int>(value);
    return true;
}

int read_switch_ifname(const char *prefix, const char *name, char (&key)[SWITCH_KEY_SIZE],
                       char (&ifname)[UCI_VALUE_SIZE])
{
    ifname[0] = '\0';
    snprintf(key, sizeof key, "switch.%s%s.ifname", prefix, name);
    return _uci_get_value(key, ifname);
}
