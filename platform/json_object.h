// SPDX-License-Identifier: MIT
// JSON that the router's scripts print.
#pragma once

#include <cstddef>
#include <cstdlib>

#include <json-c/json.h>

// More than the parser takes for the longest output that is read, and little enough to come from the heap.
constexpr size_t JSON_PARSER_MEMORY = size_t{48} * 1024;

// Whether there is memory enough to parse with. Older versions of json-c fall over a member's name that they find no
// memory for, so they are not asked at all when it is short.
inline bool json_parser_has_memory()
{
    void *memory = malloc(JSON_PARSER_MEMORY);
    asm volatile("" : : "r"(memory)); // else the compiler takes it for granted
    free(memory);
    return memory != nullptr;
}

// What one of the router's scripts printed, parsed; owns it. A list, a number or a bare word is JSON, but has no
// members.
struct t_script_json {
    json_object *object = nullptr; // null stands for the word "null" as well
    bool is_json = false;

    t_script_json() = default;
    ~t_script_json() { json_object_put(object); }
    t_script_json(const t_script_json &) = delete;
    t_script_json &operator=(const t_script_json &) = delete;

    // Once. False when `text` is no JSON, or there is no memory to parse it with.
    bool parse(const char *text)
    {
        json_tokener_error error = json_tokener_continue; // stays without memory for a parser
        if (json_parser_has_memory())
            object = json_tokener_parse_verbose(text, &error);
        return is_json = error == json_tokener_success;
    }
};
