// SPDX-License-Identifier: MIT
// Reading plain attributes.
#include "exported.h"

#include <algorithm>
#include <cstdlib>

namespace {

// Payload length a type asks for; 0 = any.
size_t exact_len(int type)
{
    switch (type) {
    case BLOB_ATTR_INT8:
        return sizeof(uint8_t);
    case BLOB_ATTR_INT16:
        return sizeof(uint16_t);
    case BLOB_ATTR_INT32:
        return sizeof(uint32_t);
    case BLOB_ATTR_INT64:
    case BLOB_ATTR_DOUBLE:
        return sizeof(uint64_t);
    default:
        return 0;
    }
}

bool passes(struct blob_attr *attr, const struct blob_attr_info *info)
{
    size_t len = blob_len(attr);
    if (!blob_check_type(blob_data(attr), static_cast<unsigned int>(len), static_cast<int>(info->type)))
        return false;
    if (len < info->minlen || (info->maxlen > 0 && len > info->maxlen))
        return false;
    return !info->validate || info->validate(info, attr);
}

void clear(struct blob_attr **out, int max)
{
    for (int i = 0; i < max; i++)
        out[i] = nullptr;
}

int sort_by_id(void *data, size_t len, struct blob_attr **out, const struct blob_attr_info *info, int max)
{
    int found = 0;
    size_t rem = len;
    struct blob_attr *attr;
    __blob_for_each_attr(attr, data, rem)
    {
        int id = static_cast<int>(blob_id(attr));
        if (id >= max || (info && !passes(attr, &info[id])))
            continue;
        found += out[id] ? 0 : 1;
        out[id] = attr;
    }
    return found;
}

} // namespace

bool blob_check_type(const void *ptr, unsigned int len, int type)
{
    if (type < 0 || type >= BLOB_ATTR_LAST)
        return false;
    if (type == BLOB_ATTR_STRING)
        return len > 0 && static_cast<const char *>(ptr)[len - 1] == '\0';
    size_t exact = exact_len(type);
    return exact == 0 || len == exact;
}

int blob_parse(struct blob_attr *attr, struct blob_attr **out, const struct blob_attr_info *info, int max)
{
    clear(out, max);
    return attr ? sort_by_id(blob_data(attr), blob_len(attr), out, info, max) : 0;
}

int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **out,
                         const struct blob_attr_info *info, int max)
{
    clear(out, max);
    if (!attr || attr_len < sizeof(struct blob_attr))
        return 0;
    if (blob_raw_len(attr) < sizeof(struct blob_attr) || blob_raw_len(attr) > attr_len)
        return 0;
    return sort_by_id(blob_data(attr), blob_len(attr), out, info, max);
}

bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2)
{
    if (!a1 || !a2)
        return a1 == a2;
    return blob_raw_len(a1) == blob_raw_len(a2) && memcmp(a1, a2, blob_raw_len(a1)) == 0;
}

struct blob_attr *blob_memdup(const struct blob_attr *attr)
{
    if (!attr)
        return nullptr;
    // The padding of the last attribute of a message is not always there, so it is made, not copied. The word is there
    // even when it says otherwise.
    size_t len = std::max(blob_raw_len(attr), sizeof(struct blob_attr));
    auto *copy = static_cast<struct blob_attr *>(calloc(1, std::max(blob_pad_len(attr), len)));
    if (copy)
        memcpy(static_cast<void *>(copy), attr, len);
    return copy;
}
