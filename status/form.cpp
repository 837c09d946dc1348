// SPDX-License-Identifier: MIT
#include "status/form.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/printable_text.h"
#include "platform/text.h"
#include "status/fields.h"
#include "status/words.h"

constexpr size_t NAME_SIZE = 32;

static const char *number_text(int64_t number)
{
    static char text[24];
    snprintf(text, sizeof text, "%" PRId64, number);
    return text;
}

// Null when the value is not of that kind.
static const char *value_text(blob_attr *value, char kind)
{
    const int64_t number = number_of(value);
    switch (kind) {
    case 't':
        return number == NO_NUMBER ? nullptr : time_text(number);
    case 'w':
        return number == NO_NUMBER ? nullptr : wait_text(number);
    case 'd':
        return number > 0 ? number_text(number) : nullptr;
    case 'n':
        return number_text(count_elements(value));
    case '0':
    case '1':
        return number == kind - '0' ? "" : nullptr;
    default:
        break;
    }
    const char *text = text_of(value);
    if (*text == '\0')
        return nullptr;
    return kind == 'x' ? text_for(text) : text;
}

// Goes on behind the place.
static const char *value_at(const char **place, blob_attr *table)
{
    for (;;) {
        char name[NAME_SIZE];
        const size_t length = std::min(strcspn(*place, ".:}"), sizeof name - 1);
        memcpy(name, *place, length);
        name[length] = '\0';
        table = table ? find_field(table, name) : nullptr;
        *place += length + 1;
        if ((*place)[-1] != '.')
            break;
    }
    if ((*place)[-1] == '}')
        return value_text(table, '\0');
    const char kind = **place;
    *place += 2;
    return value_text(table, kind);
}

void fill_form(char *text, size_t size, const char *form, blob_attr *table)
{
    size_t used = 0;
    size_t bracket = 0; // where it began
    bool complete = true;
    while (*form != '\0' && (*form != '|' || used == 0)) {
        const char next = *form++;
        if (next == '[') {
            bracket = used;
            complete = true;
        } else if (next == ']') {
            used = complete ? used : bracket;
        } else if (next == '{') {
            const char *value = value_at(&form, table);
            complete = complete && value;
            if (value)
                used = std::min(used + bounded_copy(text + used, value, size - used), size - 1);
        } else if (next != '|' && used < size - 1) {
            text[used++] = next;
        }
    }
    text[used] = '\0';
    make_printable(text);
}
