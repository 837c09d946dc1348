// SPDX-License-Identifier: MIT
// Cuts a text into lines and words: quotes, escapes, comments, separators. Shared by configuration and delta files.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace uci_impl {

// A quoted word may span lines, so the current line grows while its words are read. Words are kept as offsets and
// turned into text once the line is complete.
class line_reader {
public:
    // The text is borrowed and must outlive the reader.
    line_reader(const char *text, size_t size) : text_(text), size_(size), hidden_from_(strnlen(text, size)) {}
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;
    ~line_reader();

    // Goes to the next line of the text, even if the current one was not read to its end.
    // UCI_OK, UCI_ERR_NOTFOUND at the end of the text, UCI_ERR_MEM.
    int next_line();

    // Goes to the next command on this line. False: the rest is blank, a comment, or was given up. Behind a separator
    // the bare end of the line stands for a command, which nobody knows.
    bool next_command();

    // Takes the keyword at the current place; it must be followed by a space or a tab. Empty: there is none.
    std::string_view take_keyword();

    // Takes one character if it stands at the current place.
    bool take(char c);

    // Reads a word of the current command; empty when there is none left.
    // UCI_OK, UCI_ERR_PARSE for an unterminated quote (see reason()), UCI_ERR_MEM.
    int read_word(size_t *word);

    char *text_at(size_t word) { return line_ + word; }
    char current() const { return pos_ < length_ ? line_[pos_] : '\0'; }
    const char *reason() const { return reason_; }
    int line_number() const { return lines_; }
    size_t byte() const { return pos_; }
    // Offset into the whole text of what no line has reached yet.
    size_t consumed() const { return taken_; }
    // The current line has its line end: nothing of it is missing.
    bool is_whole() const { return taken_ > 0 && text_[taken_ - 1] == '\n'; }

private:
    enum class end_of_word { none, command, line };

    int append_line();
    void take_run(size_t size, size_t *out);
    int read_quoted(char quote, size_t *out);
    int read_escaped(size_t *out);
    int read_pieces(size_t *out);
    bool read_simple_word(size_t *word);
    void skip_blanks();
    int skip_to_word();
    void give_up_line();

    const char *text_;
    size_t size_;
    size_t hidden_from_; // offset of the first NUL byte
    size_t taken_ = 0;

    char *line_ = nullptr; // owned; always ends with NUL once a line was read
    size_t length_ = 0;
    size_t capacity_ = 0;
    size_t pos_ = 0;
    int lines_ = 0;
    end_of_word end_ = end_of_word::none;
    const char *reason_ = nullptr;
};

} // namespace uci_impl
