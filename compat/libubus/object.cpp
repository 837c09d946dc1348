// SPDX-License-Identifier: MIT
// Objects a client publishes: their signature, their ids, the record of them.
#include "library.h"

#include <climits>

namespace ubus_library {
namespace {

// Says whether the signature fitted into the message.
bool add_arguments(blob_buf *buffer, const ubus_method &method)
{
    for (int i = 0; i < method.n_policy; i++) {
        bool has_bit = i < static_cast<int>(sizeof(method.mask) * CHAR_BIT);
        bool is_published = method.mask == 0 || (has_bit && (method.mask >> i & 1UL) != 0);
        const blobmsg_policy &argument = method.policy[i];
        if (is_published && blobmsg_add_u32(buffer, argument.name, argument.type) != 0) {
            return false;
        }
    }
    return true;
}

bool add_signature(blob_buf *buffer, const ubus_object_type &type)
{
    for (int i = 0; i < type.n_methods; i++) {
        void *table = blobmsg_open_table(buffer, type.methods[i].name);
        if (!table || !add_arguments(buffer, type.methods[i])) {
            return false;
        }
        blobmsg_close_table(buffer, table);
    }
    return true;
}

void describe(message &request, const ubus_object &obj)
{
    if (!obj.name || !obj.type) {
        return;
    }
    request.add(UBUS_ATTR_OBJPATH, obj.name);
    if (obj.type->id != 0) {
        request.add(UBUS_ATTR_OBJTYPE, obj.type->id);
        return;
    }
    blob_buf *buffer = request.open(UBUS_ATTR_SIGNATURE);
    request.finish(buffer && add_signature(buffer, *obj.type));
}

void take_ids(ubus_request *req, int, blob_attr *answer)
{
    auto *obj = static_cast<ubus_object *>(req->priv);
    ubus_frame::attributes attributes = ubus_frame::parse(answer);
    if (!attributes[UBUS_ATTR_OBJID]) {
        return;
    }
    obj->id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    if (attributes[UBUS_ATTR_OBJTYPE] && obj->type) {
        obj->type->id = blob_get_u32(attributes[UBUS_ATTR_OBJTYPE]);
    }
}

void take_removal(ubus_request *req, int, blob_attr *answer)
{
    auto *type = static_cast<ubus_object_type *>(req->priv);
    ubus_frame::attributes attributes = ubus_frame::parse(answer);
    if (attributes[UBUS_ATTR_OBJTYPE] && type) {
        type->id = 0;
    }
}

int compare_ids(const void *left, const void *right, void *)
{
    uint32_t left_id = *static_cast<const uint32_t *>(left);
    uint32_t right_id = *static_cast<const uint32_t *>(right);
    return left_id < right_id ? -1 : left_id > right_id;
}

bool is_listed(ubus_context *ctx, const ubus_object *wanted)
{
    ubus_object *obj;
    avl_for_each_element(&ctx->objects, obj, avl)
    {
        if (obj == wanted) {
            return true;
        }
    }
    return false;
}

} // namespace

void initialise_objects(ubus_context *ctx)
{
    avl_init(&ctx->objects, compare_ids, true, nullptr);
}

void list_object(ubus_context *ctx, ubus_object *obj)
{
    obj->avl.key = &obj->id;
    avl_insert(&ctx->objects, &obj->avl);
}

int publish(ubus_context *ctx, ubus_object *obj)
{
    message request;
    describe(request, *obj);
    // Anything but success may mean that a callback freed the context, and the object with it.
    int status = run_request(ctx, request, UBUS_MSG_ADD_OBJECT, 0, take_ids, obj);
    if (status == UBUS_STATUS_OK && obj->id == 0) {
        status = UBUS_STATUS_NO_DATA;
    }
    if (status == UBUS_STATUS_OK) {
        list_object(ctx, obj);
    }
    return status;
}

} // namespace ubus_library

using namespace ubus_library;

int ubus_add_object(ubus_context *ctx, ubus_object *obj)
{
    if (is_listed(ctx, obj)) {
        if (obj->id != 0) {
            return UBUS_STATUS_INVALID_ARGUMENT;
        }
        avl_delete(&ctx->objects, &obj->avl);
    }
    obj->id = 0;
    return publish(ctx, obj);
}

// Whatever the bus says, the object is the caller's again: it may be about to free it. A callback may even free the
// context and the object while the bus is asked, so neither is touched after that.
int ubus_remove_object(ubus_context *ctx, ubus_object *obj)
{
    message request;
    request.add(UBUS_ATTR_OBJID, obj->id);
    if (is_listed(ctx, obj)) {
        avl_delete(&ctx->objects, &obj->avl);
    }
    obj->id = 0;
    return run_request(ctx, request, UBUS_MSG_REMOVE_OBJECT, 0, take_removal, obj->type);
}
