// SPDX-License-Identifier: MIT
// JSON from outside to message fields and back: what was written can be read again, and says the same.
#include <cmath>
#include <cstdlib>

#include "tests/fuzz/support/fuzz.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

struct t_converted {
    bool done;     // the text was JSON with an object
    bool has_json; // its fields have a JSON form: no infinite number, no member without a name
    std::string json;
};

bool has_json_form(blob_attr *fields, bool named)
{
    size_t left;
    blob_attr *field;
    blobmsg_for_each_attr(field, fields, left)
    {
        const unsigned type = blobmsg_type(field);
        if (named && !*blobmsg_name(field))
            return false;
        if (type == BLOBMSG_TYPE_DOUBLE && !std::isfinite(blobmsg_get_double(field)))
            return false;
        const bool nested = type == BLOBMSG_TYPE_TABLE || type == BLOBMSG_TYPE_ARRAY;
        if (nested && !has_json_form(field, type == BLOBMSG_TYPE_TABLE))
            return false;
    }
    return true;
}

t_converted convert(const std::string &json)
{
    blob_buf buffer = {};
    REQUIRE(blob_buf_init(&buffer, 0) == 0);
    t_converted result = {};
    result.done = blobmsg_add_json_from_string(&buffer, json.c_str());
    REQUIRE(result.done || blob_len(buffer.head) == 0);
    result.has_json = has_json_form(buffer.head, true);
    char *text = blobmsg_format_json(buffer.head, true);
    REQUIRE(text);
    result.json = text;
    free(text);
    blob_buf_free(&buffer);
    return result;
}

} // namespace

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const t_converted once = convert(text_of({data, size}));
    if (!once.done || !once.has_json)
        return 0;
    const t_converted twice = convert(once.json);
    REQUIRE(twice.done && twice.json == once.json);
    return 0;
}
