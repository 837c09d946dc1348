// SPDX-License-Identifier: MIT
// Texts in buffers of a fixed size.
#pragma once

#include <cstddef>

// Copies at most `size` - 1 characters and terminates; returns the length that was wanted.
size_t bounded_copy(char *destination, const char *source, size_t size);
