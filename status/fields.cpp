// SPDX-License-Identifier: MIT
#include "status/fields.h"

#include <cstring>

extern "C" {
#include <libubox/blobmsg.h>
}

t_elements::t_elements(blob_attr *container) : place_(nullptr), left_(0)
{
    if (!container)
        return;
    place_ = static_cast<char *>(blobmsg_data(container));
    left_ = blobmsg_data_len(container);
}

blob_attr *t_elements::next()
{
    while (left_ >= sizeof(blob_attr)) {
        blob_attr *element = reinterpret_cast<blob_attr *>(place_);
        const size_t size = blob_pad_len(element);
        if (size < sizeof(blob_attr) || size > left_)
            break;
        place_ += size;
        left_ -= size;
        if (blob_is_extended(element) && blobmsg_check_attr(element, false))
            return element;
    }
    return nullptr;
}

blob_attr *find_field(blob_attr *table, const char *name)
{
    if (*name == '\0')
        return table;
    t_elements fields(table);
    while (blob_attr *field = fields.next())
        if (strcmp(blobmsg_name(field), name) == 0)
            return field;
    return nullptr;
}

const char *text_of(blob_attr *value)
{
    return value && blobmsg_type(value) == BLOBMSG_TYPE_STRING ? blobmsg_get_string(value) : "";
}

int64_t number_of(blob_attr *value)
{
    if (!value)
        return NO_NUMBER;
    switch (blobmsg_type(value)) {
    case BLOBMSG_TYPE_INT64:
        return static_cast<int64_t>(blobmsg_get_u64(value));
    case BLOBMSG_TYPE_INT32:
        return static_cast<int32_t>(blobmsg_get_u32(value));
    case BLOBMSG_TYPE_BOOL:
        return blobmsg_get_bool(value);
    default:
        return NO_NUMBER;
    }
}

int count_elements(blob_attr *value)
{
    int count = 0;
    for (t_elements elements(value); elements.next();)
        count++;
    return count;
}
