// SPDX-License-Identifier: MIT
// Texts of the log that stand in a table.
#pragma once

#include <string_view>

// Such a text takes the named conversions and no others, in this order (t_text<'s'> takes one string), and ends its
// line. The compiler looks. Only a null text is not said, where that is asked.
template <char... conversions> struct t_text {
    const char *format;

    consteval t_text(decltype(nullptr)) : format(nullptr) {}
    consteval t_text(const char *text) : format(text)
    {
        const char *end = text;
        while (*end)
            end++;
        if (end - text < 2 || end[-1] != '\n' || end[-2] == '\n')
            it_is_no_line();
        const char wanted[] = {conversions..., '\0'};
        const char *next = wanted;
        for (; *text; text++)
            if (*text == '%' && *++text != *next++)
                it_takes_something_else();
        if (*next != '\0')
            it_takes_something_else();
    }

private:
    static void it_takes_something_else();
    static void it_is_no_line();
};

// Whether a function announces itself with this line. The program composes it; here it can be searched for.
consteval bool announces(std::string_view function, std::string_view line)
{
    constexpr std::string_view BEFORE = "Entering function: ", BEHIND = "!\n";
    return line.size() == BEFORE.size() + function.size() + BEHIND.size() && line.starts_with(BEFORE) &&
           line.ends_with(BEHIND) && line.substr(BEFORE.size(), function.size()) == function;
}
