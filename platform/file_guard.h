// SPDX-License-Identifier: MIT
// Scope guard for a stream of the C library.
#pragma once

#include <cstdio>
#include <memory>

struct t_file_closer {
    void operator()(FILE *file) const { fclose(file); }
};
using t_file_guard = std::unique_ptr<FILE, t_file_closer>;
