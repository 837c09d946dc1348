// SPDX-License-Identifier: MIT
// The commands that only look: show, get, changes, export.
#include "packages.h"
#include "session.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using uci_impl::write_quoted;

namespace uci_cli {

namespace {

void show_option(const session &s, const char *package, const char *section, uci_option *option)
{
    bool is_list = option->type == UCI_TYPE_LIST;
    if (is_list && uci_list_empty(&option->v.list))
        return;
    printf("%s.%s.%s=", package, section, option->e.name);
    if (!is_list)
        write_quoted(stdout, option->v.string);
    const char *separator = "";
    uci_element *item = nullptr;
    if (is_list) {
        uci_foreach_element(&option->v.list, item)
        {
            fputs(separator, stdout);
            write_quoted(stdout, item->name);
            separator = s.delimiter;
        }
    }
    putchar('\n');
}

void show_section(const session &s, uci_section *section, const char *name)
{
    const char *package = section->package->e.name;
    printf("%s.%s=%s\n", package, name, section->type);
    uci_element *e = nullptr;
    uci_foreach_element(&section->options, e) show_option(s, package, name, uci_to_option(e));
}

// The place of a section among those of its type.
int index_of(uci_section *section)
{
    int index = 0;
    uci_element *e = nullptr;
    uci_foreach_element(&section->package->sections, e)
    {
        if (e == &section->e)
            break;
        index += strcmp(uci_to_section(e)->type, section->type) == 0 ? 1 : 0;
    }
    return index;
}

int show_package(const session &s, uci_package *package)
{
    uci_element *e = nullptr;
    uci_foreach_element(&package->sections, e)
    {
        uci_section *section = uci_to_section(e);
        char *indexed = nullptr;
        bool by_index = section->anonymous && !s.real_names;
        if (by_index && asprintf(&indexed, "@%s[%d]", section->type, index_of(section)) < 0)
            return fail(s, UCI_ERR_MEM);
        show_section(s, section, by_index ? indexed : section->e.name);
        free(by_index ? indexed : nullptr);
    }
    return EXIT_SUCCESS;
}

// Looks up something that must exist; a value given along is no question.
bool look_up_complete(const session &s, char *tuple, uci_ptr *ptr)
{
    if (!look_up(s, tuple, ptr) || ptr->value != nullptr)
        return false;
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0)
        return true;
    fail(s, UCI_ERR_NOTFOUND);
    return false;
}

void print_item(const char *text)
{
    if (strpbrk(text, " \t\r\n\v\f") != nullptr)
        write_quoted(stdout, text);
    else
        fputs(text, stdout);
}

void print_value(const session &s, uci_option *option)
{
    if (option->type == UCI_TYPE_STRING) {
        puts(option->v.string);
        return;
    }
    const char *separator = "";
    uci_element *item = nullptr;
    uci_foreach_element(&option->v.list, item)
    {
        fputs(separator, stdout);
        print_item(item->name);
        separator = s.delimiter;
    }
    putchar('\n');
}

const char *assignment_of(uci_command cmd)
{
    switch (cmd) {
    case UCI_CMD_LIST_ADD:
        return "+=";
    case UCI_CMD_LIST_DEL:
        return "-=";
    case UCI_CMD_ADD:
    case UCI_CMD_REMOVE:
    case UCI_CMD_CHANGE:
    case UCI_CMD_RENAME:
    case UCI_CMD_REORDER:
        return "=";
    }
    return "=";
}

void print_change(const char *package, uci_delta *delta)
{
    printf("%s%s.%s", delta->cmd == UCI_CMD_REMOVE ? "-" : "", package, delta->section);
    if (delta->e.name != nullptr)
        printf(".%s", delta->e.name);
    if (delta->cmd != UCI_CMD_REMOVE && delta->value != nullptr) {
        fputs(assignment_of(delta->cmd), stdout);
        write_quoted(stdout, delta->value);
    }
    putchar('\n');
}

int print_changes(uci_package *package)
{
    uci_element *e = nullptr;
    uci_foreach_element(&package->saved_delta, e) print_change(package->e.name, uci_to_delta(e));
    uci_foreach_element(&package->delta, e) print_change(package->e.name, uci_to_delta(e));
    return EXIT_SUCCESS;
}

int export_package(const session &s, uci_package *package)
{
    return uci_export(s.ctx, stdout, package, true) == UCI_OK ? EXIT_SUCCESS : fail(s);
}

} // namespace

int show(session &s, const arguments &args)
{
    if (args.first == nullptr)
        return for_each_package(s, [&s](uci_package *package) { return show_package(s, package); });
    uci_ptr ptr = {};
    if (!look_up_complete(s, args.first, &ptr))
        return EXIT_FAILURE;
    if (ptr.o != nullptr)
        show_option(s, ptr.p->e.name, ptr.s->e.name, ptr.o);
    else if (ptr.s != nullptr)
        show_section(s, ptr.s, ptr.s->e.name);
    else
        return show_package(s, ptr.p);
    return EXIT_SUCCESS;
}

int get(session &s, const arguments &args)
{
    uci_ptr ptr = {};
    if (!look_up_complete(s, args.first, &ptr))
        return EXIT_FAILURE;
    if (ptr.o != nullptr)
        print_value(s, ptr.o);
    else if (ptr.s != nullptr)
        puts(ptr.s->type);
    return EXIT_SUCCESS;
}

int changes(session &s, const arguments &args)
{
    if (args.first == nullptr)
        return for_each_package(s, print_changes);
    uci_ptr ptr = {};
    return look_up(s, args.first, &ptr) ? print_changes(ptr.p) : EXIT_FAILURE;
}

int export_packages(session &s, const arguments &args)
{
    if (args.first == nullptr)
        return for_each_package(s, [&s](uci_package *package) { return export_package(s, package); });
    uci_ptr ptr = {};
    return look_up(s, args.first, &ptr) ? export_package(s, ptr.p) : EXIT_FAILURE;
}

} // namespace uci_cli
