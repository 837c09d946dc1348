// SPDX-License-Identifier: MIT
// Texts with places for the fields of a reply, which stand in the form {name:kind}. "cycle.state" is a field of a
// table in the table, and no name at all the value itself.
//
// | kind | stands for
// | none | the text itself
// | x    | what the word is called
// | t, w | a length of time in seconds, or in milliseconds
// | d    | a number above 0
// | n    | how many elements a list has
// | 0, 1 | nothing, for a flag that is so
//
// A bar ends the text when there is some already. What stands in brackets is left out when a field in it has no value,
// or one that its kind does not take.
#pragma once

#include <cstddef>

struct blob_attr;

// Printable in ASCII, whatever the fields hold; cut after `size` - 1 characters.
void fill_form(char *text, size_t size, const char *form, blob_attr *table);
