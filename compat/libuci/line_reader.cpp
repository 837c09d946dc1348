// SPDX-License-Identifier: MIT
// Cuts a text into lines and words: quotes, escapes, comments, separators. Shared by configuration and delta files.
#include "line_reader.h"

#include <uci.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace uci_impl {

namespace {

// What a byte is outside of quotes. The final NUL of a line counts as its end; blanks separate words.
enum byte_kind : uint8_t { plain = 0, blank = 1, line_end = 2, special = 4 };

constexpr std::array<uint8_t, UCHAR_MAX + 1> byte_kinds = [] {
    std::array<uint8_t, UCHAR_MAX + 1> kinds = {};
    for (char c : {' ', '\t', '\r', '\v', '\f'})
        kinds[static_cast<unsigned char>(c)] = blank;
    for (char c : {'\0', '\n'})
        kinds[static_cast<unsigned char>(c)] = line_end;
    for (char c : {'#', ';', '\'', '"', '\\'})
        kinds[static_cast<unsigned char>(c)] = special;
    return kinds;
}();

bool is_of_kind(char c, int kinds)
{
    return (byte_kinds[static_cast<unsigned char>(c)] & kinds) != 0;
}

// How many bytes there are before the next one of these kinds, among which is the end of the line.
size_t run_until(const char *text, int kinds)
{
    const char *end = text;
    while (!is_of_kind(*end, kinds))
        end++;
    return static_cast<size_t>(end - text);
}

// Within quotes only the closing one means something, and in double quotes the backslash.
size_t quoted_run(const char *text, size_t size, char quote)
{
    size_t length = 0;
    while (length < size && text[length] != quote && (quote != '"' || text[length] != '\\'))
        length++;
    return length;
}

} // namespace

line_reader::~line_reader()
{
    free(line_);
}

int line_reader::append_line()
{
    if (taken_ >= size_)
        return UCI_ERR_NOTFOUND;
    const char *begin = text_ + taken_;
    const void *newline = memchr(begin, '\n', size_ - taken_);
    size_t whole =
        newline != nullptr ? static_cast<size_t>(static_cast<const char *>(newline) - begin) + 1 : size_ - taken_;
    // A NUL byte hides the rest of its line, the line end included.
    size_t visible = taken_ + whole > hidden_from_ ? strnlen(begin, whole) : whole;

    size_t needed = length_ + visible + 1;
    if (needed > capacity_) {
        auto *grown = static_cast<char *>(realloc(line_, needed * 2));
        if (grown == nullptr)
            return UCI_ERR_MEM;
        line_ = grown;
        capacity_ = needed * 2;
    }
    memcpy(line_ + length_, begin, visible);
    length_ += visible;
    line_[length_] = '\0';
    taken_ += whole;
    if (newline != nullptr && visible == whole)
        lines_++;
    return UCI_OK;
}

int line_reader::next_line()
{
    length_ = 0;
    pos_ = 0;
    end_ = end_of_word::none;
    return append_line();
}

void line_reader::skip_blanks()
{
    while (is_of_kind(line_[pos_], blank))
        pos_++;
}

// Between words a joined line end is no more than a blank.
int line_reader::skip_to_word()
{
    skip_blanks();
    while (pos_ + 1 < length_ && line_[pos_] == '\\' && line_[pos_ + 1] == '\n') {
        pos_ += 2;
        int rc = append_line();
        if (rc != UCI_OK && rc != UCI_ERR_NOTFOUND)
            return rc;
        skip_blanks();
    }
    return UCI_OK;
}

void line_reader::give_up_line()
{
    pos_ = length_;
    end_ = end_of_word::line;
}

bool line_reader::next_command()
{
    if (end_ == end_of_word::line)
        return false;
    bool must_follow = end_ == end_of_word::command;
    end_ = end_of_word::none;
    skip_blanks();
    return pos_ < length_ && line_[pos_] != '#' && (must_follow || line_[pos_] != '\n');
}

