// SPDX-License-Identifier: MIT
// JSON objects that the router's scripts print.
#pragma once

#include <cstddef>
#include <cstdlib>

#include <json-c/json.h>

// More than the parser takes for the longest output that is read, and little enough to come from the heap.
constexpr size_t JSON_PARSER_MEMORY = size_t{48} * 1024;

// Owns a parsed object; null owns nothing.
struct t_json_guard {
    json_object *object;
    explicit t_json_guard(json_object *parsed) : object(parsed) {}
    ~t_json_guard() { json_object_put(object); }
    t_json_guard(const t_json_guard &) = delete;
    t_json_guard &operator=(const t_json_guard &) = delete;
};

// Whether there is memory enough to parse with. Older versions of json-c fall over a member's name that they find no
// memory for, so they are not asked at all when it is short.
inline bool json_parser_has_memory()
{
    void *memory = malloc(JSON_PARSER_MEMORY);
    asm volatile("" : : "r"(memory)); // else the compiler takes it for granted
    free(memory);
    return memory != nullptr;
}

// The object that `text` holds, or null; the caller releases it. A list, a number or a bare word has no members, so it
// is no better than garbage.
inline json_object *parse_json_object(const char *text)
{
    if (!json_parser_has_memory())
        return nullptr;
    json_tokener_error error = json_tokener_success;
    json_object *parsed = json_tokener_parse_verbose(text, &error);
    if (error == json_tokener_success && json_object_is_type(parsed, json_type_object))
        return parsed;
    json_object_put(parsed);
    return nullptr;
}
