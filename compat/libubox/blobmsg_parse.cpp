// SPDX-License-Identifier: MIT
// Checking message fields and sorting them by a policy.
#include "exported.h"

#include <cerrno>

namespace {

// Longer names never match a policy.
constexpr size_t LONGEST_POLICY_NAME = 255;

// How the value of each message type is checked.
int plain_type(unsigned int type)
{
    switch (type) {
    case BLOBMSG_TYPE_STRING:
        return BLOB_ATTR_STRING;
    case BLOBMSG_TYPE_INT64:
        return BLOB_ATTR_INT64;
    case BLOBMSG_TYPE_INT32:
        return BLOB_ATTR_INT32;
    case BLOBMSG_TYPE_INT16:
        return BLOB_ATTR_INT16;
    case BLOBMSG_TYPE_INT8:
        return BLOB_ATTR_INT8;
    case BLOBMSG_TYPE_DOUBLE:
        return BLOB_ATTR_DOUBLE;
    default:
        return BLOB_ATTR_UNSPEC;
    }
}

// The attribute itself is known to be whole.
bool name_is_sound(const struct blob_attr *attr, bool required)
{
    if (!blob_is_extended(attr))
        return !required;
    if (blob_len(attr) < sizeof(struct blobmsg_hdr))
        return false;
    auto *hdr = static_cast<const struct blobmsg_hdr *>(blob_data(attr));
    size_t namelen = blobmsg_namelen(hdr);
    if (blobmsg_hdrlen(static_cast<unsigned int>(namelen)) > blob_len(attr))
        return false;
    return hdr->name[namelen] == '\0' && (namelen > 0 || !required);
}

bool type_fits(const struct blob_attr *attr, int wanted)
{
    switch (wanted) {
    case BLOBMSG_TYPE_UNSPEC:
        return true;
    case BLOBMSG_CAST_INT64:
        return blobmsg_type(attr) >= BLOBMSG_TYPE_INT64 && blobmsg_type(attr) <= BLOBMSG_TYPE_INT8;
    default:
        return static_cast<int>(blobmsg_type(attr)) == wanted;
    }
}

bool entry_fits(const struct blob_attr *attr, const struct blobmsg_policy *entry)
{
    if (!entry->name || !type_fits(attr, entry->type))
        return false;
    size_t namelen = blobmsg_namelen(static_cast<const struct blobmsg_hdr *>(blob_data(attr)));
    if (namelen > LONGEST_POLICY_NAME || namelen != strlen(entry->name))
        return false;
    return memcmp(blobmsg_name(attr), entry->name, namelen) == 0;
}

void clear(struct blob_attr **out, int count)
{
    for (int i = 0; i < count; i++)
        out[i] = nullptr;
}

} // namespace

bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len)
{
    if (!attr || len < sizeof(struct blob_attr))
        return false;
    if (blob_raw_len(attr) < sizeof(struct blob_attr) || blob_raw_len(attr) > len)
        return false;
    if (blobmsg_type(attr) > BLOBMSG_TYPE_LAST || !name_is_sound(attr, name))
        return false;
    return blob_check_type(blobmsg_data(attr), static_cast<unsigned int>(blobmsg_data_len(attr)),
                           plain_type(blobmsg_type(attr)));
}

bool blobmsg_check_attr(const struct blob_attr *attr, bool name)
{
    return attr && blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

int blobmsg_check_array_len(const struct blob_attr *attr, int type, size_t len)
{
    if (!blobmsg_check_attr_len(attr, false, len))
        return -1;
    bool table = blobmsg_type(attr) == BLOBMSG_TYPE_TABLE;
    if (!table && blobmsg_type(attr) != BLOBMSG_TYPE_ARRAY)
        return -1;
    int count = 0;
    size_t rem;
    struct blob_attr *element;
    blobmsg_for_each_attr(element, attr, rem)
    {
        if (!type_fits(element, type) || !blobmsg_check_attr_len(element, table, rem))
            return -1;
        count++;
    }
    return count;
}

int blobmsg_check_array(const struct blob_attr *attr, int type)
{
    return attr ? blobmsg_check_array_len(attr, type, blob_raw_len(attr)) : -1;
}

bool blobmsg_check_attr_list_len(const struct blob_attr *attr, int type, size_t len)
{
    return blobmsg_check_array_len(attr, type, len) >= 0;
}

bool blobmsg_check_attr_list(const struct blob_attr *attr, int type)
{
    return blobmsg_check_array(attr, type) >= 0;
}

int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out, void *data,
                  unsigned int len)
{
    clear(out, policy_len);
    if (!data || len == 0)
        return -EINVAL;
    size_t rem = len;
    struct blob_attr *attr;
    __blob_for_each_attr(attr, data, rem)
    {
        if (!blob_is_extended(attr))
            continue;
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        for (int i = 0; i < policy_len; i++) {
            if (!out[i] && entry_fits(attr, &policy[i]))
                out[i] = attr;
        }
    }
    return 0;
}

int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **out, void *data,
                        unsigned int len)
{
    clear(out, policy_len);
    int next = 0;
    size_t rem = data ? len : 0;
    struct blob_attr *attr;
    __blob_for_each_attr(attr, data, rem)
    {
        if (next == policy_len)
            break;
        if (!blob_is_extended(attr))
            continue;
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        if (type_fits(attr, policy[next].type))
            out[next++] = attr;
    }
    return 0;
}
