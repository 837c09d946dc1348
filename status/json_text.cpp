// SPDX-License-Identifier: MIT
#include "status/json_text.h"

#include <cinttypes>
#include <cstdint>

extern "C" {
#include <libubox/blobmsg.h>
}

#include "platform/text.h"
#include "status/fields.h"

constexpr int DEEPEST = 8;
constexpr uint32_t NO_CHARACTER = 0xfffd;
constexpr uint32_t LAST_OF_PLANE = 0xffff; // beyond, JSON takes two halves
constexpr uint32_t FIRST_HALF = 0xd800;
constexpr uint32_t SECOND_HALF = 0xdc00;
constexpr uint32_t HALVES = 0x800;
constexpr uint32_t LAST_CHARACTER = 0x10ffff;

// Takes one character off the front of the text, of which nothing but the end is taken for granted.
static uint32_t next_character(const char *&text)
{
    const unsigned char first = static_cast<unsigned char>(*text++);
    if (first < 0x80)
        return first;
    if (first < 0xc2 || first > 0xf4)
        return NO_CHARACTER;
    const int behind = first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
    uint32_t character = first & (0x3fu >> behind);
    for (int i = 0; i < behind; i++) {
        if ((text[i] & 0xc0) != 0x80) // as the end is
            return NO_CHARACTER;
        character = character << 6 | (text[i] & 0x3f);
    }
    const bool fits_in_less = behind > 1 && character >> (5 * behind + 1) == 0;
    if (fits_in_less || character > LAST_CHARACTER || character - FIRST_HALF < HALVES)
        return NO_CHARACTER;
    text += behind;
    return character;
}

static void print_escaped(FILE *out, uint32_t character)
{
    if (character <= LAST_OF_PLANE) {
        fprintf(out, "\\u%04" PRIx32, character);
        return;
    }
    const uint32_t rest = character - LAST_OF_PLANE - 1;
    fprintf(out, "\\u%04" PRIx32 "\\u%04" PRIx32, FIRST_HALF + (rest >> 10), SECOND_HALF + (rest & 0x3ff));
}

static void print_text(FILE *out, const char *text)
{
    fputc('"', out);
    while (*text != '\0') {
        const uint32_t character = next_character(text);
        if (character == '"' || character == '\\')
            fprintf(out, "\\%c", static_cast<char>(character));
        else if (character >= ' ' && character <= '~')
            fputc(static_cast<char>(character), out);
        else
            print_escaped(out, character);
    }
    fputc('"', out);
}

static void print_elements(FILE *out, blob_attr *container, bool named, int depth);

static void print_value(FILE *out, blob_attr *value, int depth)
{
    switch (blobmsg_type(value)) {
    case BLOBMSG_TYPE_ARRAY:
    case BLOBMSG_TYPE_TABLE:
        print_elements(out, value, blobmsg_type(value) == BLOBMSG_TYPE_TABLE, depth + 1);
        break;
    case BLOBMSG_TYPE_STRING:
        print_text(out, text_of(value));
        break;
    case BLOBMSG_TYPE_BOOL:
        fputs(true_or_false(number_of(value)), out);
        break;
    case BLOBMSG_TYPE_INT32:
    case BLOBMSG_TYPE_INT64:
        fprintf(out, "%" PRId64, number_of(value));
        break;
    default: // no reply of ours has another one
        fputs("null", out);
        break;
    }
}

static void print_elements(FILE *out, blob_attr *container, bool named, int depth)
{
    if (depth > DEEPEST) {
        fputs("null", out);
        return;
    }
    fputc(named ? '{' : '[', out);
    const char *separator = "";
    t_elements elements(container);
    while (blob_attr *element = elements.next()) {
        fputs(separator, out);
        separator = ", ";
        if (named) {
            print_text(out, blobmsg_name(element));
            fputs(": ", out);
        }
        print_value(out, element, depth);
    }
    fputc(named ? '}' : ']', out);
}

void print_json(FILE *out, blob_attr *reply)
{
    print_elements(out, reply, true, 0);
    fputc('\n', out);
}
