/* SPDX-License-Identifier: MIT */
/* JSON text to message fields and back. Needs the library blobmsg_json and json-c. */
#ifndef LIBUBOX_BLOBMSG_JSON_H
#define LIBUBOX_BLOBMSG_JSON_H

#include <stdbool.h>
#include <stddef.h>

#include "blobmsg.h"

struct json_object;

/* These add the members of a JSON object to what the buffer holds. False, with the buffer as it was, if the text is not
 * an object or does not fit. */
bool blobmsg_add_json_from_string(struct blob_buf *buf, const char *json);
bool blobmsg_add_json_from_file(struct blob_buf *buf, const char *file);
bool blobmsg_add_object(struct blob_buf *buf, struct json_object *obj);
/* Adds any JSON value, NULL being null, as the field `name`. */
bool blobmsg_add_json_element(struct blob_buf *buf, const char *name, struct json_object *obj);

/* Text to print in place of the value, or NULL for the usual one. */
typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

/* All return a malloc'ed text, or NULL. list: the content of a container in brackets, else one element with its name.
 * indent: depth to start from, or -1 for one line without blanks. */
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv, int indent);
/* The value of one element without its name. */
char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb, void *priv, int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

static inline char *blobmsg_format_json_value(struct blob_attr *attr)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, -1);
}

#endif
