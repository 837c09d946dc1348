// SPDX-License-Identifier: MIT
// Reading a reply of which nothing is taken for granted: what is missing, malformed or of another type reads as if it
// had no value. Texts are foreign, and borrowed from the reply.
#pragma once

#include <cstddef>
#include <cstdint>

struct blob_attr;

constexpr int64_t NO_NUMBER = INT32_MIN; // none that a reply of ours holds

// The elements of a list, or the fields of a table or reply, one after the other. Malformed ones are left out, and what
// lies behind one whose length cannot be true; so a value of another type has none.
class t_elements {
public:
    explicit t_elements(blob_attr *container); // null has none
    blob_attr *next();                         // null behind the last one

private:
    char *place_;
    size_t left_;
};

// The field of that name; "" is the table itself. Null where there is none.
blob_attr *find_field(blob_attr *table, const char *name);

const char *text_of(blob_attr *value); // "" without
int64_t number_of(blob_attr *value);   // NO_NUMBER without; a flag counts as 0 or 1
int count_elements(blob_attr *value);
