// SPDX-License-Identifier: MIT
// Building plain attributes in a growing buffer.
#include "blob_builder.h"

#include <cerrno>
#include <cstdlib>

namespace {

constexpr size_t WORD_BYTES = sizeof(struct blob_attr);
constexpr size_t GROW_STEP_BYTES = 256;
// Every length is a multiple of the alignment, so this is the longest one that fits the length field.
constexpr size_t LONGEST_BLOB_BYTES = BLOB_ATTR_LEN_MASK & ~static_cast<size_t>(BLOB_ATTR_ALIGN - 1);

void set_word(struct blob_attr *attr, int id, size_t raw_len)
{
    uint32_t id_bits = (static_cast<uint32_t>(id) << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK;
    attr->id_len = cpu_to_be32(id_bits | static_cast<uint32_t>(raw_len));
}

size_t end_of_head(const struct blob_buf *buf)
{
    return blob_offset(buf, buf->head) + blob_pad_len(buf->head);
}

// Extends the innermost container by len bytes, padding included. Null if they do not fit. A buffer whose set-up failed
// has no container, and nothing is done to survive that: its user did not look.
struct blob_attr *append(struct blob_buf *buf, size_t len)
{
    if (len > LONGEST_BLOB_BYTES)
        return nullptr;
    size_t start = end_of_head(buf);
    size_t end = start + blob_padded(len);
    if (!blob_reserve(buf, end))
        return nullptr;
    blob_end_head_at(buf, end);
    struct blob_attr *fresh = blob_at(buf, start);
    memset(reinterpret_cast<char *>(fresh) + len, 0, blob_padded(len) - len);
    return fresh;
}

} // namespace

bool blob_reserve(struct blob_buf *buf, size_t end)
{
    size_t available = static_cast<size_t>(buf->buflen);
    if (end > LONGEST_BLOB_BYTES)
        return false;
    if (end <= available)
        return true;
    size_t head_offset = buf->head ? blob_offset(buf, buf->head) : 0;
    if (!buf->grow || !buf->grow(buf, static_cast<int>(end - available)))
        return false;
    // A foreign grow function knows nothing of the containers.
    if (buf->head)
        buf->head = blob_at(buf, head_offset);
    return end <= static_cast<size_t>(buf->buflen);
}

bool blob_buf_grow(struct blob_buf *buf, int required)
{
    if (required < 0)
        return false;
    size_t wanted = static_cast<size_t>(buf->buflen) + static_cast<size_t>(required);
    if (wanted > LONGEST_BLOB_BYTES)
        return false;
    wanted = (wanted + GROW_STEP_BYTES - 1) / GROW_STEP_BYTES * GROW_STEP_BYTES;
    size_t head_offset = buf->head ? blob_offset(buf, buf->head) : 0;
    void *moved = realloc(buf->buf, wanted);
    if (!moved)
        return false;
    buf->buf = moved;
    buf->buflen = static_cast<int>(wanted);
    if (buf->head)
        buf->head = blob_at(buf, head_offset);
    return true;
}

int blob_buf_init(struct blob_buf *buf, int id)
{
    if (!buf->grow)
        buf->grow = blob_buf_grow;
    buf->head = nullptr;
    if (!blob_reserve(buf, WORD_BYTES))
        return -ENOMEM;
    buf->head = static_cast<struct blob_attr *>(buf->buf);
    set_word(buf->head, id, WORD_BYTES);
    return 0;
}

void blob_buf_free(struct blob_buf *buf)
{
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload)
{
    if (payload < 0)
        return nullptr;
    size_t raw_len = WORD_BYTES + static_cast<size_t>(payload);
    struct blob_attr *attr = append(buf, raw_len);
    if (attr)
        set_word(attr, id, raw_len);
    return attr;
}

struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len)
{
    if (len > LONGEST_BLOB_BYTES || (len > 0 && !ptr))
        return nullptr;
    struct blob_attr *attr = blob_new(buf, id, static_cast<int>(len));
    if (attr && len > 0)
        memcpy(blob_data(attr), ptr, len);
    return attr;
}

struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len)
{
    if (!ptr || len < WORD_BYTES)
        return nullptr;
    struct blob_attr *attr = append(buf, len);
    if (attr)
        memcpy(static_cast<void *>(attr), ptr, len);
    return attr;
}

void *blob_nest_into(struct blob_buf *buf, struct blob_attr *fresh)
{
    size_t outer = blob_offset(buf, buf->head);
    // The container is counted when it is closed and its length is known.
    blob_end_head_at(buf, blob_offset(buf, fresh));
    buf->head = fresh;
    return reinterpret_cast<void *>(static_cast<uintptr_t>(outer + BLOB_COOKIE));
}

void *blob_nest_start(struct blob_buf *buf, int id)
{
    struct blob_attr *attr = blob_new(buf, id, 0);
    return attr ? blob_nest_into(buf, attr) : nullptr;
}

void blob_nest_end(struct blob_buf *buf, void *cookie)
{
    size_t outer = reinterpret_cast<uintptr_t>(cookie) - BLOB_COOKIE;
    // Also the answer to a null cookie, of a container that could not be opened.
    if (!buf->head || outer >= blob_offset(buf, buf->head))
        return;
    size_t end = end_of_head(buf);
    buf->head = blob_at(buf, outer);
    blob_end_head_at(buf, end);
}

void blob_fill_pad(struct blob_attr *attr)
{
    memset(reinterpret_cast<char *>(attr) + blob_raw_len(attr), 0, blob_pad_len(attr) - blob_raw_len(attr));
}

void blob_set_raw_len(struct blob_attr *attr, unsigned int len)
{
    uint32_t others = be32_to_cpu(attr->id_len) & ~static_cast<uint32_t>(BLOB_ATTR_LEN_MASK);
    attr->id_len = cpu_to_be32(others | (len & BLOB_ATTR_LEN_MASK));
}
