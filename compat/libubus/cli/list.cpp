// SPDX-License-Identifier: MIT
// `ubus list`: the names of objects, or their methods and arguments, too.
#include "commands.h"

#include <cstdio>

namespace ubus_cli {
namespace {

const char *type_name(const blob_attr *argument)
{
    if (blobmsg_type(argument) != BLOBMSG_TYPE_INT32) {
        return "(unknown)";
    }
    switch (blobmsg_get_u32(argument)) {
    case BLOBMSG_TYPE_ARRAY:
        return "Array";
    case BLOBMSG_TYPE_TABLE:
        return "Table";
    case BLOBMSG_TYPE_STRING:
        return "String";
    case BLOBMSG_TYPE_INT32:
        return "Integer";
    case BLOBMSG_TYPE_BOOL:
        return "Boolean";
    default:
        return "(unknown)";
    }
}

void print_method(const blob_attr *method)
{
    printf("\t\"%s\":{", blobmsg_name(method));
    const char *separator = "";
    blob_attr *argument;
    size_t left;
    blobmsg_for_each_attr(argument, method, left)
    {
        if (!blobmsg_check_attr_len(argument, false, left)) {
            break;
        }
        printf("%s\"%s\":\"%s\"", separator, blobmsg_name(argument), type_name(argument));
        separator = ",";
    }
    printf("}\n");
}

void print_signature(const blob_attr *signature)
{
    blob_attr *method;
    size_t left;
    blob_for_each_attr(method, signature, left)
    {
        if (!blobmsg_check_attr_len(method, false, left)) {
            return;
        }
        print_method(method);
    }
}

void print_object(ubus_context *, ubus_object_data *object, void *priv)
{
    const auto *wanted = static_cast<const options *>(priv);
    if (wanted->is_simple || !wanted->is_verbose) {
        printf("%s\n", object->path);
        return;
    }
    printf("'%s' @%08x\n", object->path, object->id);
    print_signature(object->signature);
}

} // namespace

int list(bus_link &bus, const arguments &args)
{
    if (args.count > 1) {
        return WRONG_USAGE;
    }
    const char *path = args.count == 1 ? args.text[0] : nullptr;
    return ubus_lookup(bus.ctx, path, print_object, &bus.wanted);
}

} // namespace ubus_cli
