// SPDX-License-Identifier: MIT
// Binary attributes and message fields from outside: sorting by id and by policy, checks, and their JSON.
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/support/fuzz.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

constexpr int IDS = 15; // one more than the types
constexpr size_t LARGEST_BLOB = BLOB_ATTR_LEN_MASK;

constexpr blobmsg_policy FIELDS[] = {
    {"up", BLOBMSG_TYPE_BOOL},     {"level", BLOBMSG_TYPE_INT32}, {"name", BLOBMSG_TYPE_STRING},
    {"data", BLOBMSG_TYPE_TABLE},  {"list", BLOBMSG_TYPE_ARRAY},  {"big", BLOBMSG_TYPE_INT64},
    {"small", BLOBMSG_TYPE_INT16}, {"part", BLOBMSG_TYPE_DOUBLE}, {"number", BLOBMSG_CAST_INT64},
};
constexpr int FIELD_COUNT = sizeof FIELDS / sizeof FIELDS[0];

// Reads what the type promises.
void read_field(blob_attr *field)
{
    switch (blobmsg_type(field)) {
    case BLOBMSG_TYPE_STRING:
        REQUIRE(strlen(blobmsg_get_string(field)) < blobmsg_data_len(field));
        break;
    case BLOBMSG_TYPE_DOUBLE:
        static_cast<void>(blobmsg_get_double(field));
        break;
    case BLOBMSG_TYPE_INT64:
    case BLOBMSG_TYPE_INT32:
    case BLOBMSG_TYPE_INT16:
    case BLOBMSG_TYPE_INT8:
        static_cast<void>(blobmsg_cast_s64(field));
        break;
    default:
        break;
    }
}

void parse_by_id(blob_attr *attribute, size_t size)
{
    blob_attr_info types[IDS] = {};
    for (unsigned id = 0; id < IDS; id++)
        types[id].type = id % BLOB_ATTR_LAST;
    blob_attr *found[IDS];
    for (const blob_attr_info *info :
         {static_cast<const blob_attr_info *>(nullptr), static_cast<const blob_attr_info *>(types)}) {
        blob_parse_untrusted(attribute, size, found, info, IDS);
        for (const blob_attr *one : found) {
            blob_attr *copy = blob_memdup(one);
            REQUIRE(blob_attr_equal(one, copy));
            free(copy);
        }
    }
}

void parse_by_policy(void *content, size_t size)
{
    blob_attr *found[FIELD_COUNT];
    blobmsg_parse(FIELDS, FIELD_COUNT, found, content, static_cast<unsigned>(size));
    for (blob_attr *field : found)
        if (field)
            read_field(field);
    blobmsg_parse_array(FIELDS, FIELD_COUNT, found, content, static_cast<unsigned>(size));
    for (blob_attr *field : found)
        if (field)
            read_field(field);
}

void format(blob_attr *attribute)
{
    for (const bool list : {false, true})
        free(blobmsg_format_json(attribute, list));
    free(blobmsg_format_json_indent(attribute, true, 0));
    free(blobmsg_format_json_value(attribute));
}

} // namespace

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > LARGEST_BLOB)
        return -1;
    // In memory of its own, so that the last attribute ends where the memory does.
    auto *attribute = static_cast<blob_attr *>(malloc(size));
    if (size > 0)
        memcpy(static_cast<void *>(attribute), data, size);
    parse_by_id(attribute, size);
    parse_by_policy(attribute, size);
    const bool whole = blobmsg_check_attr_len(attribute, false, size);
    blobmsg_check_array_len(attribute, BLOBMSG_TYPE_UNSPEC, size);
    blobmsg_check_attr_list_len(attribute, BLOBMSG_TYPE_STRING, size);
    if (whole) {
        REQUIRE(blobmsg_check_attr(attribute, false));
        read_field(attribute);
        format(attribute);
    }
    free(attribute);
    return 0;
}
