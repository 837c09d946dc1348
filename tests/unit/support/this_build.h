// SPDX-License-Identifier: MIT
// What a test has to know of the build that its program belongs to.
#pragma once

#include <filesystem>
#include <string>

// The folder of this program and of those that were built with it.
inline const std::string BIN_FOLDER = std::filesystem::read_symlink("/proc/self/exe").parent_path();

extern "C" {
void __asan_init() __attribute__((weak));
void __tsan_init() __attribute__((weak));
}

inline bool product_has_asan()
{
    return &__asan_init != nullptr;
}

inline bool product_has_tsan()
{
    return &__tsan_init != nullptr;
}
