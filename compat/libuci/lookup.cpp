// SPDX-License-Identifier: MIT
// From "package.section.option=value" to the elements it names.
#include "lookup.h"

#include "names.h"
#include "packages.h"
#include "support.h"
#include "tree.h"

#include <cstring>

namespace uci_impl {

namespace {

using lookup_flags = decltype(uci_ptr::flags);

void add_flag(uci_ptr *ptr, lookup_flags flag)
{
    ptr->flags = static_cast<lookup_flags>(ptr->flags | flag);
}

// Splits text at the first separator; returns what follows it, or null.
char *split(char *text, char separator)
{
    char *found = strchr(text, separator);
    if (found == nullptr)
        return nullptr;
    *found = '\0';
    return found + 1;
}

// "@type[index]" in parts; the type may be empty (any), the index too (0).
struct indexed_section {
    const char *type;
    size_t type_length;
    long index;
};

bool parse_indexed(const char *text, indexed_section *out)
{
    const char *open = strchr(text, '[');
    const char *close = strchr(text, ']');
    if (text[0] != '@' || open == nullptr || close == nullptr || close < open || close[1] != '\0')
        return false;
    out->type = text + 1;
    out->type_length = static_cast<size_t>(open - out->type);
    for (size_t i = 0; i < out->type_length; ++i) {
        char c[] = {out->type[i], '\0'};
        if (!is_valid_type(c))
            return false;
    }
    constexpr int decimal = 10;
    char *end = nullptr;
    out->index = strtol(open + 1, &end, decimal);
    return end == close || close == open + 1;
}

bool is_of_type(const uci_section *section, const indexed_section &wanted)
{
    return wanted.type_length == 0 || (strlen(section->type) == wanted.type_length &&
                                       strncmp(section->type, wanted.type, wanted.type_length) == 0);
}

// Negative indices count from the end.
uci_section *find_indexed(uci_package *package, const indexed_section &wanted)
{
    long count = 0;
    uci_element *e = nullptr;
    uci_foreach_element(&package->sections, e)
    {
        count += is_of_type(uci_to_section(e), wanted) ? 1 : 0;
    }
    long left = wanted.index >= 0 ? wanted.index : wanted.index + count;
    if (left < 0 || left >= count)
        return nullptr;
    uci_foreach_element(&package->sections, e)
    {
        if (is_of_type(uci_to_section(e), wanted) && left-- == 0)
            return uci_to_section(e);
    }
    return nullptr;
}

int parse_names(uci_ptr *ptr, char *str)
{
    ptr->value = split(str, '=');
    ptr->package = str;
    ptr->section = split(str, '.');
    ptr->target = UCI_TYPE_PACKAGE;
    if (!is_valid_package(ptr->package) || (ptr->value != nullptr && !uci_validate_text(ptr->value)))
        return UCI_ERR_PARSE;
    if (ptr->section == nullptr)
        return UCI_OK;

    ptr->target = UCI_TYPE_SECTION;
    ptr->option = split(const_cast<char *>(ptr->section), '.');
    if (ptr->section[0] == '@') {
        indexed_section ignored;
        if (!parse_indexed(ptr->section, &ignored))
            return UCI_ERR_INVAL;
        add_flag(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
    } else if (!is_valid_name(ptr->section)) {
        return UCI_ERR_INVAL;
    }
    if (ptr->option == nullptr)
        return UCI_OK;

    ptr->target = UCI_TYPE_OPTION;
    return is_valid_name(ptr->option) ? UCI_OK : UCI_ERR_PARSE;
}

void name_from_elements(uci_ptr *ptr)
{
    if (ptr->o != nullptr && ptr->s == nullptr)
        ptr->s = ptr->o->section;
    if (ptr->s != nullptr && ptr->p == nullptr)
        ptr->p = ptr->s->package;
    if (ptr->p != nullptr && ptr->package == nullptr)
        ptr->package = ptr->p->e.name;
    if (ptr->s != nullptr && ptr->section == nullptr)
        ptr->section = ptr->s->e.name;
    if (ptr->o != nullptr && ptr->option == nullptr)
        ptr->option = ptr->o->e.name;
}

int lookup_package(uci_context *ctx, uci_ptr *ptr)
{
    if (ptr->p != nullptr)
        return UCI_OK;
    ptr->p = find_package(ctx, ptr->package);
    return ptr->p != nullptr ? UCI_OK : load_package(ctx, ptr->package, &ptr->p);
}

int lookup_section(uci_ptr *ptr, bool extended)
{
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) != 0) {
        indexed_section wanted;
        if (!extended || !parse_indexed(ptr->section, &wanted))
            return UCI_ERR_INVAL;
        ptr->s = find_indexed(ptr->p, wanted);
        if (ptr->s != nullptr)
            ptr->section = ptr->s->e.name;
        return UCI_OK;
    }
    ptr->s = find_section(ptr->p, ptr->section);
    return UCI_OK;
}

// Fills in everything below the package; what is missing just leaves the lookup incomplete.
int lookup_below(uci_ptr *ptr, bool extended)
{
    ptr->last = &ptr->p->e;
    if (ptr->section != nullptr) {
        int rc = ptr->s != nullptr ? UCI_OK : lookup_section(ptr, extended);
        if (rc != UCI_OK || ptr->s == nullptr)
            return rc;
        ptr->last = &ptr->s->e;
    }
    if (ptr->section != nullptr && ptr->option != nullptr) {
        if (ptr->o == nullptr)
            ptr->o = find_option(ptr->s, ptr->option);
        if (ptr->o == nullptr)
            return UCI_OK;
        ptr->last = &ptr->o->e;
    }
    add_flag(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
    return UCI_OK;
}

void set_target(uci_ptr *ptr)
{
    ptr->target = UCI_TYPE_PACKAGE;
    if (ptr->section != nullptr)
        ptr->target = ptr->option != nullptr ? UCI_TYPE_OPTION : UCI_TYPE_SECTION;
}

} // namespace

int parse_tuple(uci_ptr *ptr, char *str)
{
    *ptr = {};
    int rc = parse_names(ptr, str);
    if (rc != UCI_OK)
        *ptr = {};
    return rc;
}

int lookup(uci_context *ctx, uci_ptr *ptr, char *str, bool extended)
{
    if (str != nullptr) {
        int rc = parse_tuple(ptr, str);
        if (rc != UCI_OK)
            return rc;
    } else {
        name_from_elements(ptr);
        set_target(ptr);
    }
    add_flag(ptr, uci_ptr::UCI_LOOKUP_DONE);
    if (ptr->package == nullptr)
        return UCI_ERR_INVAL;
    int rc = lookup_package(ctx, ptr);
    return rc == UCI_OK ? lookup_below(ptr, extended) : rc;
}

int resolve(uci_context *ctx, uci_ptr *ptr)
{
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_DONE) == 0) {
        int rc = lookup(ctx, ptr, nullptr, true);
        if (rc != UCI_OK)
            return rc;
    }
    name_from_elements(ptr);
    return ptr->p != nullptr ? UCI_OK : UCI_ERR_INVAL;
}

} // namespace uci_impl

