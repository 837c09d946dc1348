// SPDX-License-Identifier: MIT
// A descriptor on a file of the tree.
#pragma once

#include "tests/simulation/descriptors.h"
#include "tests/simulation/file_tree.h"

namespace sim {

struct t_open_file : t_description {
    std::string path;
    t_node_ref node;
    size_t position = 0;
    bool was_written = false;

    t_open_file(std::string opened_path, t_node_ref opened);
    ~t_open_file() override;
    void unlock();
    ssize_t read(void *buffer, size_t size) override;
    ssize_t write(const void *data, size_t size) override;
    const char *kind() const override { return "file"; }
};

t_node_ref new_node(const std::string &path, decltype(t_node::type) type, mode_t mode);

} // namespace sim
