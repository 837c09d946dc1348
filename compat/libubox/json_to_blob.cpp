// SPDX-License-Identifier: MIT
// JSON text to message fields.
#include "blob_builder.h"

#include <json-c/json.h>

namespace {

// Owns one reference to a parsed text.
class parsed_json {
public:
    explicit parsed_json(struct json_object *root) : root_(root) {}
    ~parsed_json() { json_object_put(root_); }
    parsed_json(const parsed_json &) = delete;
    parsed_json &operator=(const parsed_json &) = delete;
    struct json_object *get() const { return root_; }

private:
    struct json_object *root_;
};

bool add_integer(struct blob_buf *buf, const char *name, struct json_object *obj)
{
    // Saturates for numbers of more than 64 bits.
    int64_t value = json_object_get_int64(obj);
    if (value >= INT32_MIN && value <= INT32_MAX)
        return blobmsg_add_u32(buf, name, static_cast<uint32_t>(value)) == 0;
    return blobmsg_add_u64(buf, name, static_cast<uint64_t>(value)) == 0;
}

bool add_members(struct blob_buf *buf, struct json_object *obj)
{
    struct json_object_iterator end = json_object_iter_end(obj);
    struct json_object_iterator it = json_object_iter_begin(obj);
    for (; !json_object_iter_equal(&it, &end); json_object_iter_next(&it)) {
        if (!blobmsg_add_json_element(buf, json_object_iter_peek_name(&it), json_object_iter_peek_value(&it)))
            return false;
    }
    return true;
}

bool add_elements(struct blob_buf *buf, struct json_object *array)
{
    size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; i++) {
        if (!blobmsg_add_json_element(buf, nullptr, json_object_array_get_idx(array, i)))
            return false;
    }
    return true;
}

bool add_container(struct blob_buf *buf, const char *name, struct json_object *obj, bool array)
{
    void *cookie = blobmsg_open_nested(buf, name, array);
    if (!cookie)
        return false;
    bool added = array ? add_elements(buf, obj) : add_members(buf, obj);
    blob_nest_end(buf, cookie);
    return added;
}

} // namespace

bool blobmsg_add_json_element(struct blob_buf *buf, const char *name, struct json_object *obj)
{
    switch (json_object_get_type(obj)) {
    case json_type_null:
        return blobmsg_add_field(buf, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    case json_type_boolean:
        return blobmsg_add_u8(buf, name, json_object_get_boolean(obj) ? 1 : 0) == 0;
    case json_type_int:
        return add_integer(buf, name, obj);
    case json_type_double:
        return blobmsg_add_double(buf, name, json_object_get_double(obj)) == 0;
    case json_type_string:
        return blobmsg_add_string(buf, name, json_object_get_string(obj)) == 0;
    case json_type_array:
        return add_container(buf, name, obj, true);
    case json_type_object:
        return add_container(buf, name, obj, false);
    }
    return false;
}

bool blobmsg_add_object(struct blob_buf *buf, struct json_object *obj)
{
    if (!json_object_is_type(obj, json_type_object))
        return false;
    size_t before = blob_raw_len(buf->head);
    if (add_members(buf, obj))
        return true;
    blob_set_raw_len(buf->head, static_cast<unsigned int>(before));
    return false;
}

bool blobmsg_add_json_from_string(struct blob_buf *buf, const char *json)
{
    parsed_json parsed(json_tokener_parse(json));
    return blobmsg_add_object(buf, parsed.get());
}

bool blobmsg_add_json_from_file(struct blob_buf *buf, const char *file)
{
    parsed_json parsed(json_object_from_file(file));
    return blobmsg_add_object(buf, parsed.get());
}
