// SPDX-License-Identifier: MIT
// Header in and out of network order, and the types the attributes must have.
#include "frame.h"

#include <arpa/inet.h>

namespace ubus_frame {
namespace {

static_assert(sizeof(ubus_msghdr) == HEADER_BYTES);
static_assert(offsetof(ubus_msghdr, version) == 0);
static_assert(offsetof(ubus_msghdr, type) == 1);
static_assert(offsetof(ubus_msghdr, seq) == 2);
static_assert(offsetof(ubus_msghdr, peer) == 4);
static_assert(sizeof(blob_attr) == BLOB_WORD_BYTES);

constexpr unsigned int attribute_type(int id)
{
    switch (id) {
    case UBUS_ATTR_OBJPATH:
    case UBUS_ATTR_METHOD:
    case UBUS_ATTR_USER:
    case UBUS_ATTR_GROUP:
        return BLOB_ATTR_STRING;
    case UBUS_ATTR_STATUS:
    case UBUS_ATTR_OBJID:
    case UBUS_ATTR_OBJTYPE:
    case UBUS_ATTR_TARGET:
        return BLOB_ATTR_INT32;
    case UBUS_ATTR_ACTIVE:
    case UBUS_ATTR_NO_REPLY:
        return BLOB_ATTR_INT8;
    case UBUS_ATTR_SIGNATURE:
    case UBUS_ATTR_DATA:
    case UBUS_ATTR_SUBSCRIBERS:
        return BLOB_ATTR_NESTED;
    default:
        return BLOB_ATTR_UNSPEC;
    }
}

struct policy_table {
    blob_attr_info of[UBUS_ATTR_MAX] = {};
};

constexpr policy_table make_policy()
{
    policy_table table;
    for (int id = 0; id < UBUS_ATTR_MAX; id++) {
        table.of[id].type = attribute_type(id);
    }
    return table;
}

constexpr policy_table POLICY = make_policy();

} // namespace

ubus_msghdr encode(const header &head)
{
    return {.version = head.version, .type = head.type, .seq = htons(head.seq), .peer = htonl(head.peer)};
}

header decode(const ubus_msghdr &wire)
{
    return {.version = wire.version, .type = wire.type, .seq = ntohs(wire.seq), .peer = ntohl(wire.peer)};
}

attributes parse(blob_attr *message)
{
    attributes found;
    blob_parse_untrusted(message, blob_raw_len(message), found.at, POLICY.of, UBUS_ATTR_MAX);
    return found;
}

} // namespace ubus_frame
