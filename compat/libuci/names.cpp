// SPDX-License-Identifier: MIT
// Which characters names, types and values may have, and the names given to anonymous sections.
#include "names.h"

#include <uci.h>

#include <array>
#include <climits>
#include <cstring>

namespace uci_impl {

namespace {

constexpr char first_graphic = 33;
constexpr char last_graphic = 126;
constexpr unsigned char first_printable = 32;
constexpr uint32_t hash_start = 5381;
constexpr uint32_t hash_factor = 33;
constexpr uint32_t hash_mask = 0xffff;
constexpr int bits_of_digit = 4;
constexpr int most_hex_digits = 8;

constexpr std::array<bool, UCHAR_MAX + 1> make_name_chars()
{
    std::array<bool, UCHAR_MAX + 1> chars = {};
    for (unsigned c = 0; c < chars.size(); c++)
        chars[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    return chars;
}

constexpr std::array<bool, UCHAR_MAX + 1> name_chars = make_name_chars();

bool is_name_char(char c)
{
    return name_chars[static_cast<unsigned char>(c)];
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

// In lower case, with leading zeros up to so many digits.
char *put_hex(char *out, uint32_t value, int digits)
{
    while (digits < most_hex_digits && value >> (bits_of_digit * digits) != 0)
        digits++;
    while (digits-- > 0)
        *out++ = "0123456789abcdef"[value >> (bits_of_digit * digits) & 0xf];
    return out;
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

void make_anonymous_name(char (&name)[anonymous_name_size], int number, const char *type)
{
    uint32_t hash = hash_start;
    for (const char *c = type; *c != '\0'; ++c)
        hash = hash * hash_factor + static_cast<unsigned char>(*c);
    memcpy(name, "cfg", 3);
    char *end = put_hex(name + 3, static_cast<uint32_t>(number), 2);
    *put_hex(end, hash & hash_mask, 4) = '\0';
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