std::string_view line_reader::take_keyword()
{
    const size_t size = run_until(line_ + pos_, blank | line_end);
    const size_t end = pos_ + size;
    if (size == 0 || (line_[end] != ' ' && line_[end] != '\t'))
        return {};
    pos_ = end + 1;
    return {line_ + end - size, size};
}

bool line_reader::take(char c)
{
    if (c == '\0' || current() != c)
        return false;
    pos_++;
    return true;
}

// Nearly every word is bare and followed by a blank, or stands in single quotes at the end of its line; so it is left
// where it is. False, and nothing is taken: it is another one.
bool line_reader::read_simple_word(size_t *word)
{
    skip_blanks();
    size_t start = pos_;
    size_t end = start + run_until(line_ + start, blank | line_end | special);
    if (end > start && is_of_kind(line_[end], blank)) {
        pos_ = end + 1;
    } else if (line_[start] == '\'') {
        start++;
        end = start + quoted_run(line_ + start, length_ - start, '\'');
        if (end == length_ || line_[end + 1] != '\n')
            return false;
        pos_ = end + 2;
        end_ = end_of_word::line;
    } else {
        return false;
    }
    line_[end] = '\0';
    *word = start;
    return true;
}

int line_reader::read_word(size_t *word)
{
    *word = length_;
    if (end_ != end_of_word::none || read_simple_word(word))
        return UCI_OK;
    int rc = skip_to_word();
    // The word is written over its own source, which is never shorter.
    size_t start = pos_;
    size_t out = start;
    if (rc == UCI_OK)
        rc = read_pieces(&out);
    if (rc != UCI_OK)
        return rc;
    line_[out] = '\0';
    *word = start;
    return UCI_OK;
}

// Takes bytes that stand for themselves. A word without quotes and escapes is where it belongs already.
void line_reader::take_run(size_t size, size_t *out)
{
    if (*out != pos_)
        memmove(line_ + *out, line_ + pos_, size);
    pos_ += size;
    *out += size;
}

int line_reader::read_pieces(size_t *out)
{
    bool unquoted = false; // the last piece of the word
    while (pos_ < length_) {
        if (const size_t size = run_until(line_ + pos_, blank | line_end | special)) {
            take_run(size, out);
            unquoted = true;
            continue;
        }
        char c = line_[pos_++];
        if (is_of_kind(c, blank))
            return UCI_OK;
        int rc = UCI_OK;
        switch (c) {
        case '\n':
            end_ = end_of_word::line;
            return UCI_OK;
        case '#':
            give_up_line();
            return UCI_OK;
        case ';':
            end_ = end_of_word::command;
            // Glued to an unquoted word it hides whatever follows.
            if (unquoted)
                give_up_line();
            return UCI_OK;
        case '\'':
        case '"':
            unquoted = false;
            rc = read_quoted(c, out);
            break;
        default: // a backslash
            unquoted = true;
            rc = read_escaped(out);
            break;
        }
        if (rc != UCI_OK)
            return rc;
    }
    end_ = end_of_word::line;
    return UCI_OK;
}

// Takes what follows a backslash: the character itself, or a line end, which joins the next line.
int line_reader::read_escaped(size_t *out)
{
    if (pos_ == length_)
        return UCI_OK;
    char c = line_[pos_++];
    if (c != '\n') {
        line_[(*out)++] = c;
        return UCI_OK;
    }
    int rc = append_line();
    return rc == UCI_ERR_NOTFOUND ? UCI_OK : rc;
}

int line_reader::read_quoted(char quote, size_t *out)
{
    for (;;) {
        take_run(quoted_run(line_ + pos_, length_ - pos_, quote), out);
        int rc = UCI_OK;
        if (pos_ == length_) {
            rc = append_line();
            if (rc == UCI_ERR_NOTFOUND) {
                reason_ = quote == '\'' ? "EOF with unterminated '" : "EOF with unterminated \"";
                return UCI_ERR_PARSE;
            }
        } else if (line_[pos_++] == quote) {
            return UCI_OK;
        } else {
            rc = read_escaped(out);
        }
        if (rc != UCI_OK)
            return rc;
    }
}

} // namespace uci_impl
