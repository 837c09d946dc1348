// SPDX-License-Identifier: MIT
// Texts in buffers of a fixed size, and words that several rooms say.
#pragma once

#include <cstddef>

// Copies at most `size` - 1 characters and terminates; returns the length that was wanted.
size_t bounded_copy(char *destination, const char *source, size_t size);

// True when `text` begins with `keyword`; a null text begins with nothing.
bool has_prefix(const char *text, const char *keyword);

// The words of log lines and script arguments, each spelled here alone.
constexpr const char *up_or_down(bool up)
{
    return up ? "up" : "down";
}
constexpr const char *COPPER_SIDE = "phy"; // the two sides of a combo port
constexpr const char *FIBRE_SIDE = "sfp";
constexpr const char *phy_or_sfp(bool phy)
{
    return phy ? COPPER_SIDE : FIBRE_SIDE;
}
constexpr const char *true_or_false(bool value)
{
    return value ? "true" : "false";
}

// One text for each value of an enum, in its order, each with a null byte behind it ("a\0b\0"): half the size of a
// table or a switch. How many there are belongs into an assertion beside them.
template <size_t size> consteval size_t count_of_texts(const char (&texts)[size])
{
    size_t count = 0;
    for (size_t i = 0; i + 1 < size; i++)
        count += texts[i] == '\0';
    return count;
}
const char *text_at(const char *texts, int place);
