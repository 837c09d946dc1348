// SPDX-License-Identifier: MIT
// What the daemon tells of itself over the bus, as a tree that checks can walk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct blob_attr;

namespace sim {

struct t_told_part;

struct t_told {
    std::string text;               // of a word; a number or boolean in decimals
    std::vector<t_told_part> parts; // of a table; in an array without names

    bool has(const char *name) const { return find(name) != nullptr; }
    const t_told *find(const char *name) const;
    const t_told &operator[](const char *name) const; // an empty one where there is none
    int64_t number() const;
    bool is(const char *word) const { return text == word; }
};

struct t_told_part {
    std::string name;
    t_told told;
};

t_told read_told(blob_attr *message);

// For lives in which the daemon lies: what has this name says that, wherever it stands.
void tell_instead(const std::string &name, const std::string &text);

} // namespace sim
