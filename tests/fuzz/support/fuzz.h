// SPDX-License-Identifier: MIT
// What every fuzz target shares: its preparation, checks of what must hold, and the pieces of an input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using t_octets = std::span<const uint8_t>;

// Called once, before the first input. Each target has its own.
void prepare();

// Ends the program, and so shows the input, when something that must hold does not.
#define REQUIRE(condition) ((condition) ? static_cast<void>(0) : fail_requirement(#condition, __FILE__, __LINE__))
[[noreturn]] void fail_requirement(const char *condition, const char *file, int line);

// Takes an input apart from its front; what lies beyond its end reads as zero or as nothing.
class t_input {
public:
    t_input(const uint8_t *data, size_t size) : left_(data, size) {}

    bool empty() const { return left_.empty(); }
    uint8_t byte();
    uint16_t word();  // big-endian
    t_octets block(); // a word, and so many bytes
    t_octets rest() { return left_; }

private:
    t_octets left_;
};

inline std::string text_of(t_octets octets)
{
    return {reinterpret_cast<const char *>(octets.data()), octets.size()};
}

// The pieces between the separators; `count` of them, the last with all the rest, empty ones where there are fewer.
std::vector<std::string> split(std::string_view text, std::string_view separator, size_t count);

// Between the parts of inputs that are several texts.
constexpr std::string_view PART_SEPARATOR = "\n%%\n";
