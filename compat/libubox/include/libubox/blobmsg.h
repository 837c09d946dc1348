/* SPDX-License-Identifier: MIT */
/* Named, typed fields on top of blob attributes: the messages of the bus. */
#ifndef LIBUBOX_BLOBMSG_H
#define LIBUBOX_BLOBMSG_H

#include <stdarg.h>
#include <stdint.h>

#include "blob.h"

/* log2 of the border that names are padded to. */
#define BLOBMSG_ALIGN 2

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC,
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    /* In a policy only: any integer. */
    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST
};

struct blobmsg_hdr {
    /* Big-endian, without the NUL that follows the name. */
    uint16_t namelen;
    uint8_t name[];
} __attribute__((packed));

struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

/* Name, its length and its padding. */
static inline unsigned int blobmsg_hdrlen(unsigned int namelen)
{
    unsigned int border = 1u << BLOBMSG_ALIGN;

    return ((unsigned int)sizeof(struct blobmsg_hdr) + namelen + 1 + border - 1) & ~(border - 1);
}

static inline uint16_t blobmsg_namelen(const struct blobmsg_hdr *hdr)
{
    return be16_to_cpu(hdr->namelen);
}

/* "" for a field without name. */
static inline const char *blobmsg_name(const struct blob_attr *attr)
{
    return blob_is_extended(attr) ? attr->data + sizeof(struct blobmsg_hdr) : "";
}

static inline unsigned int blobmsg_type(const struct blob_attr *attr)
{
    return blob_id(attr);
}

/* Bytes between the word of the attribute and its value: none in a plain attribute. */
static inline size_t blobmsg_value_offset_(const struct blob_attr *attr)
{
    if (!blob_is_extended(attr) || blob_len(attr) < sizeof(struct blobmsg_hdr))
        return 0;
    return blobmsg_hdrlen(blobmsg_namelen((const struct blobmsg_hdr *)blob_data(attr)));
}

static inline void *blobmsg_data(const struct blob_attr *attr)
{
    return attr ? (char *)blob_data(attr) + blobmsg_value_offset_(attr) : NULL;
}

static inline size_t blobmsg_data_len(const struct blob_attr *attr)
{
    size_t offset;

    if (!attr)
        return 0;
    offset = blobmsg_value_offset_(attr);
    return blob_len(attr) < offset ? 0 : blob_len(attr) - offset;
}

static inline size_t blobmsg_len(const struct blob_attr *attr)
{
    return blobmsg_data_len(attr);
}

/* Checks. A field passes if its name, if it has one, and its value fit its type; with `name` it must have a name. */

bool blobmsg_check_attr(const struct blob_attr *attr, bool name);
/* For bytes from outside: reads nothing beyond len. */
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);
/* Whether attr is a table or array whose elements all pass and have this type; BLOBMSG_TYPE_UNSPEC = any. */
bool blobmsg_check_attr_list(const struct blob_attr *attr, int type);
bool blobmsg_check_attr_list_len(const struct blob_attr *attr, int type, size_t len);
/* The same, returning the number of elements or -1. */
int blobmsg_check_array(const struct blob_attr *attr, int type);
int blobmsg_check_array_len(const struct blob_attr *attr, int type, size_t len);

/* Fills out[i] with the first field that has name and type of policy[i], NULL if there is none.
 * 0; -EINVAL without data; -1 at a malformed field, with what was found before it in place. */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out, void *data,
                  unsigned int len);
/* By position: out[i] is the next element that has the type of policy[i]. 0 or -1. */
int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out, void *data,
                        unsigned int len);

static inline int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out,
                                     struct blob_attr *data)
{
    return blobmsg_parse(policy, policy_len, out, blobmsg_data(data), (unsigned int)blobmsg_len(data));
}

static inline int blobmsg_parse_array_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out,
                                           struct blob_attr *data)
{
    return blobmsg_parse_array(policy, policy_len, out, blobmsg_data(data), (unsigned int)blobmsg_len(data));
}

