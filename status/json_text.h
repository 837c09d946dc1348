// SPDX-License-Identifier: MIT
// A reply of the bus as JSON, without the library that would do it: a router need not have it.
#pragma once

#include <cstdio>

struct blob_attr;

// On one line, in ASCII, whatever the strings hold; what is no text in UTF-8 becomes U+FFFD. Tables deeper than a reply
// of ours are null.
void print_json(FILE *out, blob_attr *reply);
