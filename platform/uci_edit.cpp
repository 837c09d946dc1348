// SPDX-License-Identifier: MIT
// The rest of the configuration family: changes that wait in a context for their commit, lists, and the runtime state.
#include "platform/uci_access.h"

#include <cstdio>
#include <cstring>

#include "platform/log.h"
#include "platform/text.h"
#include "platform/uci_commit.h"
#include "platform/uci_context.h"

namespace {

constexpr const char *STATE_DIR = "/var/state";
constexpr char COMMITTED_PACKAGE[] = "wan_detect";

// A looked-up option together with the text that the library cut up and still points into.
struct t_target {
    char path[UCI_PATH_SIZE];
    uci_ptr pointer;
};

using t_change = int (*)(uci_context *, uci_ptr *);

// Fills an empty slot. False when it stays empty.
bool fill_slot(uci_context **slot)
{
    if (!*slot)
        *slot = open_uci_context();
    return *slot != nullptr;
}

void drop_slot(uci_context **slot)
{
    uci_free_context(*slot);
    *slot = nullptr;
}

// The library's code. The names are checked by this form of look-up only, and unchecked ones would be lost silently.
int look_up(uci_context *context, t_target *target, const char *package, const char *section, const char *option)
{
    int length = snprintf(target->path, sizeof target->path, "%s.%s.%s", package, section, option);
    if (length < 0 || static_cast<size_t>(length) >= sizeof target->path)
        return UCI_ERR_INVAL;
    return look_up_uci_path(context, &target->pointer, target->path);
}

int change_option(uci_context *context, t_change change, const char *package, const char *section, const char *option,
                  const char *value)
{
    t_target target = {};
    int result = look_up(context, &target, package, section, option);
    if (result != UCI_OK)
        return result;
    target.pointer.value = value;
    return change(context, &target.pointer);
}

// The library's call for it leaves a plain text alone, and adding an item makes that text the first one.
int remove_from_list(uci_context *context, uci_ptr *pointer)
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
int move_to_end_of_list(uci_context *context, const char *package, const char *section, const char *option,
                        const char *value)
{
    int result = change_option(context, remove_from_list, package, section, option, value);
    if (result != UCI_OK)
        return result;
    return change_option(context, uci_add_list, package, section, option, value);
}

int commit_package(uci_context *context, const char *name)
{
    char path[UCI_PATH_SIZE];
    bounded_copy(path, name, sizeof path);
    uci_ptr pointer = {};
    int result = look_up_uci_path(context, &pointer, path);
    if (result != UCI_OK)
        return result;
    return commit_uci_package(context, &pointer.p);
}

} // namespace

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
    return 0;
}

int _uci_commit(uci_context *context)
{
    t_uci_context_guard guard(context);
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
    return 0;
}

int _uci_delete(uci_context **slot, const char *package, const char *section, const char *option)
{
    if (!slot || !package || !section || !option) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    if (!fill_slot(slot)) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "delete %s %s\n", section, option);
    return change_option(*slot, uci_delete, package, section, option, nullptr) == UCI_OK ? 0 : UCI_ACCESS_FAILED;
}

int _uci_delete_commit(const char *package, const char *section, const char *option)
{
    if (!package || !section || !option) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    t_uci_context_guard guard(open_uci_context());
    if (!guard.context) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "delete %s %s\n", section, option);
    if (change_option(guard.context, uci_delete, package, section, option, nullptr) != UCI_OK)
        return UCI_ACCESS_FAILED;
    if (commit_package(guard.context, package) != UCI_OK) {
        LOG(Error, "fail to commit %s\n", package);
        return UCI_ACCESS_FAILED;
    }
    return 0;
}

int _uci_add_list(uci_context **slot, const char *package, const char *section, const char *option, const char *value)
{
    if (!slot || !package || !section || !option || !value) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    if (!fill_slot(slot)) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "save %s %s\n", section, option);
    return change_option(*slot, uci_add_list, package, section, option, value) == UCI_OK ? 0 : UCI_ACCESS_FAILED;
}

int _uci_add_list_commit(const char *package, const char *section, const char *option, const char *value)
{
    if (!package || !section || !option || !value) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    t_uci_context_guard guard(open_uci_context());
    if (!guard.context) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "save %s %s\n", section, option);
    if (change_option(guard.context, uci_add_list, package, section, option, value) != UCI_OK)
        return UCI_ACCESS_FAILED;
    if (commit_package(guard.context, package) != UCI_OK) {
        LOG(Error, "fail to commit %s\n", package);
        return UCI_ACCESS_FAILED;
    }
    return 0;
}

int _uci_del_add_list(uci_context **slot, const char *package, const char *section, const char *option,
                      const char *value)
{
    if (!slot || !package || !section || !option || !value) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    if (!fill_slot(slot)) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "save %s %s\n", section, option);
    return move_to_end_of_list(*slot, package, section, option, value) == UCI_OK ? 0 : UCI_ACCESS_FAILED;
}

int _uci_del_add_list_commit(const char *package, const char *section, const char *option, const char *value)
{
    if (!package || !section || !option || !value) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    t_uci_context_guard guard(open_uci_context());
    if (!guard.context) {
        LOG(Error, "fail to init uci context:%s.%s.%s\n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    LOG(Debug, "save %s %s\n", section, option);
    if (move_to_end_of_list(guard.context, package, section, option, value) != UCI_OK)
        return UCI_ACCESS_FAILED;
    if (commit_package(guard.context, package) != UCI_OK) {
        LOG(Error, "fail to commit %s\n", package);
        return UCI_ACCESS_FAILED;
    }
    return 0;
}

int _uci_get_state_value(const char *package, const char *section, const char *option, char *value, size_t size)
{
    if (!package || !section || !option || !value || size == 0) {
        LOG(Error, "invalid parameter\n");
        return UCI_ACCESS_FAILED;
    }
    t_uci_context_guard guard(open_uci_context());
    if (!guard.context || uci_set_savedir(guard.context, STATE_DIR) != UCI_OK) {
        puts("ntp failed: uci_alloc_context failed.");
        return UCI_ACCESS_FAILED;
    }
    t_target target = {};
    if (look_up(guard.context, &target, package, section, option) != UCI_OK || !target.pointer.o ||
        target.pointer.o->type != UCI_TYPE_STRING) {
        LOG(Info, "fail to get ptr %s.%s.%s \n", package, section, option);
        return UCI_ACCESS_FAILED;
    }
    bounded_copy(value, target.pointer.o->v.string, size);
    return 0;
}
