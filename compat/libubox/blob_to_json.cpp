// SPDX-License-Identifier: MIT
// Message fields to JSON text.
#include "exported.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr size_t FIRST_CAPACITY_BYTES = 256;
// The longest number is a double near 1e308 with six decimals.
constexpr size_t NUMBER_CHARS = 336;
// Messages come from outside, and every level costs stack; no honest one is a tenth as deep.
constexpr int DEEPEST_LEVEL = 512;

class text_buffer {
public:
    text_buffer() = default;
    ~text_buffer() { free(text_); }
    text_buffer(const text_buffer &) = delete;
    text_buffer &operator=(const text_buffer &) = delete;

    void add(std::string_view piece)
    {
        if (!reserve(piece.size()))
            return;
        memcpy(text_ + len_, piece.data(), piece.size());
        len_ += piece.size();
        text_[len_] = '\0';
    }

    void add(char c) { add(std::string_view(&c, 1)); }

    __attribute__((format(printf, 2, 3))) void add_number(const char *format, ...)
    {
        char number[NUMBER_CHARS];
        va_list arg;
        va_start(arg, format);
        vsnprintf(number, sizeof(number), format, arg);
        va_end(arg);
        add(number);
    }

    // The text, maybe "", the caller's from now on; null if memory ran out at any point.
    char *release()
    {
        add("");
        char *text = failed_ ? nullptr : text_;
        if (!failed_)
            text_ = nullptr;
        return text;
    }

private:
    bool reserve(size_t more)
    {
        if (failed_)
            return false;
        size_t wanted = len_ + more + 1;
        if (wanted <= capacity_)
            return true;
        size_t capacity = std::max({wanted, capacity_ * 2, FIRST_CAPACITY_BYTES});
        auto *moved = static_cast<char *>(realloc(text_, capacity));
        if (!moved) {
            failed_ = true;
            return false;
        }
        text_ = moved;
        capacity_ = capacity;
        return true;
    }

    char *text_ = nullptr;
    size_t len_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

class json_writer {
public:
    json_writer(blobmsg_json_format_t cb, void *priv, int indent)
        : cb_(cb), priv_(priv), depth_(std::max(indent, 0)), indented_(indent >= 0)
    {
    }

    void write_element(struct blob_attr *attr, size_t len, bool with_name);
    void write_value(struct blob_attr *attr);
    void write_content(struct blob_attr *attr, bool array);
    char *release() { return text_.release(); }

private:
    void new_line()
    {
        if (!indented_)
            return;
        text_.add('\n');
        for (int i = 0; i < depth_; i++)
            text_.add('\t');
    }

    void write_scalar(struct blob_attr *attr);
    void write_string(std::string_view string);

    text_buffer text_;
    blobmsg_json_format_t cb_;
    void *priv_;
    int depth_;
    int level_ = 0;
    bool indented_;
};

// The letter of a short escape, or 0.
char escape_letter(char c)
{
    switch (c) {
    case '\b':
        return 'b';
    case '\n':
        return 'n';
    case '\t':
        return 't';
    case '\r':
        return 'r';
    case '"':
    case '\\':
        return c;
    default:
        return '\0';
    }
}

void json_writer::write_string(std::string_view string)
{
    text_.add('"');
    for (char c : string) {
        if (char letter = escape_letter(c)) {
            text_.add('\\');
            text_.add(letter);
        } else if (static_cast<unsigned char>(c) < ' ') {
            text_.add_number("\\u%04x", static_cast<unsigned char>(c));
        } else {
            text_.add(c);
        }
    }
    text_.add('"');
}

void json_writer::write_scalar(struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_UNSPEC:
        return text_.add("null");
    case BLOBMSG_TYPE_BOOL:
        return text_.add(blobmsg_get_bool(attr) ? "true" : "false");
    case BLOBMSG_TYPE_DOUBLE:
        return text_.add_number("%f", blobmsg_get_double(attr));
    case BLOBMSG_TYPE_STRING: {
        const char *string = blobmsg_get_string(attr);
        return write_string({string, strnlen(string, blobmsg_data_len(attr))});
    }
    default:
        return text_.add_number("%lld", static_cast<long long>(blobmsg_cast_s64(attr)));
    }
}

// The attribute has been checked.
void json_writer::write_value(struct blob_attr *attr)
{
    const char *replaced = cb_ ? cb_(priv_, attr) : nullptr;
    if (replaced)
        return text_.add(replaced);
    if (blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY || blobmsg_type(attr) == BLOBMSG_TYPE_TABLE)
        return write_content(attr, blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    write_scalar(attr);
}

// Nothing is written for a malformed element.
void json_writer::write_element(struct blob_attr *attr, size_t len, bool with_name)
{
    if (!blobmsg_check_attr_len(attr, false, len) || level_ > DEEPEST_LEVEL)
        return;
    std::string_view name = blobmsg_name(attr);
    if (with_name && !name.empty()) {
        write_string(name);
        text_.add(indented_ ? ": " : ":");
    }
    write_value(attr);
}

void json_writer::write_content(struct blob_attr *attr, bool array)
{
    text_.add(array ? '[' : '{');
    depth_++;
    level_++;
    new_line();
    bool first = true;
    size_t rem;
    struct blob_attr *element;
    blobmsg_for_each_attr(element, attr, rem)
    {
        if (!first) {
            text_.add(',');
            new_line();
        }
        first = false;
        write_element(element, rem, !array);
    }
    depth_--;
    level_--;
    new_line();
    text_.add(array ? ']' : '}');
}

} // namespace

char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv, int indent)
{
    if (!attr)
        return nullptr;
    json_writer writer(cb, priv, indent);
    if (list)
        writer.write_content(attr, blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    else
        writer.write_element(attr, blob_raw_len(attr), true);
    return writer.release();
}

char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb, void *priv, int indent)
{
    if (!attr)
        return nullptr;
    json_writer writer(cb, priv, indent);
    writer.write_element(attr, blob_raw_len(attr), false);
    return writer.release();
}