/* Builder. A name of NULL is the name "". The int functions return 0, or -1 if the field does not fit. */

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);
/* Opaque cookie for the matching close, NULL if it does not fit. */
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);
/* Adds a string; the length of the text, or -1. */
int blobmsg_vprintf(struct blob_buf *buf, const char *name, const char *format, va_list arg)
    __attribute__((format(printf, 3, 0)));
int blobmsg_printf(struct blob_buf *buf, const char *name, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/* A string written in place: room for maxlen characters and the NUL, which blobmsg_add_string_buffer turns into a
 * field. Nothing else may be added in between. NULL if it does not fit. */
void *blobmsg_alloc_string_buffer(struct blob_buf *buf, const char *name, unsigned int maxlen);
void *blobmsg_realloc_string_buffer(struct blob_buf *buf, unsigned int maxlen);
void blobmsg_add_string_buffer(struct blob_buf *buf);

static inline int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

static inline int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val)
{
    uint16_t value_be = cpu_to_be16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &value_be, sizeof(value_be));
}

static inline int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val)
{
    uint32_t value_be = cpu_to_be32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &value_be, sizeof(value_be));
}

static inline int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val)
{
    uint64_t value_be = cpu_to_be64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &value_be, sizeof(value_be));
}

static inline int blobmsg_add_double(struct blob_buf *buf, const char *name, double val)
{
    uint64_t bits;
    memcpy(&bits, &val, sizeof(bits));
    bits = cpu_to_be64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

static inline int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string, (unsigned int)strlen(string) + 1);
}

/* Copies type, name and value of a field of another buffer. */
static inline int blobmsg_add_blob(struct blob_buf *buf, const struct blob_attr *attr)
{
    return blobmsg_add_field(buf, (int)blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             (unsigned int)blobmsg_data_len(attr));
}

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, true);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

static inline int blobmsg_buf_init(struct blob_buf *buf)
{
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/* Getters; the field must have been checked. */

static inline uint8_t blobmsg_get_u8(const struct blob_attr *attr)
{
    return *(const uint8_t *)blobmsg_data(attr);
}

static inline bool blobmsg_get_bool(const struct blob_attr *attr)
{
    return blobmsg_get_u8(attr) != 0;
}

static inline uint16_t blobmsg_get_u16(const struct blob_attr *attr)
{
    uint16_t value_be;
    memcpy(&value_be, blobmsg_data(attr), sizeof(value_be));
    return be16_to_cpu(value_be);
}

static inline uint32_t blobmsg_get_u32(const struct blob_attr *attr)
{
    uint32_t value_be;
    memcpy(&value_be, blobmsg_data(attr), sizeof(value_be));
    return be32_to_cpu(value_be);
}

static inline uint64_t blobmsg_get_u64(const struct blob_attr *attr)
{
    uint64_t value_be;
    memcpy(&value_be, blobmsg_data(attr), sizeof(value_be));
    return be64_to_cpu(value_be);
}

static inline double blobmsg_get_double(const struct blob_attr *attr)
{
    uint64_t bits = blobmsg_get_u64(attr);
    double value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

/* NULL for NULL. */
static inline char *blobmsg_get_string(const struct blob_attr *attr)
{
    return (char *)blobmsg_data(attr);
}

/* Any integer type, zero-extended; 0 for another type. */
static inline uint64_t blobmsg_cast_u64(const struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

/* Any integer type, sign-extended; 0 for another type. */
static inline int64_t blobmsg_cast_s64(const struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return (int64_t)blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return (int32_t)blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return (int16_t)blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return (int8_t)blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

/* rem is a size_t variable: the bytes left. They end at the first attribute that is not whole. */
#define __blobmsg_for_each_attr(pos, attr, rem) __blob_for_each_attr(pos, blobmsg_data(attr), rem)

#define blobmsg_for_each_attr(pos, attr, rem) \
    (rem) = blobmsg_data_len(attr);           \
    __blobmsg_for_each_attr(pos, attr, rem)

#endif
