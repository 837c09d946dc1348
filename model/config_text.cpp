// SPDX-License-Identifier: MIT
// Texts of the configuration.
#include "model/config_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "model/records.h"

uci_element *next_config_element(uci_list *list, uci_element *current)
{
    if (!list)
        return nullptr;
    uci_list *next = current ? current->list.next : list->next;
    return next == list ? nullptr : list_to_element(next);
}

static uci_element *find_element(uci_list *list, const char *name)
{
    uci_element *element = nullptr;
    while ((element = next_config_element(list, element)) && strcmp(element->name, name) != 0) {
    }
    return element;
}

uci_section *find_config_section(uci_package *package, const char *name)
{
    uci_element *element = find_element(&package->sections, name);
    return element ? uci_to_section(element) : nullptr;
}

uci_option *find_config_option(uci_section *section, const char *name)
{
    uci_element *element = section ? find_element(&section->options, name) : nullptr;
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

bool is_ethernet_name(const char *name)
{
    return has_prefix(name, "eth");
}
