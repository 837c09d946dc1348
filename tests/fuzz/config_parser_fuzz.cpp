// SPDX-License-Identifier: MIT
// Configuration texts: what was read and written out again says the same. The input is a byte of options and the text.
#include <cstdio>
#include <cstdlib>
#include <uci.h>

#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr uint8_t LENIENT = 0x01;
constexpr uint8_t MANY_PACKAGES = 0x02; // the text's own lines name them
constexpr uint8_t TWICE = 0x04;         // the second time as edits of what is there

bool import(uci_context *ctx, const std::string &text, const char *name, uci_package **package)
{
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    REQUIRE(stream);
    const bool done = uci_import(ctx, stream, name, package, name != nullptr) == UCI_OK;
    fclose(stream);
    return done;
}

std::string export_all(uci_context *ctx)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    REQUIRE(uci_export(ctx, stream, nullptr, true) == UCI_OK);
    fclose(stream);
    const std::string result(text, size);
    free(text);
    return result;
}

uci_context *open_context(uint8_t options)
{
    uci_context *ctx = uci_alloc_context();
    REQUIRE(ctx);
    if (options & LENIENT)
        ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
    return ctx;
}

} // namespace

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const uint8_t options = input.byte();
    const std::string text = text_of(input.rest());
    if (text.empty())
        return 0;
    const char *name = options & MANY_PACKAGES ? nullptr : "net";

    uci_context *ctx = open_context(options);
    uci_package *package = nullptr;
    const bool read = import(ctx, text, name, &package);
    if (read && package && (options & TWICE))
        import(ctx, text, name, &package);
    const std::string first = export_all(ctx);
    uci_free_context(ctx);

    uci_context *again = open_context(0);
    if (!first.empty())
        REQUIRE(import(again, first, nullptr, nullptr));
    REQUIRE(export_all(again) == first);
    uci_free_context(again);
    return 0;
}
