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
