// SPDX-License-Identifier: MIT
// Which characters names, types and values may have, and the names given to anonymous sections.
#pragma once

#include <cstddef>
#include <cstdint>

namespace uci_impl {

// Sections and options: letters, digits and '_', at least one.
bool is_valid_name(const char *text);
// Section types and packages: printable ASCII without space, at least one.
bool is_valid_type(const char *text);
bool is_valid_package(const char *text);
// A package named inside a text also becomes a file name there: no '.' and no '/'.
bool is_valid_package_line(const char *text);

constexpr size_t anonymous_name_size = 32; // bytes, with the final NUL

// Writes the name of an anonymous section: its number in the package (from 1) and a hash of its type.
void make_anonymous_name(char (&name)[anonymous_name_size], int number, const char *type);

} // namespace uci_impl
