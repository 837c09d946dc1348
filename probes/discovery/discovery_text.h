// SPDX-License-Identifier: MIT
// Texts of the log that stand in a table.
#pragma once

#include <cstddef>
#include <string_view>

// Such a text takes the named conversions and no others, in this order (t_text<40, 's'> takes one string), and ends its
// line. The compiler looks. Only a null text is not said, where that is asked. It stands in the table itself, for a
// pointer costs as much as a text: `size` is that of the longest one with its end.
template <size_t size, char... conversions> struct t_text {
    char format[size] = {};

    consteval t_text(decltype(nullptr)) {}
    template <size_t length> consteval t_text(const char (&text)[length])
    {
        static_assert(length <= size);
        if (length < 3 || text[length - 2] != '\n' || text[length - 3] == '\n')
            it_is_no_line();
        const char wanted[] = {conversions..., '\0'};
        const char *next = wanted;
        for (size_t i = 0; i < length; i++) {
            format[i] = text[i];
            if (i > 0 && text[i - 1] == '%' && text[i] != *next++)
                it_takes_something_else();
        }
        if (*next != '\0')
            it_takes_something_else();
    }

    bool is_said() const { return *format != '\0'; }

private:
    static void it_takes_something_else();
    static void it_is_no_line();
};

// The name of a function that speaks, in the table as well.
struct t_speaker {
    char name[33] = {};

    template <size_t length> consteval void operator=(const char (&text)[length])
    {
        static_assert(length <= sizeof name);
        for (size_t i = 0; i < length; i++)
            name[i] = text[i];
    }
    constexpr operator const char *() const { return name; }
};

// Whether a function announces itself with this line. The program composes it; here it can be searched for.
consteval bool announces(const t_speaker &speaker, std::string_view line)
{
    const std::string_view function = speaker.name;
    constexpr std::string_view BEFORE = "Entering function: ", BEHIND = "!\n";
    return line.size() == BEFORE.size() + function.size() + BEHIND.size() && line.starts_with(BEFORE) &&
           line.ends_with(BEHIND) && line.substr(BEFORE.size(), function.size()) == function;
}
