// SPDX-License-Identifier: MIT
// Changes to the tree, and the public calls that make them.
#include "edit.h"

#include "lookup.h"
#include "names.h"
#include "support.h"
#include "tree.h"

#include <cstdio>
#include <cstring>

namespace uci_impl {

namespace {

constexpr int decimal = 10;

// The entry of one change among the waiting ones: made before the tree is touched, kept only if the change happened.
class change_record {
public:
    change_record(uci_package *package, recording record)
        : package_(record == recording::on && package->has_delta ? package : nullptr)
    {
    }

    int prepare(uci_command cmd, const char *section, const char *option, const char *value)
    {
        if (package_ == nullptr)
            return UCI_OK;
        delta_.reset(delta_create(cmd, section, option, value));
        return delta_ != nullptr ? UCI_OK : UCI_ERR_MEM;
    }

    void keep()
    {
        if (delta_ != nullptr)
            list_append(&package_->delta, &delta_.release()->e.list);
    }

private:
    uci_package *package_;
    std::unique_ptr<uci_delta, free_delta> delta_;
};

// Reads a whole decimal number. False: there is something else.
bool read_number(const char *text, long *number)
{
    char *end = nullptr;
    *number = strtol(text, &end, decimal);
    return end != text && *end == '\0';
}

int delete_item(uci_option *option, const char *index, recording record)
{
    long left = 0;
    if (!read_number(index, &left))
        return UCI_ERR_MEM;
    uci_element *e = nullptr;
    uci_foreach_element(&option->v.list, e)
    {
        if (left != 0) {
            left -= left > 0 ? 1 : 0;
            continue;
        }
        change_record change(option->section->package, record);
        int rc = change.prepare(UCI_CMD_REMOVE, option->section->e.name, option->e.name, index);
        if (rc != UCI_OK)
            return rc;
        item_free(e);
        change.keep();
        return UCI_OK;
    }
    return UCI_OK;
}

// Deletes the option of ptr, or its section if it names none.
int delete_target(uci_ptr *ptr, recording record)
{
    change_record change(ptr->p, record);
    int rc = change.prepare(UCI_CMD_REMOVE, ptr->s->e.name, ptr->o != nullptr ? ptr->o->e.name : nullptr, nullptr);
    if (rc != UCI_OK)
        return rc;
    if (ptr->o != nullptr) {
        ptr->last = &ptr->s->e;
        ptr->option = ptr->option == ptr->o->e.name ? nullptr : ptr->option;
        option_free(ptr->o);
        ptr->o = nullptr;
    } else {
        ptr->last = &ptr->p->e;
        ptr->section = ptr->section == ptr->s->e.name ? nullptr : ptr->section;
        section_free(ptr->s);
        ptr->s = nullptr;
    }
    change.keep();
    return UCI_OK;
}

int set_option(uci_ptr *ptr, recording record)
{
    if (ptr->s == nullptr || *ptr->option == '\0')
        return UCI_ERR_INVAL;
    if (*ptr->value == '\0')
        return ptr->o != nullptr ? delete_target(ptr, record) : UCI_OK;
    int rc = change_option(ptr->s, ptr->option, ptr->value, record);
    if (rc != UCI_OK)
        return rc;
    ptr->o = find_option(ptr->s, ptr->option);
    ptr->last = &ptr->o->e;
    return UCI_OK;
}

int set_section(uci_ptr *ptr, recording record)
{
    bool indexed = (ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) != 0;
    if ((ptr->s == nullptr && indexed) || *ptr->section == '\0')
        return UCI_ERR_INVAL;
    if (*ptr->value == '\0')
        return ptr->s != nullptr ? delete_target(ptr, record) : UCI_OK;
    if (!is_valid_type(ptr->value))
        return UCI_ERR_INVAL;
    int rc = ptr->s != nullptr ? change_type(ptr->s, ptr->value, record)
                               : create_section(ptr->p, ptr->value, ptr->section, record, &ptr->s);
    if (rc == UCI_OK)
        ptr->last = &ptr->s->e;
    return rc;
}

// For the list calls: the section must exist, an option and a value must be named.
int resolve_list(uci_context *ctx, uci_ptr *ptr)
{
    int rc = resolve(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    bool complete = ptr->s != nullptr && ptr->option != nullptr && *ptr->option != '\0' && ptr->value != nullptr;
    return complete ? UCI_OK : UCI_ERR_INVAL;
}

void move_section(uci_section *section, int position)
{
    uci_list *sections = &section->package->sections;
    list_remove(&section->e.list);
    uci_list *place = sections->next;
    for (; place != sections && position > 0; position--)
        place = place->next;
    list_insert_before(place, &section->e.list);
}

} // namespace

int create_section(uci_package *package, const char *type, const char *name, recording record, uci_section **section)
{
    uci_section *created = section_create(package, type, name);
    if (created == nullptr)
        return UCI_ERR_MEM;
    change_record change(package, record);
    int rc = change.prepare(created->anonymous ? UCI_CMD_ADD : UCI_CMD_CHANGE, created->e.name, nullptr, type);
    if (rc != UCI_OK) {
        section_free(created);
        return rc;
    }
    change.keep();
    *section = created;
    return UCI_OK;
}

int change_type(uci_section *section, const char *type, recording record)
{
    if (strcmp(section->type, type) == 0)
        return UCI_OK;
    change_record change(section->package, record);
    int rc = change.prepare(UCI_CMD_CHANGE, section->e.name, nullptr, type);
    if (rc != UCI_OK)
        return rc;
    // Programs rely on it: a type of another length makes the generated name a permanent one.
    bool same_length = strlen(section->type) == strlen(type);
    if (!replace_text(&section->type, type))
        return UCI_ERR_MEM;
    section->anonymous = section->anonymous && same_length;
    change.keep();
    return UCI_OK;
}

int change_option(uci_section *section, const char *name, const char *value, recording record)
{
    uci_option *option = find_option(section, name);
    if (option != nullptr && option->type == UCI_TYPE_STRING && strcmp(option->v.string, value) == 0)
        return UCI_OK;
    change_record change(section->package, record);
    int rc = change.prepare(UCI_CMD_CHANGE, section->e.name, name, value);
    if (rc != UCI_OK)
        return rc;
    bool created = option == nullptr;
    if (created)
        option = option_create(section, name);
    if (option == nullptr)
        return UCI_ERR_MEM;
    if (!option_set_string(option, value)) {
        if (created)
            option_free(option);
        return UCI_ERR_MEM;
    }
    change.keep();
    return UCI_OK;
}

int append_item(uci_section *section, const char *name, const char *value, recording record)
{
    change_record change(section->package, record);
    int rc = change.prepare(UCI_CMD_LIST_ADD, section->e.name, name, value);
    if (rc != UCI_OK)
        return rc;
    uci_option *option = find_option(section, name);
    bool created = option == nullptr;
    if (created)
        option = option_create(section, name);
    if (option == nullptr)
        return UCI_ERR_MEM;
    if (!option_append_item(option, value)) {
        if (created)
            option_free(option);
        return UCI_ERR_MEM;
    }
    change.keep();
    return UCI_OK;
}

int edit_set(uci_context *ctx, uci_ptr *ptr, recording record)
{
    int rc = resolve(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (ptr->section == nullptr || ptr->value == nullptr)
        return UCI_ERR_INVAL;
    return ptr->option != nullptr ? set_option(ptr, record) : set_section(ptr, record);
}

int edit_delete(uci_context *ctx, uci_ptr *ptr, recording record)
{
    int rc = resolve(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (ptr->section == nullptr)
        return UCI_ERR_INVAL;
    if (ptr->s == nullptr || (ptr->option != nullptr && ptr->o == nullptr))
        return UCI_ERR_NOTFOUND;
    if (ptr->o != nullptr && ptr->o->type == UCI_TYPE_LIST && ptr->value != nullptr)
        return delete_item(ptr->o, ptr->value, record);
    return delete_target(ptr, record);
}

int edit_rename(uci_context *ctx, uci_ptr *ptr, recording record)
{
    int rc = resolve(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (ptr->section == nullptr || ptr->value == nullptr || *ptr->value == '\0')
        return UCI_ERR_INVAL;
    if (ptr->s == nullptr || (ptr->option != nullptr && ptr->o == nullptr))
        return UCI_ERR_NOTFOUND;

    uci_element *e = ptr->o != nullptr ? &ptr->o->e : &ptr->s->e;
    uci_list *siblings = ptr->o != nullptr ? &ptr->s->options : &ptr->p->sections;
    uci_element *taken = find_element(siblings, ptr->value);
    // Two elements of one name would be merged, or refused, when the file is read again.
    if (taken != nullptr && taken != e)
        return UCI_ERR_DUPLICATE;
    change_record change(ptr->p, record);
    rc = change.prepare(UCI_CMD_RENAME, ptr->s->e.name, ptr->o != nullptr ? ptr->o->e.name : nullptr, ptr->value);
    if (rc != UCI_OK)
        return rc;
    if (!replace_text(&e->name, ptr->value))
        return UCI_ERR_MEM;
    if (ptr->o == nullptr)
        ptr->s->anonymous = false;
    (ptr->o != nullptr ? ptr->option : ptr->section) = e->name;
    change.keep();
    return UCI_OK;
}

int edit_add_list(uci_context *ctx, uci_ptr *ptr, recording record)
{
    int rc = resolve_list(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    rc = append_item(ptr->s, ptr->option, ptr->value, record);
    if (rc != UCI_OK)
        return rc;
    ptr->o = find_option(ptr->s, ptr->option);
    ptr->last = &ptr->o->e;
    return UCI_OK;
}

int edit_del_list(uci_context *ctx, uci_ptr *ptr, recording record)
{
    int rc = resolve_list(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (ptr->o == nullptr || ptr->o->type != UCI_TYPE_LIST)
        return UCI_OK;
    change_record change(ptr->p, record);
    rc = change.prepare(UCI_CMD_LIST_DEL, ptr->s->e.name, ptr->o->e.name, ptr->value);
    if (rc != UCI_OK)
        return rc;
    uci_element *e = nullptr;
    uci_element *next = nullptr;
    uci_foreach_element_safe(&ptr->o->v.list, next, e)
    {
        // The value may be the text of the item itself.
        if (strcmp(e->name, ptr->value) == 0 && e->name != ptr->value)
            item_free(e);
    }
    uci_foreach_element_safe(&ptr->o->v.list, next, e)
    {
        if (e->name == ptr->value) {
            item_free(e);
            ptr->value = nullptr;
            break;
        }
    }
    change.keep();
    return UCI_OK;
}

int edit_reorder(uci_section *section, int position, recording record)
{
    char text[sizeof("-2147483648")];
    snprintf(text, sizeof(text), "%d", position);
    change_record change(section->package, record);
    int rc = change.prepare(UCI_CMD_REORDER, section->e.name, nullptr, text);
    if (rc != UCI_OK)
        return rc;
    move_section(section, position);
    change.keep();
    return UCI_OK;
}

} // namespace uci_impl

using namespace uci_impl;

int uci_set(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] { return ptr != nullptr ? edit_set(ctx, ptr, recording::on) : UCI_ERR_INVAL; });
}

int uci_delete(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] { return ptr != nullptr ? edit_delete(ctx, ptr, recording::on) : UCI_ERR_INVAL; });
}

int uci_rename(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] { return ptr != nullptr ? edit_rename(ctx, ptr, recording::on) : UCI_ERR_INVAL; });
}

int uci_add_list(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] { return ptr != nullptr ? edit_add_list(ctx, ptr, recording::on) : UCI_ERR_INVAL; });
}

int uci_del_list(uci_context *ctx, uci_ptr *ptr)
{
    return guarded(ctx, [&] { return ptr != nullptr ? edit_del_list(ctx, ptr, recording::on) : UCI_ERR_INVAL; });
}

int uci_add_section(uci_context *ctx, uci_package *p, const char *type, uci_section **res)
{
    return guarded(ctx, [&] {
        if (p == nullptr || type == nullptr || *type == '\0' || res == nullptr)
            return static_cast<int>(UCI_ERR_INVAL);
        return create_section(p, type, nullptr, recording::on, res);
    });
}

int uci_reorder_section(uci_context *ctx, uci_section *s, int pos)
{
    return guarded(ctx, [&] { return s != nullptr ? edit_reorder(s, pos, recording::on) : UCI_ERR_INVAL; });
}
