// SPDX-License-Identifier: MIT
#include "platform/printable_text.h"

#include "platform/text.h"

constexpr char FIRST_PRINTABLE = ' ';
constexpr char LAST_PRINTABLE = '~';

void make_printable(char *text)
{
    for (; *text != '\0'; text++)
        if (*text < FIRST_PRINTABLE || *text > LAST_PRINTABLE)
            *text = '?';
}

t_printable_text::t_printable_text(const char *foreign) : text{}
{
    bounded_copy(text, foreign, sizeof text);
    make_printable(text);
}
