// SPDX-License-Identifier: MIT
// Memory for the contexts of a probe's batch: records that are safe from birth, released with free().
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

// Null when memory is short.
template <typename Context> Context *new_contexts(size_t count)
{
    auto *contexts = static_cast<Context *>(calloc(count, sizeof(Context)));
    for (size_t i = 0; contexts && i < count; i++)
        new (&contexts[i]) Context();
    return contexts;
}
