// SPDX-License-Identifier: MIT
// A file system of the target's own under the absolute paths that the product uses: /etc/config, /tmp and /var are
// empty and in memory, the host's stay untouched. Relative paths on the command line still lead to the host's.
#pragma once

#include <string>
#include <string_view>

// Called in prepare(); ends the program when it is not root.
void enter_private_files();

void write_private_file(const std::string &path, std::string_view text);
std::string read_private_file(const std::string &path); // empty when it is missing
