// SPDX-License-Identifier: MIT
// Each change of an option is one look-up, one call of the library and its lines.
#include "platform/uci_edit.h"

#include <cstdio>
#include <cstring>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"
#include "platform/uci_commit.h"
#include "platform/uci_context.h"
#include "platform/uci_limits.h"

constexpr const char *STATE_DIR = "/var/state";
constexpr char COMMITTED_PACKAGE[] = "wan_detect";

namespace {

// A looked-up option together with the text that the library cut up and still points into.
struct t_target {
    char path[UCI_PATH_SIZE];
    uci_ptr pointer;
};

// One change of one option, and who tells of it.
struct t_edit {
    const char *speaker;
    int (*change)(uci_context *, const t_edit &); // the library's code
    const char *package;
    const char *section;
    const char *option;
    const char *value; // none for a deletion
};

} // namespace

// Fills an empty slot. False when it stays empty.
static bool fill_slot(uci_context **slot)
{
    if (!*slot)
        *slot = open_uci_context().release();
    return *slot != nullptr;
}

static void drop_slot(uci_context **slot)
{
    uci_free_context(*slot);
    *slot = nullptr;
}

// The library's code. The names are checked by this form of look-up only, and unchecked ones would be lost silently.
static int look_up(uci_context *context, t_target *target, const char *package, const char *section, const char *option)
{
    int length = snprintf(target->path, sizeof target->path, "%s.%s.%s", package, section, option);
    if (length < 0 || static_cast<size_t>(length) >= sizeof target->path)
        return UCI_ERR_INVAL;
    return look_up_uci_path(context, &target->pointer, target->path);
}

static int change_option(uci_context *context, const t_edit &edit, int (*change)(uci_context *, uci_ptr *))
{
    t_target target = {};
    int result = look_up(context, &target, edit.package, edit.section, edit.option);
    if (result != UCI_OK)
        return result;
    target.pointer.value = edit.value;
    return change(context, &target.pointer);
}

static int delete_option(uci_context *context, const t_edit &edit)
{
    return change_option(context, edit, uci_delete);
}

static int add_item(uci_context *context, const t_edit &edit)
{
    return change_option(context, edit, uci_add_list);
}

// The library's call for it leaves a plain text alone, and adding an item makes that text the first one.
static int remove_from_list(uci_context *context, uci_ptr *pointer)
{
    const uci_option *option = pointer->o;
    if (!option || option->type != UCI_TYPE_STRING)
        return uci_del_list(context, pointer);
    if (strcmp(option->v.string, pointer->value) != 0)
        return UCI_OK;
    pointer->value = nullptr;
    return uci_delete(context, pointer);
}

// An item that is not in the list yet is simply added.
static int move_item_to_end(uci_context *context, const t_edit &edit)
{
    int result = change_option(context, edit, remove_from_list);
    return result == UCI_OK ? add_item(context, edit) : result;
}

static int commit_package(uci_context *context, const char *name)
{
    char path[UCI_PATH_SIZE];
    bounded_copy(path, name, sizeof path);
    uci_ptr pointer = {};
    int result = look_up_uci_path(context, &pointer, path);
    if (result != UCI_OK)
        return result;
    return commit_uci_package(context, &pointer.p);
}

