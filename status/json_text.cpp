// SPDX-License-Identifier: MIT
#include "status/json_text.h"

#include <cinttypes>

extern "C" {
#include <libubox/blobmsg.h>
}

#include "platform/text.h"
#include "status/fields.h"

constexpr int DEEPEST = 8;

// As the daemon sends them, texts are printable; what comes from another one becomes so.
static void print_text(FILE *out, const char *text)
{
    fputc('"', out);
    for (; *text != '\0'; text++) {
        if (*text == '"' || *text == '\\')
            fputc('\\', out);
        fputc(*text >= ' ' && *text <= '~' ? *text : '?', out);
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
