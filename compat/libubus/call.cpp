// SPDX-License-Identifier: MIT
// What a client asks of others: lookups and calls.
#include "library.h"

using namespace ubus_library;

namespace {

struct lookup {
    ubus_lookup_handler_t cb;
    void *priv;
};

void report_object(ubus_request *req, int, blob_attr *answer)
{
    auto *wanted = static_cast<lookup *>(req->priv);
    ubus_frame::attributes attributes = ubus_frame::parse(answer);
    if (!attributes[UBUS_ATTR_OBJID] || !attributes[UBUS_ATTR_OBJPATH] || !attributes[UBUS_ATTR_OBJTYPE]) {
        return;
    }
    ubus_object_data object = {.id = blob_get_u32(attributes[UBUS_ATTR_OBJID]),
                               .type_id = blob_get_u32(attributes[UBUS_ATTR_OBJTYPE]),
                               .path = blob_get_string(attributes[UBUS_ATTR_OBJPATH]),
                               .signature = attributes[UBUS_ATTR_SIGNATURE]};
    wanted->cb(req->ctx, &object, wanted->priv);
}

void take_id(ubus_context *, ubus_object_data *object, void *priv)
{
    *static_cast<uint32_t *>(priv) = object->id;
}

} // namespace

int ubus_lookup(ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv)
{
    message request;
    if (path) {
        request.add(UBUS_ATTR_OBJPATH, path);
    }
    lookup wanted = {.cb = cb, .priv = priv};
    return run_request(ctx, request, UBUS_MSG_LOOKUP, 0, report_object, &wanted);
}

int ubus_lookup_id(ubus_context *ctx, const char *path, uint32_t *id)
{
    return ubus_lookup(ctx, path, take_id, id);
}

int ubus_invoke_async_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg, ubus_request *req, int fd)
{
    message request;
    request.add(UBUS_ATTR_OBJID, obj).add(UBUS_ATTR_METHOD, method).add_fields(UBUS_ATTR_DATA, msg);
    if (fd >= 0) {
        return UBUS_STATUS_NOT_SUPPORTED;
    }
    return start_request(ctx, req, request, UBUS_MSG_INVOKE, obj);
}

int ubus_invoke_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg, ubus_data_handler_t cb,
                   void *priv, int timeout, int fd)
{
    ubus_request req;
    int status = ubus_invoke_async_fd(ctx, obj, method, msg, &req, fd);
    if (status != UBUS_STATUS_OK) {
        return status;
    }
    req.data_cb = cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, timeout);
}
