/* SPDX-License-Identifier: MIT */
/* The public header as C programs use it: that this compiles and links is the test. */
#include <libubus.h>

int c_user_calls_itself(struct ubus_context *ctx);

static int answer(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req, const char *method,
                  struct blob_attr *msg)
{
    (void)obj;
    (void)method;
    return ubus_send_reply(ctx, req, msg);
}

static const struct blobmsg_policy policy[] = {{.name = "n", .type = BLOBMSG_TYPE_INT32}};
static const struct ubus_method methods[] = {
    UBUS_METHOD("plain", answer, policy),
    UBUS_METHOD_NOARG("bare", answer),
    UBUS_METHOD_MASK("masked", answer, policy, 1UL << 0),
    UBUS_METHOD_TAG("tagged", answer, policy, 1UL << 1),
    UBUS_METHOD_TAG_NOARG("tagged_bare", answer, 1UL << 2),
};
static struct ubus_object_type type = UBUS_OBJECT_TYPE("c_user", methods);
static struct ubus_object object = {
    .name = "c_user", .type = &type, .methods = methods, .n_methods = ARRAY_SIZE(methods)};

/* Publishes, calls a method that does not exist on a plain C path, and withdraws. The status of the call. */
int c_user_calls_itself(struct ubus_context *ctx)
{
    int status = ubus_add_object(ctx, &object);
    if (status)
        return -1;
    status = ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_ACL, "no_such_method", NULL, NULL, NULL, 0);
    if (ubus_remove_object(ctx, &object))
        return -1;
    return status;
}
