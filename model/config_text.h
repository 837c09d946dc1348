// SPDX-License-Identifier: MIT
// Texts of the configuration: options of an opened package, words of a value, numbers, and the key that leads from a
// switch section to its interface. Any thread.
#pragma once

#include <cstddef>

#include <uci.h>

#include "platform/uci_access.h"

constexpr size_t CONFIG_TEXT_SIZE = 257; // values that hold several words
constexpr size_t SWITCH_KEY_SIZE = 288;  // "switch.port<word>.ifname"

// The section or option of this name, or null.
uci_section *find_config_section(uci_package *package, const char *name);
uci_option *find_config_option(uci_section *section, const char *name);

// The elements of a list, in the file's order; a null list has none.
class t_config_list {
public:
    class t_place {
    public:
        explicit t_place(uci_list *link) : link_(link) {}
        uci_element &operator*() const { return *list_to_element(link_); }
        t_place &operator++()
        {
            link_ = link_->next;
            return *this;
        }
        bool operator==(const t_place &) const = default;

    private:
        uci_list *link_;
    };

    explicit t_config_list(uci_list *list) : list_(list) {}
    t_place begin() const { return t_place(list_ ? list_->next : nullptr); }
    t_place end() const { return t_place(list_); }

private:
    uci_list *list_;
};

inline t_config_list sections_of(uci_package *package)
{
    return t_config_list(&package->sections);
}

// A null section has no options.
inline t_config_list options_of(uci_section *section)
{
    return t_config_list(section ? &section->options : nullptr);
}

inline bool is_list_option(const uci_option *option)
{
    return option->type != UCI_TYPE_STRING;
}

// The text of an option that must be a plain one; null for a list.
inline const char *option_text(const uci_option *option)
{
    return is_list_option(option) ? nullptr : option->v.string;
}

// Copies the next word of `*text` and moves `*text` behind it; false at the end. Words are separated by spaces, several
// of them counting as one, so there are no empty words.
bool next_word(const char **text, char (&word)[CONFIG_TEXT_SIZE]);

// Reads a whole decimal number between `lowest` and `highest`; false, and `*number` untouched, for anything else.
bool parse_decimal(const char *text, long lowest, long highest, int *number);

// Reads option "ifname" of the switch section `prefix``name`; `key` receives the path read, and `ifname` stays empty on
// failure. The result of the read.
int read_switch_ifname(const char *prefix, const char *name, char (&key)[SWITCH_KEY_SIZE],
                       char (&ifname)[UCI_VALUE_SIZE]);
