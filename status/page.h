// SPDX-License-Identifier: MIT
// What is printed, column by column: painted texts with blanks between them, and words set into lines.
#pragma once

#include <cstdio>

struct blob_attr;

constexpr int PAGE_WIDTH = 80;

// What the reader's terminal understands.
struct t_look {
    bool utf8;
    bool color;
};

// One line of texts that stand in columns; no blanks stand behind the last text, and without a text there is no line.
class t_line {
public:
    t_line(FILE *out, t_look look) : out_(out), look_(look) {}
    ~t_line();
    t_line(const t_line &) = delete;
    t_line &operator=(const t_line &) = delete;

    // Texts of our own, or printable ones. The colour is what a terminal is told, "" for none.
    void put(const char *text, const char *paint = "");
    // In the middle of so many columns, which are filled with a glyph.
    void put_centred(const char *text, int width, const char *paint, const char *glyph);

private:
    void fill(int columns, const char *glyph);

    FILE *out_; // borrowed
    t_look look_;
    int blanks_ = 0;
    bool is_empty_ = true;
};

// A filled form (status/form.h), if it is not empty, set into lines of at most PAGE_WIDTH columns: a title stands
// before the first one, the others are indented.
void print_paragraph(FILE *out, const char *title, const char *form, blob_attr *table);
