// SPDX-License-Identifier: MIT
// Which characters names, types and values may have, and the names given to anonymous sections.
#include "names.h"

#include <uci.h>

#include <cstdio>
#include <cstring>

namespace uci_impl {

namespace {

constexpr char first_graphic = 33;
constexpr char last_graphic = 126;
constexpr unsigned char first_printable = 32;
constexpr uint32_t hash_start = 5381;
constexpr uint32_t hash_factor = 33;
constexpr uint32_t hash_mask = 0xffff;

bool is_name_char(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool is_graphic(char c)
{
    return c >= first_graphic && c <= last_graphic;
}

template <typename test_type> bool all_of_text(const char *text, test_type test)
{
    if (text == nullptr || *text == '\0')
        return false;
    for (const char *c = text; *c != '\0'; ++c) {
        if (!test(*c))
            return false;
    }
    return true;
}

} // namespace

bool is_valid_name(const char *text)
{
    return all_of_text(text, is_name_char);
}

bool is_valid_type(const char *text)
{
    return all_of_text(text, is_graphic);
}

bool is_valid_package(const char *text)
{
    return all_of_text(text, is_graphic);
}

bool is_valid_package_line(const char *text)
{
    return is_valid_package(text) && strpbrk(text, "./") == nullptr;
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

void make_anonymous_name(char (&name)[anonymous_name_size], int number, const char *type)
{
    uint32_t hash = hash_start;
    for (const char *c = type; *c != '\0'; ++c)
        hash = hash * hash_factor + static_cast<unsigned char>(*c);
    snprintf(name, sizeof(name), "cfg%02x%04x", static_cast<unsigned>(number), hash & hash_mask);
}

} // namespace uci_impl

bool uci_validate_text(const char *str)
{
    if (str == nullptr)
        return false;
    for (const char *c = str; *c != '\0'; ++c) {
        if (static_cast<unsigned char>(*c) < uci_impl::first_printable && *c != '\t' && *c != '\n' && *c != '\r')
            return false;
    }
    return true;
}
