// SPDX-License-Identifier: MIT
// Paths into a configuration, and edits of what they lead to. Each line of the input is a letter that chooses the edit,
// and a path ("s net.lan.ipaddr=192.0.2.1" without the blank).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <uci.h>

#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr size_t MOST_EDITS = 32;

constexpr char CONFIGURATION[] = "config interface 'lan'\n\toption ipaddr '192.0.2.1'\n\tlist dns '1'\n\tlist dns '2'\n"
                                 "config rule\n\toption name 'first'\n"
                                 "config rule\n\toption name 'second'\n";

void import(uci_context *ctx, const std::string &text)
{
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    REQUIRE(stream && uci_import(ctx, stream, "net", nullptr, true) == UCI_OK);
    fclose(stream);
}

std::string export_package(uci_context *ctx)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    REQUIRE(uci_export(ctx, stream, nullptr, false) == UCI_OK);
    fclose(stream);
    const std::string result(text, size);
    free(text);
    return result;
}

uci_context *open_context(const std::string &text)
{
    uci_context *ctx = uci_alloc_context();
    REQUIRE(ctx && uci_set_confdir(ctx, "/nowhere") == UCI_OK);
    import(ctx, text);
    return ctx;
}

// New names and types are the caller's business: the library takes what it will not read again.
bool is_readable(const char *word)
{
    return word && *word &&
           strspn(word, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") == strlen(word);
}

void edit(uci_context *ctx, char how, std::string path)
{
    uci_ptr ptr = {};
    if (uci_lookup_ptr(ctx, &ptr, path.data(), true) != UCI_OK)
        return;
    REQUIRE(ptr.p && ptr.last);
    uci_section *added = nullptr;
    if ((how == 'r' || how == 'n') && !is_readable(ptr.value))
        return;
    switch (how) {
    case 's':
        uci_set(ctx, &ptr);
        break;
    case 'd':
        uci_delete(ctx, &ptr);
        break;
    case 'r':
        uci_rename(ctx, &ptr);
        break;
    case 'a':
        uci_add_list(ctx, &ptr);
        break;
    case 'l':
        uci_del_list(ctx, &ptr);
        break;
    case 'o':
        if (ptr.s)
            uci_reorder_section(ctx, ptr.s, ptr.value ? atoi(ptr.value) : 0);
        break;
    case 'n':
        uci_add_section(ctx, ptr.p, ptr.value, &added);
        break;
    default:
        break;
    }
}

// A section that the text, read again, may take for another one. A type of another length makes a generated name a
// permanent one, and names of this look may be given, too. An anonymous section that edits put before it is counted
// anew and may get the same name. A router's own library reads it no better, and programs rely on the names.
bool has_ambiguous_name(uci_context *ctx)
{
    uci_element *package = nullptr;
    uci_element *section = nullptr;
    bool behind_anonymous = false;
    uci_foreach_element(&ctx->root, package)
    {
        uci_foreach_element(&uci_to_package(package)->sections, section)
        {
            if (uci_to_section(section)->anonymous)
                behind_anonymous = true;
            else if (behind_anonymous && strncmp(section->name, "cfg", strlen("cfg")) == 0)
                return true;
        }
    }
    return false;
}

} // namespace

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    uci_context *ctx = open_context(CONFIGURATION);
    for (const std::string &line : split(text_of({data, size}), "\n", MOST_EDITS))
        if (!line.empty())
            edit(ctx, line[0], line.substr(1));
    const std::string edited = export_package(ctx);
    const bool is_ambiguous = has_ambiguous_name(ctx);
    uci_free_context(ctx);
    if (is_ambiguous)
        return 0;

    uci_context *again = open_context(edited);
    REQUIRE(export_package(again) == edited);
    uci_free_context(again);
    return 0;
}
