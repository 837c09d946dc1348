// SPDX-License-Identifier: MIT
// Foreign text as log lines may show it: nobody else writes a line of ours, or moves a terminal's cursor.
#pragma once

#include <cstddef>

constexpr size_t PRINTABLE_TEXT_SIZE = 256;

// Replaces every byte by '?' that is not printable in ASCII.
void make_printable(char *text);

// A printable copy, cut after 255 bytes, for use inside one expression: t_printable_text(name).text.
struct t_printable_text {
    char text[PRINTABLE_TEXT_SIZE];

    explicit t_printable_text(const char *foreign);
};
