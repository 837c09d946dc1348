// SPDX-License-Identifier: MIT
// What the two layers of the builder share.
#pragma once

#include "exported.h"

// Makes the buffer at least `end` bytes long. False, with nothing changed, if that cannot be.
bool blob_reserve(struct blob_buf *buf, size_t end);

// Turns the attribute just added into the container that is filled next. Returns the cookie for blob_nest_end.
void *blob_nest_into(struct blob_buf *buf, struct blob_attr *fresh);

inline size_t blob_padded(size_t len)
{
    return (len + BLOB_ATTR_ALIGN - 1) & ~static_cast<size_t>(BLOB_ATTR_ALIGN - 1);
}

// Offset of a place inside the buffer.
inline size_t blob_offset(const struct blob_buf *buf, const void *place)
{
    return static_cast<size_t>(static_cast<const char *>(place) - static_cast<const char *>(buf->buf));
}

inline struct blob_attr *blob_at(const struct blob_buf *buf, size_t offset)
{
    return reinterpret_cast<struct blob_attr *>(static_cast<char *>(buf->buf) + offset);
}

// Makes the innermost container end at this offset.
inline void blob_end_head_at(struct blob_buf *buf, size_t end)
{
    blob_set_raw_len(buf->head, static_cast<unsigned int>(end - blob_offset(buf, buf->head)));
}
