// SPDX-License-Identifier: MIT
#include "status/page.h"

#include <algorithm>
#include <cstring>

#include "status/form.h"

constexpr int TITLE_WIDTH = 11;
constexpr int FURTHER_INDENT = 15;
constexpr int LONGEST_WORD = PAGE_WIDTH - FURTHER_INDENT;
constexpr size_t LONGEST_PARAGRAPH = 1024;

// Columns of a text in UTF-8 whose characters are one wide.
static int columns_of(const char *text)
{
    int columns = 0;
    for (; *text != '\0'; text++)
        columns += (*text & 0xc0) != 0x80; // not one of a character's further bytes
    return columns;
}

t_line::~t_line()
{
    if (!is_empty_)
        fputc('\n', out_);
}

void t_line::put(const char *text, const char *paint)
{
    if (strcmp(text, " ") == 0)
        blanks_++;
    if (*text == '\0' || *text == ' ')
        return;
    const bool painted = look_.color && *paint;
    fprintf(out_, painted ? "%*s\033[%sm%s\033[0m" : "%*s%s%s", blanks_, "", painted ? paint : "", text);
    blanks_ = 0;
    is_empty_ = false;
}

void t_line::fill(int columns, const char *glyph)
{
    while (columns-- > 0)
        put(glyph);
}

void t_line::put_centred(const char *text, int width, const char *paint, const char *glyph)
{
    const int blanks = width - columns_of(text);
    fill(blanks / 2, glyph);
    put(text, paint);
    fill(blanks - blanks / 2, glyph);
}

void print_paragraph(FILE *out, const char *title, const char *form, blob_attr *table)
{
    char text[LONGEST_PARAGRAPH];
    fill_form(text, sizeof text, form, table);
    if (*text == '\0')
        return;
    int column = fprintf(out, "  %-*s", TITLE_WIDTH, title);
    for (const char *word = text; *word != '\0';) {
        const int length = std::min(static_cast<int>(strcspn(word, " ")), LONGEST_WORD);
        int blanks = word == text ? 0 : 1;
        if (column + blanks + length > PAGE_WIDTH) {
            fputc('\n', out);
            column = 0;
            blanks = FURTHER_INDENT;
        }
        column += fprintf(out, "%*s%.*s", blanks, "", length, word);
        word += length;
        word += strspn(word, " ");
    }
    fputc('\n', out);
}
