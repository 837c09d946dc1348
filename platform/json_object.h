// SPDX-License-Identifier: MIT
// JSON objects that the router's scripts print.
#pragma once

#include <json-c/json.h>

// Owns a parsed object; null owns nothing.
struct t_json_guard {
    json_object *object;
    explicit t_json_guard(json_object *parsed) : object(parsed) {}
    ~t_json_guard() { json_object_put(object); }
    t_json_guard(const t_json_guard &) = delete;
    t_json_guard &operator=(const t_json_guard &) = delete;
};

// The object that `text` holds, or null; the caller releases it. A list, a number or a bare word has no members, so it
// is no better than garbage.
inline json_object *parse_json_object(const char *text)
{
    json_tokener_error error = json_tokener_success;
    json_object *parsed = json_tokener_parse_verbose(text, &error);
    if (error == json_tokener_success && json_object_is_type(parsed, json_type_object))
        return parsed;
    json_object_put(parsed);
    return nullptr;
}
