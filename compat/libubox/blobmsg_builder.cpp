// SPDX-License-Identifier: MIT
// Building message fields.
#include "blob_builder.h"

#include <cstdio>

namespace {

// Appends a field with an uninitialised value. Null if it does not fit.
struct blob_attr *new_field(struct blob_buf *buf, int type, const char *name, size_t value_len)
{
    if (!name)
        name = "";
    size_t namelen = strlen(name);
    if (namelen > UINT16_MAX || value_len > BLOB_ATTR_LEN_MASK)
        return nullptr;
    size_t hdrlen = blobmsg_hdrlen(static_cast<unsigned int>(namelen));
    struct blob_attr *attr = blob_new(buf, type, static_cast<int>(hdrlen + value_len));
    if (!attr)
        return nullptr;
    attr->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
    auto *hdr = static_cast<struct blobmsg_hdr *>(blob_data(attr));
    hdr->namelen = cpu_to_be16(namelen);
    memcpy(hdr->name, name, namelen);
    memset(hdr->name + namelen, 0, hdrlen - sizeof(*hdr) - namelen);
    return attr;
}

// The string being written: it lies behind the innermost container, not yet counted by it. Null if there is none.
struct blob_attr *open_string(struct blob_buf *buf)
{
    if (!buf->head)
        return nullptr;
    struct blob_attr *attr = blob_next(buf->head);
    size_t offset = blob_offset(buf, attr);
    size_t buflen = static_cast<size_t>(buf->buflen);
    if (offset + sizeof(*attr) > buflen || offset + blob_raw_len(attr) > buflen)
        return nullptr;
    if (!blob_is_extended(attr) || blobmsg_type(attr) != BLOBMSG_TYPE_STRING || blobmsg_data_len(attr) == 0)
        return nullptr;
    return attr;
}

// So that leftovers of an earlier use are not taken for a string being written.
void forget_open_string(struct blob_buf *buf)
{
    if (buf->head && blob_reserve(buf, blob_offset(buf, blob_next(buf->head)) + sizeof(struct blob_attr)))
        blob_next(buf->head)->id_len = 0;
}

} // namespace

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len)
{
    if (len > 0 && !data)
        return -1;
    struct blob_attr *attr = new_field(buf, type, name, len);
    if (!attr)
        return -1;
    if (len > 0)
        memcpy(blobmsg_data(attr), data, len);
    return 0;
}

void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array)
{
    struct blob_attr *attr = new_field(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    return attr ? blob_nest_into(buf, attr) : nullptr;
}

void *blobmsg_alloc_string_buffer(struct blob_buf *buf, const char *name, unsigned int maxlen)
{
    struct blob_attr *attr = new_field(buf, BLOBMSG_TYPE_STRING, name, static_cast<size_t>(maxlen) + 1);
    if (!attr) {
        forget_open_string(buf);
        return nullptr;
    }
    blob_end_head_at(buf, blob_offset(buf, attr));
    char *text = blobmsg_get_string(attr);
    text[0] = '\0';
    return text;
}

void *blobmsg_realloc_string_buffer(struct blob_buf *buf, unsigned int maxlen)
{
    struct blob_attr *attr = open_string(buf);
    if (!attr)
        return nullptr;
    size_t offset = blob_offset(buf, attr);
    size_t raw_len = blob_raw_len(attr) - blobmsg_data_len(attr) + maxlen + 1;
    if (!blob_reserve(buf, offset + blob_padded(raw_len)))
        return nullptr;
    attr = blob_at(buf, offset);
    blob_set_raw_len(attr, static_cast<unsigned int>(raw_len));
    return blobmsg_data(attr);
}

void blobmsg_add_string_buffer(struct blob_buf *buf)
{
    struct blob_attr *attr = open_string(buf);
    if (!attr)
        return;
    char *text = blobmsg_get_string(attr);
    size_t room = blobmsg_data_len(attr);
    text[room - 1] = '\0';
    size_t raw_len = blob_raw_len(attr) - room + strlen(text) + 1;
    blob_set_raw_len(attr, static_cast<unsigned int>(raw_len));
    blob_fill_pad(attr);
    blob_end_head_at(buf, blob_offset(buf, attr) + blob_pad_len(attr));
}

int blobmsg_vprintf(struct blob_buf *buf, const char *name, const char *format, va_list arg)
{
    va_list again;
    va_copy(again, arg);
    int len = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (len < 0)
        return -1;
    void *text = blobmsg_alloc_string_buffer(buf, name, static_cast<unsigned int>(len));
    if (!text)
        return -1;
    vsnprintf(static_cast<char *>(text), static_cast<size_t>(len) + 1, format, arg);
    blobmsg_add_string_buffer(buf);
    return len;
}

int blobmsg_printf(struct blob_buf *buf, const char *name, const char *format, ...)
{
    va_list arg;
    va_start(arg, format);
    int len = blobmsg_vprintf(buf, name, format, arg);
    va_end(arg);
    return len;
}