using namespace uci_impl;

int uci_parse_ptr(uci_context *ctx, uci_ptr *ptr, char *str)
{
    return guarded(ctx, [&] {
        if (ptr == nullptr || str == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        return parse_tuple(ptr, str);
    });
}

int uci_lookup_ptr(uci_context *ctx, uci_ptr *ptr, char *str, bool extended)
{
    return guarded(ctx, [&] { return ptr != nullptr ? lookup(ctx, ptr, str, extended) : UCI_ERR_INVAL; });
}

int uci_lookup_next(uci_context *ctx, uci_element **e, uci_list *list, const char *name)
{
    return guarded(ctx, [&] {
        if (e == nullptr || list == nullptr || name == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        uci_list *place = *e != nullptr ? (*e)->list.next : list->next;
        for (; place != list; place = place->next) {
            if (strcmp(list_to_element(place)->name, name) == 0) {
                *e = list_to_element(place);
                return static_cast<int>(UCI_OK);
            }
        }
        return static_cast<int>(UCI_ERR_NOTFOUND);
    });
}

void uci_parse_section(uci_section *s, const uci_parse_option *opts, int n_opts, uci_option **tb)
{
    for (int i = 0; i < n_opts; ++i)
        tb[i] = nullptr;
    uci_element *e = nullptr;
    uci_foreach_element(&s->options, e)
    {
        uci_option *option = uci_to_option(e);
        for (int i = 0; i < n_opts; ++i) {
            if (tb[i] == nullptr && opts[i].type == option->type && strcmp(opts[i].name, option->e.name) == 0)
                tb[i] = option;
        }
    }
}
