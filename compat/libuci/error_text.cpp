// SPDX-License-Identifier: MIT
#include "error_text.h"

#include <cstdio>

namespace uci_impl {

namespace {

const char *const error_texts[] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};

const char *error_text(int code)
{
    bool known = code >= UCI_OK && code < UCI_ERR_LAST;
    return error_texts[known ? code : static_cast<int>(UCI_ERR_UNKNOWN)];
}

} // namespace

heap<char> describe_error(const uci_context *ctx, const char *prefix)
{
    int code = ctx != nullptr ? ctx->err : UCI_ERR_INVAL;
    const char *start = prefix != nullptr ? prefix : "";
    const char *separator = prefix != nullptr ? ": " : "";
    const uci_parse_context *place = ctx != nullptr ? ctx->pctx : nullptr;
    char *text = nullptr;
    int length = 0;
    if (code == UCI_ERR_PARSE && place != nullptr && place->reason != nullptr)
        length = asprintf(&text, "%s%s%s (%s) at line %d, byte %d", start, separator, error_text(code), place->reason,
                          place->line, place->byte);
    else
        length = asprintf(&text, "%s%s%s", start, separator, error_text(code));
    return heap<char>(length < 0 ? nullptr : text);
}

} // namespace uci_impl
