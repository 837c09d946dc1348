// SPDX-License-Identifier: MIT
// Memory for the contexts of a probe's batch: records that are safe from birth, released with free().
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

// Null when memory is short.
template <typename Context> Context *new_contexts(size_t count)
{
    auto *contexts = static_cast<Context *>(calloc(count, sizeof(Context)));
    if (contexts)
        std::uninitialized_value_construct_n(contexts, count);
    return contexts;
}
