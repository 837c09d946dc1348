// SPDX-License-Identifier: MIT
// Writes packages as configuration text.
#include "packages.h"
#include "support.h"

#include <cstring>

namespace uci_impl {

namespace {

// Types and names of packages may hold characters that mean something outside of quotes.
void write_word(FILE *stream, const char *word)
{
    if (strpbrk(word, "'\"#;\\") != nullptr)
        write_quoted(stream, word);
    else
        fputs(word, stream);
}

void write_entry(FILE *stream, const char *keyword, const char *name, const char *value)
{
    fprintf(stream, "\t%s %s ", keyword, name);
    write_quoted(stream, value);
    fputc('\n', stream);
}

void write_option(FILE *stream, uci_option *option)
{
    if (option->type == UCI_TYPE_STRING) {
        write_entry(stream, "option", option->e.name, option->v.string);
        return;
    }
    uci_element *item = nullptr;
    uci_foreach_element(&option->v.list, item) write_entry(stream, "list", option->e.name, item->name);
}

} // namespace

void write_quoted(FILE *stream, const char *text)
{
    fputc('\'', stream);
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c == '\'')
            fputs("'\\''", stream);
        else
            fputc(*c, stream);
    }
    fputc('\'', stream);
}

int write_package(FILE *stream, uci_package *package, bool header, bool with_generated_names)
{
    if (header) {
        fputs("package ", stream);
        write_word(stream, package->e.name);
        fputc('\n', stream);
    }
    uci_element *s = nullptr;
    uci_foreach_element(&package->sections, s)
    {
        uci_section *section = uci_to_section(s);
        fputs("\nconfig ", stream);
        write_word(stream, section->type);
        if (!section->anonymous || with_generated_names)
            fprintf(stream, " '%s'", section->e.name);
        fputc('\n', stream);
        uci_element *o = nullptr;
        uci_foreach_element(&section->options, o) write_option(stream, uci_to_option(o));
    }
    fputc('\n', stream);
    return ferror(stream) == 0 ? UCI_OK : UCI_ERR_IO;
}

} // namespace uci_impl

using namespace uci_impl;

int uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header)
{
    return guarded(ctx, [&] {
        if (stream == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        bool names = (ctx->flags & UCI_FLAG_EXPORT_NAME) != 0;
        if (package != nullptr)
            return write_package(stream, package, header, names);
        uci_element *e = nullptr;
        uci_foreach_element(&ctx->root, e)
        {
            int rc = write_package(stream, uci_to_package(e), header, names);
            if (rc != UCI_OK)
                return rc;
        }
        return static_cast<int>(UCI_OK);
    });
}
