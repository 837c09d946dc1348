// SPDX-License-Identifier: MIT
// Access lists: what users other than root may do. A file of the folder speaks for one user or one group.
#include "bus.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glob.h>
#include <sys/stat.h>

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/blobmsg_json.h>
}
#pragma GCC visibility pop

namespace ubusd {
namespace {

struct access_list {
    list_head list;
    blob_attr *content; // owned
};

enum { USER, GROUP, ACCESS, PUBLISH, SUBSCRIBE, LISTEN, SEND, FIELD_COUNT };
constexpr blobmsg_policy POLICY[] = {
    {"user", BLOBMSG_TYPE_STRING},   {"group", BLOBMSG_TYPE_STRING},    {"access", BLOBMSG_TYPE_TABLE},
    {"publish", BLOBMSG_TYPE_ARRAY}, {"subscribe", BLOBMSG_TYPE_ARRAY}, {"listen", BLOBMSG_TYPE_ARRAY},
    {"send", BLOBMSG_TYPE_ARRAY},
};

LIST_HEAD(lists);
blob_buf file_content;

// The final star of a name in a list stands for any ending.
bool stands_for(const char *listed, const char *name)
{
    size_t length = strlen(listed);
    bool is_prefix = length > 0 && listed[length - 1] == '*';
    return is_prefix ? strncmp(listed, name, length - 1) == 0 : strcmp(listed, name) == 0;
}

bool lists_name(const blob_attr *array, const char *name)
{
    const blob_attr *listed;
    size_t left;
    blobmsg_for_each_attr(listed, array, left)
    {
        if (blobmsg_type(listed) == BLOBMSG_TYPE_STRING && stands_for(blobmsg_get_string(listed), name)) {
            return true;
        }
    }
    return false;
}

bool lists_method(const blob_attr *access, const char *path, const char *method)
{
    static constexpr blobmsg_policy METHODS = {"methods", BLOBMSG_TYPE_ARRAY};
    blob_attr *of_object;
    size_t left;
    blobmsg_for_each_attr(of_object, access, left)
    {
        if (blobmsg_type(of_object) != BLOBMSG_TYPE_TABLE || !stands_for(blobmsg_name(of_object), path)) {
            continue;
        }
        blob_attr *methods = nullptr;
        blobmsg_parse(&METHODS, 1, &methods, blobmsg_data(of_object),
                      static_cast<unsigned int>(blobmsg_data_len(of_object)));
        if (methods && lists_name(methods, method)) {
            return true;
        }
    }
    return false;
}

// The lists that speak for a client; `fields` are those of the list.
bool speaks_for(const access_list &list, const client &who, blob_attr **fields)
{
    blobmsg_parse(POLICY, FIELD_COUNT, fields, blob_data(list.content),
                  static_cast<unsigned int>(blob_len(list.content)));
    return (fields[USER] && strcmp(blobmsg_get_string(fields[USER]), who.user) == 0) ||
           (fields[GROUP] && strcmp(blobmsg_get_string(fields[GROUP]), who.group) == 0);
}

bool is_listed(const client &who, int field, const char *name)
{
    const access_list *each;
    list_for_each_entry(each, &lists, list)
    {
        blob_attr *fields[FIELD_COUNT] = {};
        if (speaks_for(*each, who, fields) && fields[field] && lists_name(fields[field], name)) {
            return true;
        }
    }
    return false;
}

// Nobody but root can have written it, nor is it a program.
bool is_trustworthy(const char *path)
{
    struct stat info = {};
    return stat(path, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == 0 && info.st_gid == 0 &&
           (info.st_mode & (S_IWGRP | S_IWOTH | S_IXOTH)) == 0;
}

void read_list(const char *path)
{
    if (!is_trustworthy(path) || blob_buf_init(&file_content, 0) != 0 ||
        !blobmsg_add_json_from_file(&file_content, path)) {
        return;
    }
    auto *list = static_cast<access_list *>(calloc(1, sizeof(access_list)));
    if (!list) {
        return;
    }
    list->content = blob_memdup(file_content.head);
    if (!list->content) {
        free(list);
        return;
    }
    list_add_tail(&list->list, &lists);
}

void drop_lists()
{
    while (!list_empty(&lists)) {
        access_list *list = list_first_entry(&lists, access_list, list);
        list_del(&list->list);
        free(list->content);
        free(list);
    }
}

} // namespace

void read_access_lists(const char *folder)
{
    drop_lists();
    char pattern[PATH_MAX];
    int length = snprintf(pattern, sizeof(pattern), "%s/*.json", folder);
    glob_t found = {};
    if (length < static_cast<int>(sizeof(pattern)) && glob(pattern, 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; i++) {
            read_list(found.gl_pathv[i]);
        }
    }
    globfree(&found);
}

bool may_call(const client &who, const char *path, const char *method)
{
    if (who.is_root) {
        return true;
    }
    const access_list *each;
    list_for_each_entry(each, &lists, list)
    {
        blob_attr *fields[FIELD_COUNT] = {};
        if (path && speaks_for(*each, who, fields) && fields[ACCESS] && lists_method(fields[ACCESS], path, method)) {
            return true;
        }
    }
    return false;
}

bool may_publish(const client &who, const char *path)
{
    return who.is_root || is_listed(who, PUBLISH, path);
}

bool may_subscribe(const client &who, const char *path)
{
    return who.is_root || (path && is_listed(who, SUBSCRIBE, path));
}

bool may_listen(const client &who, const char *pattern)
{
    return who.is_root || is_listed(who, LISTEN, pattern);
}

bool may_send(const client &who, const char *event)
{
    return who.is_root || is_listed(who, SEND, event);
}

} // namespace ubusd