// Makes a change in the slot's context, where it waits.
static int edit_in_slot(uci_context **slot, const t_edit &edit)
{
    const bool has_value = edit.value || edit.change == delete_option;
    if (!slot || !edit.package || !edit.section || !edit.option || !has_value) {
        LOG_AS(edit.speaker, Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    if (!fill_slot(slot)) {
        LOG_AS(edit.speaker, Error, "fail to init uci context:%s.%s.%s\n", edit.package, edit.section, edit.option);
        return UCI_ACCESS_FAILED;
    }
    if (edit.change == delete_option)
        LOG_AS(edit.speaker, Debug, "delete %s %s\n", edit.section, edit.option);
    else
        LOG_AS(edit.speaker, Debug, "save %s %s\n", edit.section, edit.option);
    return edit.change(*slot, edit) == UCI_OK ? OK : UCI_ACCESS_FAILED;
}

static int edit_and_commit(const t_edit &edit)
{
    uci_context *slot = nullptr;
    const int result = edit_in_slot(&slot, edit);
    const t_uci_context_guard context(slot);
    if (result != OK)
        return result;
    if (commit_package(context.get(), edit.package) != UCI_OK) {
        LOG_AS(edit.speaker, Error, "fail to commit %s\n", edit.package);
        return UCI_ACCESS_FAILED;
    }
    return OK;
}

int _uci_set_value(uci_context **slot, const char *package, const char *section, const char *option, const char *value)
{
    if (!slot || !package || !section || !option || !value) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    LOG(Info, "p_uci_str:%s.%s.%s, p_value:%s\n", package, section, option, value);
    if (!fill_slot(slot)) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    t_target target = {};
    int result = look_up(*slot, &target, package, section, option);
    target.pointer.value = value;
    LOG(Debug, "p_uci.uci_type:%d\n", target.pointer.target);
    LOG(Debug, "p_uci.package:%s\n", package);
    LOG(Debug, "p_uci.section:%s\n", section);
    LOG(Debug, "p_uci.option:%s\n", option);
    LOG(Debug, "p_uci.value:%s\n", value);
    if (result == UCI_OK)
        result = uci_set(*slot, &target.pointer);
    if (result != UCI_OK) {
        LOG(Error, "fail to set ptr %s.%s.%s (ret:%d)\n", package, section, option, result);
        drop_slot(slot);
        return UCI_ACCESS_FAILED;
    }
    LOG(Info, "Success to set %s.%s.%s = %s, not commit yet\n", package, section, option, value);
    return OK;
}

int _uci_commit(uci_context *context)
{
    const t_uci_context_guard guard(context);
    if (!context) {
        LOG(Error, "fail to init uci context\n");
        LOG(Error, "commit failed\n");
        return UCI_ACCESS_FAILED;
    }
    if (commit_package(context, COMMITTED_PACKAGE) != UCI_OK) {
        LOG(Error, "fail to commit %s\n", COMMITTED_PACKAGE);
        LOG(Error, "commit failed\n");
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "success commit\n");
    return OK;
}

int _uci_delete(uci_context **slot, const char *package, const char *section, const char *option)
{
    constexpr const char *speaker = "_uci_delete";
    return edit_in_slot(slot, {speaker, delete_option, package, section, option, nullptr});
}

int _uci_delete_commit(const char *package, const char *section, const char *option)
{
    constexpr const char *speaker = "_uci_delete_commit";
    return edit_and_commit({speaker, delete_option, package, section, option, nullptr});
}

int _uci_add_list(uci_context **slot, const char *package, const char *section, const char *option, const char *value)
{
    constexpr const char *speaker = "_uci_add_list";
    return edit_in_slot(slot, {speaker, add_item, package, section, option, value});
}

int _uci_add_list_commit(const char *package, const char *section, const char *option, const char *value)
{
    constexpr const char *speaker = "_uci_add_list_commit";
    return edit_and_commit({speaker, add_item, package, section, option, value});
}

int _uci_del_add_list(uci_context **slot, const char *package, const char *section, const char *option,
                      const char *value)
{
    constexpr const char *speaker = "_uci_del_add_list";
    return edit_in_slot(slot, {speaker, move_item_to_end, package, section, option, value});
}

int _uci_del_add_list_commit(const char *package, const char *section, const char *option, const char *value)
{
    constexpr const char *speaker = "_uci_del_add_list_commit";
    return edit_and_commit({speaker, move_item_to_end, package, section, option, value});
}

int _uci_get_state_value(const char *package, const char *section, const char *option, char *value, size_t size)
{
    if (!package || !section || !option || !value || size == 0) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    const t_uci_context_guard context = open_uci_context();
    if (!context || uci_set_savedir(context.get(), STATE_DIR) != UCI_OK) {
        log_print_always("%s\n", "ntp failed: uci_alloc_context failed.");
        return UCI_ACCESS_FAILED;
    }
    t_target target = {};
    if (look_up(context.get(), &target, package, section, option) != UCI_OK || !target.pointer.o ||
        target.pointer.o->type != UCI_TYPE_STRING) {
        LOG(Info, "fail to get ptr %s.%s.%s \n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    bounded_copy(value, target.pointer.o->v.string, size);
    return OK;
}
