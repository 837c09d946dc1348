/* SPDX-License-Identifier: MIT */
/* Binary attributes: a big-endian word of flag, id and length, a payload, and zero padding to the next 4-byte border.
 * There is no state but the caller's: any thread may work on buffers of its own. */
#ifndef LIBUBOX_BLOB_H
#define LIBUBOX_BLOB_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "utils.h"

#define BLOB_COOKIE 0x01234567

enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

#define BLOB_ATTR_ID_MASK 0x7f000000
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffff
#define BLOB_ATTR_ALIGN 4
#define BLOB_ATTR_EXTENDED 0x80000000

struct blob_attr {
    /* Big-endian, as stored. The length counts this word and the payload, not the padding. */
    uint32_t id_len;
    char data[];
} __attribute__((packed));

struct blob_attr_info {
    unsigned int type;
    /* Payload bounds; 0 = none. */
    unsigned int minlen;
    unsigned int maxlen;
    /* NULL = everything passes. */
    bool (*validate)(const struct blob_attr_info *info, struct blob_attr *attr);
};

/* Must be zeroed before first use. */
struct blob_buf {
    /* The innermost container being filled. */
    struct blob_attr *head;
    /* Makes room for at least `required` more bytes behind buflen. */
    bool (*grow)(struct blob_buf *buf, int required);
    int buflen;
    void *buf;
};

/* Readers; they trust the lengths stored in the attribute. */

static inline void *blob_data(const struct blob_attr *attr)
{
    return (void *)attr->data;
}

static inline unsigned int blob_id(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

/* Word and payload. */
static inline size_t blob_raw_len(const struct blob_attr *attr)
{
    return be32_to_cpu(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

/* Payload only. */
static inline size_t blob_len(const struct blob_attr *attr)
{
    return blob_raw_len(attr) < sizeof(struct blob_attr) ? 0 : blob_raw_len(attr) - sizeof(struct blob_attr);
}

/* Word, payload and padding. */
static inline size_t blob_pad_len(const struct blob_attr *attr)
{
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static inline struct blob_attr *blob_next(const struct blob_attr *attr)
{
    return (struct blob_attr *)(void *)((char *)attr + blob_pad_len(attr));
}

static inline uint8_t blob_get_u8(const struct blob_attr *attr)
{
    return (uint8_t)attr->data[0];
}

static inline uint16_t blob_get_u16(const struct blob_attr *attr)
{
    uint16_t value_be;
    memcpy(&value_be, attr->data, sizeof(value_be));
    return be16_to_cpu(value_be);
}

static inline uint32_t blob_get_u32(const struct blob_attr *attr)
{
    uint32_t value_be;
    memcpy(&value_be, attr->data, sizeof(value_be));
    return be32_to_cpu(value_be);
}

static inline uint64_t blob_get_u64(const struct blob_attr *attr)
{
    uint64_t value_be;
    memcpy(&value_be, attr->data, sizeof(value_be));
    return be64_to_cpu(value_be);
}

static inline int8_t blob_get_int8(const struct blob_attr *attr)
{
    return (int8_t)blob_get_u8(attr);
}

static inline int16_t blob_get_int16(const struct blob_attr *attr)
{
    return (int16_t)blob_get_u16(attr);
}

static inline int32_t blob_get_int32(const struct blob_attr *attr)
{
    return (int32_t)blob_get_u32(attr);
}

static inline int64_t blob_get_int64(const struct blob_attr *attr)
{
    return (int64_t)blob_get_u64(attr);
}

static inline const char *blob_get_string(const struct blob_attr *attr)
{
    return attr->data;
}

/* Builder. Every add may move the buffer: attributes found in it before are invalid afterwards, cookies stay valid. */

/* Empties the buffer, keeping its memory. 0, or -ENOMEM. */
int blob_buf_init(struct blob_buf *buf, int id);
void blob_buf_free(struct blob_buf *buf);
/* The default for blob_buf.grow. False if there is no memory or the result would exceed what a length can say. */
bool blob_buf_grow(struct blob_buf *buf, int required);
/* Appends an attribute with an uninitialised payload. NULL if it does not fit; so for the next two. */
struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload);
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);
/* Appends ready-made attributes. */
struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len);
/* What is added up to the matching end lands in the new attribute. Returns an opaque cookie, NULL if it does not fit.
 */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);
void blob_fill_pad(struct blob_attr *attr);
void blob_set_raw_len(struct blob_attr *attr, unsigned int len);

static inline struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val)
{
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u16(struct blob_buf *buf, int id, uint16_t val)
{
    uint16_t value_be = cpu_to_be16(val);
    return blob_put(buf, id, &value_be, sizeof(value_be));
}

static inline struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val)
{
    uint32_t value_be = cpu_to_be32(val);
    return blob_put(buf, id, &value_be, sizeof(value_be));
}

static inline struct blob_attr *blob_put_u64(struct blob_buf *buf, int id, uint64_t val)
{
    uint64_t value_be = cpu_to_be64(val);
    return blob_put(buf, id, &value_be, sizeof(value_be));
}

#define blob_put_int8 blob_put_u8
#define blob_put_int16 blob_put_u16
#define blob_put_int32 blob_put_u32
#define blob_put_int64 blob_put_u64

static inline struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str)
{
    return blob_put(buf, id, str, (unsigned int)strlen(str) + 1);
}

/* Whole attributes. */

bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2);
/* A malloc'ed copy, or NULL. */
struct blob_attr *blob_memdup(const struct blob_attr *attr);
/* Whether a payload fits one of the BLOB_ATTR_ types. */
bool blob_check_type(const void *ptr, unsigned int len, int type);
/* Sorts the attributes inside attr by id into out[0..max-1]; the last fitting one of an id counts. info may be NULL.
 * Returns the number of ids found. */
int blob_parse(struct blob_attr *attr, struct blob_attr **out, const struct blob_attr_info *info, int max);
/* The same for bytes from outside: reads nothing beyond attr_len. */
int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **out,
                         const struct blob_attr_info *info, int max);

/* rem is a size_t variable: the bytes left. They end at the first attribute that is not whole. */
#define __blob_for_each_attr(pos, attr, rem)                                \
    for ((pos) = (struct blob_attr *)(void *)(attr);                        \
         (rem) >= sizeof(struct blob_attr) && blob_pad_len(pos) <= (rem) && \
         blob_pad_len(pos) >= sizeof(struct blob_attr);                     \
         (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#define blob_for_each_attr(pos, attr, rem) \
    (rem) = (attr) ? blob_len(attr) : 0;   \
    __blob_for_each_attr(pos, ((attr) ? blob_data(attr) : NULL), rem)

#endif
