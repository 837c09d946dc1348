// SPDX-License-Identifier: MIT
// What the words of a reply are called for a person, and how long something lasts.
#pragma once

#include <cstdint>

// All texts are good until the next one is made.

// The text for a word. The word itself is one where there is no better one, with blanks for its underscores.
const char *text_for(const char *word);

// A length of time, as exact as anybody wants it.
const char *time_text(int64_t seconds);
const char *wait_text(int64_t milliseconds);
