// SPDX-License-Identifier: MIT
// One line of a delta file: reading, applying, writing.
#include "delta_line.h"

#include "edit.h"
#include "lookup.h"
#include "names.h"
#include "packages.h"
#include "tree.h"

#include <climits>
#include <cstdlib>
#include <cstring>

const char uci_command_char[] = {'+', '-', '\0', '@', '^', '|', '~'};

namespace uci_impl {

namespace {

constexpr int command_count = sizeof(uci_command_char);

uci_command take_command(line_reader *reader)
{
    for (int i = 0; i < command_count; ++i) {
        if (reader->take(uci_command_char[i]))
            return static_cast<uci_command>(i);
    }
    return UCI_CMD_CHANGE;
}

bool is_number(const char *text)
{
    return *text != '\0' && text[strspn(text, "0123456789")] == '\0';
}

// What each kind of change must name.
bool is_complete(const delta_line &line)
{
    const uci_ptr &ptr = line.ptr;
    bool has_option = ptr.option != nullptr;
    if (ptr.value == nullptr && line.cmd != UCI_CMD_REMOVE)
        return false;
    switch (line.cmd) {
    case UCI_CMD_ADD:
    case UCI_CMD_REORDER:
        return !has_option;
    case UCI_CMD_LIST_ADD:
    case UCI_CMD_LIST_DEL:
        return has_option;
    case UCI_CMD_RENAME:
        return is_valid_name(ptr.value);
    case UCI_CMD_REMOVE:
        return ptr.value == nullptr || is_number(ptr.value);
    case UCI_CMD_CHANGE:
        return true;
    }
    return false;
}

// Cuts "package.section.option=value" at its separators. Values may hold any byte here, unlike in a lookup.
bool cut_names(char *text, const char *package, uci_ptr *ptr)
{
    *ptr = {};
    char *value = strchr(text, '=');
    if (value != nullptr)
        *value++ = '\0';
    char *section = strchr(text, '.');
    if (section == nullptr)
        return false;
    *section++ = '\0';
    char *option = strchr(section, '.');
    if (option != nullptr)
        *option++ = '\0';
    ptr->package = text;
    ptr->section = section;
    ptr->option = option;
    ptr->value = value;
    return strcmp(text, package) == 0 && is_valid_name(section) && (option == nullptr || is_valid_name(option));
}

int apply_add(uci_package *package, const uci_ptr &ptr)
{
    if (!is_valid_type(ptr.value))
        return UCI_ERR_INVAL;
    if (find_section(package, ptr.section) != nullptr)
        return UCI_ERR_DUPLICATE;
    uci_section *section = nullptr;
    int rc = create_section(package, ptr.value, ptr.section, recording::off, &section);
    if (rc == UCI_OK)
        section->anonymous = true;
    return rc;
}

int apply_reorder(uci_package *package, const uci_ptr &ptr)
{
    constexpr int decimal = 10;
    uci_section *section = find_section(package, ptr.section);
    if (section == nullptr || !is_number(ptr.value))
        return UCI_ERR_INVAL;
    unsigned long position = strtoul(ptr.value, nullptr, decimal);
    return edit_reorder(section, position < INT_MAX ? static_cast<int>(position) : INT_MAX, recording::off);
}

} // namespace

int next_delta_line(line_reader *reader, const char *package, delta_line *line)
{
    line->valid = false;
    line->is_cut = false;
    int rc = reader->next_line();
    if (rc != UCI_OK || !reader->next_command())
        return rc;
    line->cmd = take_command(reader);
    size_t names = 0;
    size_t surplus = 0;
    rc = reader->read_word(&names);
    if (rc == UCI_OK)
        rc = reader->read_word(&surplus);
    if (rc == UCI_ERR_MEM)
        return rc;
    // The beginning of "-package.section.option" would remove the whole section.
    line->is_cut = rc == UCI_ERR_PARSE || (line->cmd == UCI_CMD_REMOVE && !reader->is_whole());
    if (line->is_cut)
        return UCI_OK;
    line->valid = *reader->text_at(surplus) == '\0' && cut_names(reader->text_at(names), package, &line->ptr) &&
                  is_complete(*line);
    return UCI_OK;
}

int apply_delta_line(uci_context *ctx, uci_package *package, delta_line *line)
{
    uci_ptr *ptr = &line->ptr;
    ptr->p = package;
    switch (line->cmd) {
    case UCI_CMD_ADD:
        return apply_add(package, *ptr);
    case UCI_CMD_REMOVE:
        return edit_delete(ctx, ptr, recording::off);
    case UCI_CMD_CHANGE:
        return edit_set(ctx, ptr, recording::off);
    case UCI_CMD_RENAME:
        return edit_rename(ctx, ptr, recording::off);
    case UCI_CMD_REORDER:
        return apply_reorder(package, *ptr);
    case UCI_CMD_LIST_ADD:
        return edit_add_list(ctx, ptr, recording::off);
    case UCI_CMD_LIST_DEL:
        return edit_del_list(ctx, ptr, recording::off);
    }
    return UCI_ERR_INVAL;
}

int keep_saved_delta(uci_context *ctx, uci_package *package, const delta_line &line)
{
    if ((ctx->flags & UCI_FLAG_SAVED_DELTA) == 0)
        return UCI_OK;
    uci_delta *delta = delta_create(line.cmd, line.ptr.section, line.ptr.option, line.ptr.value);
    if (delta == nullptr)
        return UCI_ERR_MEM;
    list_append(&package->saved_delta, &delta->e.list);
    return UCI_OK;
}

void write_delta_line(FILE *stream, const char *package, const uci_delta *delta)
{
    if (uci_command_char[delta->cmd] != '\0')
        fputc(uci_command_char[delta->cmd], stream);
    fprintf(stream, "%s.%s", package, delta->section);
    if (delta->e.name != nullptr)
        fprintf(stream, ".%s", delta->e.name);
    if (delta->value != nullptr) {
        fputc('=', stream);
        write_quoted(stream, delta->value);
    }
    fputc('\n', stream);
}

} // namespace uci_impl
