// SPDX-License-Identifier: MIT
// Single configuration values, each in a library context of its own.
#include "platform/uci_access.h"

#include <cstdio>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"
#include "platform/uci_commit.h"
#include "platform/uci_context.h"

// The library reports success for a section that is not there; only the pointer tells.
static bool lookup_reached_a_section_or_package(const uci_ptr &pointer)
{
    return (pointer.flags & uci_ptr::UCI_LOOKUP_COMPLETE) || pointer.s;
}

// The library's own call for it writes beyond the end of a buffer.
static const char *error_text(int error)
{
    switch (error) {
    case UCI_OK:
        return "Success";
    case UCI_ERR_MEM:
        return "Out of memory";
    case UCI_ERR_INVAL:
        return "Invalid argument";
    case UCI_ERR_NOTFOUND:
        return "Entry not found";
    case UCI_ERR_IO:
        return "I/O error";
    case UCI_ERR_PARSE:
        return "Parse error";
    case UCI_ERR_DUPLICATE:
        return "Duplicate entry";
    default:
        return "Unknown error";
    }
}

static const char *text_or_none(const char *text)
{
    return text ? text : "";
}

int _uci_get_value(const char *p_uci_str, char (&value)[UCI_VALUE_SIZE])
{
    if (!p_uci_str) {
        LOG(Error, "p_uci_str or p_value is null\n");
        return UCI_ACCESS_FAILED;
    }
    char path[UCI_PATH_SIZE];
    size_t length = bounded_copy(path, p_uci_str, sizeof path);
    const t_uci_context_guard context = open_uci_context();
    if (!context) {
        LOG(Error, "fail to init uci context:%s\n", path);
        return UCI_ACCESS_FAILED;
    }
    uci_ptr pointer = {};
    if (length >= sizeof path || look_up_uci_path(context.get(), &pointer, path) != UCI_OK ||
        !lookup_reached_a_section_or_package(pointer)) {
        LOG(Info, "fail to get ptr %s \n", p_uci_str);
        return UCI_ACCESS_FAILED;
    }
    if (pointer.last->type != UCI_TYPE_OPTION) {
        LOG(Info, "element type is not option:%d\n", pointer.last->type);
        return UCI_ACCESS_FAILED;
    }
    if (pointer.o->type != UCI_TYPE_STRING) {
        LOG(Info, "option type is not string:%d\n", pointer.o->type);
        return UCI_ACCESS_FAILED;
    }
    bounded_copy(value, pointer.o->v.string, sizeof value);
    return OK;
}

int _uci_set_value_commit(char *p_uci_str, const char *p_value)
{
    if (!p_uci_str || !p_value) {
        LOG(Error, "p_uci_str or p_value is null\n");
        return UCI_ACCESS_FAILED;
    }
    LOG(Info, "p_uci_str:%s, p_value:%s\n", p_uci_str, p_value);
    char path[UCI_PATH_SIZE];
    size_t length = bounded_copy(path, p_uci_str, sizeof path);
    const t_uci_context_guard context = open_uci_context();
    if (!context) {
        LOG(Error, "fail to init uci context:%s\n", path);
        return UCI_ACCESS_FAILED;
    }
    uci_ptr pointer = {};
    if (length >= sizeof path || look_up_uci_path(context.get(), &pointer, p_uci_str) != UCI_OK) {
        LOG(Error, "fail to get ptr again %s \n", length >= sizeof path ? p_uci_str : path);
        return UCI_ACCESS_FAILED;
    }
    pointer.value = p_value;
    LOG(Debug, "p_uci.uci_type:%d\n", pointer.target);
    LOG(Debug, "p_uci.package:%s\n", text_or_none(pointer.package));
    LOG(Debug, "p_uci.section:%s\n", text_or_none(pointer.section));
    LOG(Debug, "p_uci.option:%s\n", text_or_none(pointer.option));
    LOG(Debug, "p_uci.value:%s\n", pointer.value);
    int result = uci_set(context.get(), &pointer);
    if (result != UCI_OK) {
        LOG(Error, "fail to set ptr %s (ret:%d)\n", path, result);
        return UCI_ACCESS_FAILED;
    }
    if (commit_uci_package(context.get(), &pointer.p) != UCI_OK) {
        LOG(Error, "fail to commit %s\n", path);
        return UCI_ACCESS_FAILED;
    }
    LOG(Info, "Success to set %s = %s \n", path, p_value);
    return OK;
}

t_uci_package::t_uci_package(const char *name)
    : package(nullptr), context_(open_uci_context().release()), name_(name), error_(UCI_ERR_MEM)
{
    if (context_)
        error_ = load_uci_package(context_, name, &package);
}

t_uci_package::~t_uci_package()
{
    if (context_)
        uci_free_context(context_);
}

void t_uci_package::tell_error() const
{
    log_complain("%s: %s\n", name_, error_text(error_));
}
