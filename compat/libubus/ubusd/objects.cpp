// SPDX-License-Identifier: MIT
// Published objects and their types: adding, removing, finding.
#include "bus.h"

#include <cstdlib>
#include <cstring>

extern "C" {
#include <libubox/avl-cmp.h>
}

namespace ubusd {
namespace {

using ubus_frame::message;

avl_tree objects;
avl_tree objects_by_path;
avl_tree types;

void send_data(const request &req, const message &body)
{
    ubus_frame::header head = {.type = UBUS_MSG_DATA, .seq = req.head.seq, .peer = req.head.peer};
    send_frame(*req.from, head, body.bytes());
}

bool is_signature(const blob_attr *signature)
{
    const blob_attr *method;
    size_t left = blob_len(signature);
    __blob_for_each_attr(method, blob_data(signature), left)
    {
        if (!blobmsg_check_attr_len(method, true, left)) {
            return false;
        }
    }
    return left == 0;
}

void free_type(object_type *type)
{
    free(type->signature);
    free(type);
}

object_type *create_type(const blob_attr *signature)
{
    auto *type = static_cast<object_type *>(calloc(1, sizeof(object_type)));
    if (!type) {
        return nullptr;
    }
    type->signature = blob_memdup(signature);
    if (!type->signature || !assign_id(types, type->id)) {
        free_type(type);
        return nullptr;
    }
    return type;
}

void release_type(object_type *type)
{
    if (type && --type->object_count == 0) {
        release_id(types, type->id);
        free_type(type);
    }
}

void destroy_object(object *obj)
{
    end_subscriptions(*obj);
    if (obj->path) {
        avl_delete(&objects_by_path, &obj->by_path);
        announce(*obj, "ubus.object.remove");
    }
    forget_patterns(*obj);
    list_del(&obj->siblings);
    release_id(objects, obj->id);
    release_type(obj->type);
    free(obj->path);
    free(obj);
}

// Gives the object its name. False if it is taken.
bool set_path(object &obj, const char *path)
{
    obj.path = strdup(path);
    obj.by_path.key = obj.path;
    if (obj.path && avl_insert(&objects_by_path, &obj.by_path) == 0) {
        return true;
    }
    free(obj.path);
    obj.path = nullptr;
    return false;
}

object *create_object(client &owner)
{
    auto *obj = static_cast<object *>(calloc(1, sizeof(object)));
    if (!obj || !assign_id(objects, obj->id)) {
        free(obj);
        return nullptr;
    }
    obj->owner = &owner;
    INIT_LIST_HEAD(&obj->patterns);
    INIT_LIST_HEAD(&obj->targets);
    INIT_LIST_HEAD(&obj->subscribers);
    list_add_tail(&obj->siblings, &owner.objects);
    return obj;
}

// False if the signature is damaged or there is no memory. An id that is not known means no type.
bool set_type(object &obj, const ubus_frame::attributes &attributes)
{
    if (attributes[UBUS_ATTR_OBJTYPE]) {
        id_node *found = find_id(types, blob_get_u32(attributes[UBUS_ATTR_OBJTYPE]));
        obj.type = found ? container_of(found, object_type, id) : nullptr;
    } else if (attributes[UBUS_ATTR_SIGNATURE]) {
        bool is_valid = is_signature(attributes[UBUS_ATTR_SIGNATURE]);
        obj.type = is_valid ? create_type(attributes[UBUS_ATTR_SIGNATURE]) : nullptr;
        if (!obj.type) {
            return false;
        }
    }
    if (obj.type) {
        obj.type->object_count++;
    }
    return true;
}

// An empty name could never be looked up, so it counts as none.
const char *wanted_path(const ubus_frame::attributes &attributes)
{
    const char *path = attributes[UBUS_ATTR_OBJPATH] ? blob_get_string(attributes[UBUS_ATTR_OBJPATH]) : "";
    return *path ? path : nullptr;
}

// Only methods that the client may call are shown. False if the description is too long.
bool add_methods(message &description, const object &obj, const client &to, bool &has_method)
{
    blob_buf *buffer = description.open(UBUS_ATTR_SIGNATURE);
    bool is_complete = buffer != nullptr;
    blob_attr *method;
    size_t left;
    blob_for_each_attr(method, obj.type->signature, left)
    {
        if (is_complete && may_call(to, obj.path, blobmsg_name(method))) {
            is_complete = blob_put_raw(buffer, method, static_cast<unsigned int>(blob_pad_len(method))) != nullptr;
            has_method = true;
        }
    }
    description.finish(is_complete);
    return is_complete;
}

// An object none of whose methods may be called is hidden; one without methods is not.
void describe(const request &req, const object &obj)
{
    if (!obj.type) {
        return;
    }
    message description;
    description.add(UBUS_ATTR_OBJPATH, obj.path).add(UBUS_ATTR_OBJID, obj.id.id);
    description.add(UBUS_ATTR_OBJTYPE, obj.type->id.id);
    bool has_method = blob_len(obj.type->signature) == 0;
    if (add_methods(description, obj, *req.from, has_method) && has_method) {
        send_data(req, description);
    }
}

// The number of objects whose path starts with the prefix; each of them is described.
int describe_all(const request &req, const char *prefix, size_t length)
{
    int count = 0;
    object *obj;
    avl_for_each_element(&objects_by_path, obj, by_path)
    {
        if (strncmp(obj->path, prefix, length) == 0) {
            describe(req, *obj);
            count++;
        }
    }
    return count;
}

} // namespace

void initialise_objects()
{
    initialise_table(objects);
    initialise_table(types);
    avl_init(&objects_by_path, avl_strcmp, false, nullptr);
}

object *find_object(uint32_t id)
{
    id_node *found = find_id(objects, id);
    return found ? container_of(found, object, id) : nullptr;
}

int add_object(const request &req)
{
    const char *path = wanted_path(req.attributes);
    if (path && !may_publish(*req.from, path)) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    object *obj = create_object(*req.from);
    if (!obj) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!set_type(*obj, req.attributes) || (path && !set_path(*obj, path))) {
        destroy_object(obj);
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    message ids;
    ids.add(UBUS_ATTR_OBJID, obj->id.id);
    if (obj->type && req.attributes[UBUS_ATTR_SIGNATURE]) {
        ids.add(UBUS_ATTR_OBJTYPE, obj->type->id.id);
    }
    send_data(req, ids);
    if (obj->path) {
        announce(*obj, "ubus.object.add");
    }
    return UBUS_STATUS_OK;
}

int remove_object(const request &req)
{
    if (!req.attributes[UBUS_ATTR_OBJID]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    object *obj = find_object(blob_get_u32(req.attributes[UBUS_ATTR_OBJID]));
    if (!obj) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (obj->owner != req.from) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    message ids;
    ids.add(UBUS_ATTR_OBJID, obj->id.id);
    if (obj->type && obj->type->object_count == 1) {
        ids.add(UBUS_ATTR_OBJTYPE, obj->type->id.id);
    }
    send_data(req, ids);
    destroy_object(obj);
    return UBUS_STATUS_OK;
}

int look_up(const request &req)
{
    if (!req.attributes[UBUS_ATTR_OBJPATH]) {
        describe_all(req, "", 0);
        return UBUS_STATUS_OK;
    }
    const char *path = blob_get_string(req.attributes[UBUS_ATTR_OBJPATH]);
    size_t length = strlen(path);
    if (length == 0) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (path[length - 1] == '*') {
        return describe_all(req, path, length - 1) > 0 ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
    }
    object *obj;
    obj = avl_find_element(&objects_by_path, path, obj, by_path);
    if (!obj) {
        return UBUS_STATUS_NOT_FOUND;
    }
    describe(req, *obj);
    return UBUS_STATUS_OK;
}

void remove_objects_of(client &owner)
{
    while (!list_empty(&owner.objects)) {
        destroy_object(list_first_entry(&owner.objects, object, siblings));
    }
}

} // namespace ubusd
