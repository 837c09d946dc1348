// SPDX-License-Identifier: MIT
// Golden files, hexadecimal text and buffers for the tests of attributes and messages.
#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
}

// A buffer that is released by itself.
struct test_buf : blob_buf {
    explicit test_buf(int id = 0) : blob_buf{} { blob_buf_init(this, id); }
    ~test_buf() { blob_buf_free(this); }
    test_buf(const test_buf &) = delete;
    test_buf &operator=(const test_buf &) = delete;
};

inline std::string hex(const void *data, size_t len)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < len; i++) {
        unsigned char byte = static_cast<const unsigned char *>(data)[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

inline std::string hex(const blob_buf &buf)
{
    return hex(buf.head, blob_raw_len(buf.head));
}

// An attribute in memory of exactly its size, so that a read beyond it is noticed by the sanitizer.
class exact_attr {
public:
    explicit exact_attr(const std::string &hex_text) : size_(hex_text.size() / 2), bytes_(new unsigned char[size_])
    {
        for (size_t i = 0; i < size_; i++)
            bytes_[i] = static_cast<unsigned char>(std::stoul(hex_text.substr(2 * i, 2), nullptr, 16));
    }
    blob_attr *get() { return reinterpret_cast<blob_attr *>(bytes_.get()); }
    size_t size() const { return size_; }

private:
    size_t size_;
    std::unique_ptr<unsigned char[]> bytes_;
};

// Takes over a malloc'ed text.
inline std::string owned(char *text)
{
    if (!text)
        return "(null)";
    std::string copy = text;
    free(text);
    return copy;
}

inline std::string to_json(blob_attr *attr, bool list = true)
{
    return owned(blobmsg_format_json(attr, list));
}

inline std::vector<std::string> golden_lines(const std::string &name)
{
    std::ifstream file(std::string(WAN_DETECT_TEST_DATA "/golden/blobmsg/") + name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] != '#')
            lines.push_back(line);
    }
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

inline std::vector<std::vector<std::string>> golden_fields(const std::string &name)
{
    std::vector<std::vector<std::string>> cases;
    for (const std::string &line : golden_lines(name)) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, '\t');)
            fields.push_back(field);
        cases.push_back(fields);
    }
    return cases;
}
