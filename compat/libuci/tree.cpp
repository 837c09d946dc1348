// SPDX-License-Identifier: MIT
// The tree in memory: packages own sections, sections own options, options own their text or their items.
#include "tree.h"

#include "names.h"
#include "support.h"

#include <cstring>

namespace uci_impl {

namespace {

// A zeroed record whose element e is named and typed, or null.
template <typename record_type> record_type *record_create(uci_type type, const char *name)
{
    auto *record = static_cast<record_type *>(calloc(1, sizeof(record_type)));
    if (record == nullptr)
        return nullptr;
    list_init(&record->e.list);
    record->e.type = type;
    record->e.name = name != nullptr ? strdup(name) : nullptr;
    if (name != nullptr && record->e.name == nullptr) {
        free(record);
        return nullptr;
    }
    return record;
}

struct item_record {
    uci_element e;
};

void items_free(uci_list *items)
{
    while (!uci_list_empty(items))
        item_free(list_to_element(items->next));
}

// Empties the value, whatever its kind, and makes it a list.
void option_clear(uci_option *option)
{
    if (option->type == UCI_TYPE_LIST)
        items_free(&option->v.list);
    else
        free(option->v.string);
    option->type = UCI_TYPE_LIST;
    list_init(&option->v.list);
}

// A section whose generated name is taken by a named one gets the next free number.
void free_anonymous_name(char (&name)[anonymous_name_size], uci_package *package, const char *type)
{
    int number = package->n_section;
    do {
        make_anonymous_name(name, number++, type);
    } while (find_section(package, name) != nullptr);
}

} // namespace

void list_init(uci_list *list)
{
    list->next = list;
    list->prev = list;
}

void list_insert_before(uci_list *position, uci_list *entry)
{
    entry->prev = position->prev;
    entry->next = position;
    position->prev->next = entry;
    position->prev = entry;
}

void list_append(uci_list *list, uci_list *entry)
{
    list_insert_before(list, entry);
}

void list_remove(uci_list *entry)
{
    entry->next->prev = entry->prev;
    entry->prev->next = entry->next;
    list_init(entry);
}

uci_element *find_element(uci_list *list, const char *name)
{
    uci_element *e = nullptr;
    uci_foreach_element(list, e)
    {
        if (e->name[0] == name[0] && strcmp(e->name, name) == 0)
            return e;
    }
    return nullptr;
}

uci_section *find_section(uci_package *package, const char *name)
{
    uci_element *e = find_element(&package->sections, name);
    return e != nullptr ? uci_to_section(e) : nullptr;
}

uci_option *find_option(uci_section *section, const char *name)
{
    uci_element *e = find_element(&section->options, name);
    return e != nullptr ? uci_to_option(e) : nullptr;
}

uci_package *package_create(uci_context *ctx, const char *name, const char *path)
{
    auto *package = record_create<uci_package>(UCI_TYPE_PACKAGE, name);
    if (package == nullptr)
        return nullptr;
    list_init(&package->sections);
    list_init(&package->delta);
    list_init(&package->saved_delta);
    package->ctx = ctx;
    package->has_delta = true;
    package->path = strdup(path);
    if (package->path == nullptr) {
        package_free(package);
        return nullptr;
    }
    return package;
}

void package_free(uci_package *package)
{
    list_remove(&package->e.list);
    while (!uci_list_empty(&package->sections))
        section_free(uci_to_section(list_to_element(package->sections.next)));
    delta_list_clear(&package->delta);
    delta_list_clear(&package->saved_delta);
    free(package->path);
    free(package->e.name);
    free(package);
}

uci_section *section_create(uci_package *package, const char *type, const char *name)
{
    bool anonymous = name == nullptr || *name == '\0';
    char generated[anonymous_name_size];
    package->n_section++;
    if (anonymous)
        free_anonymous_name(generated, package, type);

    auto *section = record_create<uci_section>(UCI_TYPE_SECTION, anonymous ? generated : name);
    if (section == nullptr)
        return nullptr;
    list_init(&section->options);
    section->package = package;
    section->anonymous = anonymous;
    section->type = strdup(type);
    if (section->type == nullptr) {
        section_free(section);
        return nullptr;
    }
    list_append(&package->sections, &section->e.list);
    return section;
}

void section_free(uci_section *section)
{
    list_remove(&section->e.list);
    while (!uci_list_empty(&section->options))
        option_free(uci_to_option(list_to_element(section->options.next)));
    free(section->type);
    free(section->e.name);
    free(section);
}

uci_option *option_create(uci_section *section, const char *name)
{
    auto *option = record_create<uci_option>(UCI_TYPE_OPTION, name);
    if (option == nullptr)
        return nullptr;
    option->section = section;
    option->type = UCI_TYPE_LIST;
    list_init(&option->v.list);
    list_append(&section->options, &option->e.list);
    return option;
}

void option_free(uci_option *option)
{
    list_remove(&option->e.list);
    option_clear(option);
    free(option->e.name);
    free(option);
}

bool option_set_string(uci_option *option, const char *value)
{
    char *copy = strdup(value);
    if (copy == nullptr)
        return false;
    option_clear(option);
    option->type = UCI_TYPE_STRING;
    option->v.string = copy;
    return true;
}

bool option_append_item(uci_option *option, const char *value)
{
    auto *item = record_create<item_record>(UCI_TYPE_ITEM, value);
    if (item == nullptr)
        return false;
    if (option->type == UCI_TYPE_STRING) {
        auto *first = record_create<item_record>(UCI_TYPE_ITEM, option->v.string);
        if (first == nullptr) {
            item_free(&item->e);
            return false;
        }
        option_clear(option);
        list_append(&option->v.list, &first->e.list);
    }
    list_append(&option->v.list, &item->e.list);
    return true;
}

void item_free(uci_element *item)
{
    list_remove(&item->list);
    free(item->name);
    free(item);
}

bool replace_text(char **slot, const char *text)
{
    char *copy = strdup(text);
    if (copy == nullptr)
        return false;
    free(*slot);
    *slot = copy;
    return true;
}

uci_delta *delta_create(uci_command cmd, const char *section, const char *option, const char *value)
{
    auto *delta = record_create<uci_delta>(UCI_TYPE_DELTA, option);
    if (delta == nullptr)
        return nullptr;
    delta->cmd = cmd;
    delta->section = strdup(section);
    delta->value = value != nullptr ? strdup(value) : nullptr;
    if (delta->section == nullptr || (value != nullptr && delta->value == nullptr)) {
        delta_free(delta);
        return nullptr;
    }
    return delta;
}

void delta_free(uci_delta *delta)
{
    list_remove(&delta->e.list);
    free(delta->section);
    free(delta->value);
    free(delta->e.name);
    free(delta);
}

void delta_list_clear(uci_list *list)
{
    while (!uci_list_empty(list))
        delta_free(uci_to_delta(list_to_element(list->next)));
}

} // namespace uci_impl
