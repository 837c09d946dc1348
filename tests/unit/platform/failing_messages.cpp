// SPDX-License-Identifier: MIT
#include "tests/unit/platform/failing_messages.h"

#include <cerrno>
#include <cstdlib>

extern "C" {
#include <libubox/blobmsg.h>
}

static t_refusal refused = t_refusal::none;

t_message_shortage::t_message_shortage(t_refusal what)
{
    refused = what;
}

t_message_shortage::~t_message_shortage()
{
    refused = t_refusal::none;
}

extern "C" {
int __real_blob_buf_init(blob_buf *buffer, int id);
int __real_blobmsg_add_field(blob_buf *buffer, int type, const char *name, const void *data, unsigned int length);
int __wrap_blob_buf_init(blob_buf *buffer, int id);
int __wrap_blobmsg_add_field(blob_buf *buffer, int type, const char *name, const void *data, unsigned int length);

// Without a head, as the library leaves it.
int __wrap_blob_buf_init(blob_buf *buffer, int id)
{
    if (refused != t_refusal::of_buffers)
        return __real_blob_buf_init(buffer, id);
    buffer->head = nullptr;
    return -ENOMEM;
}

int __wrap_blobmsg_add_field(blob_buf *buffer, int type, const char *name, const void *data, unsigned int length)
{
    if (!buffer->head)
        abort(); // the library would look into it
    if (refused != t_refusal::of_fields)
        return __real_blobmsg_add_field(buffer, type, name, data, length);
    return -1;
}
}
