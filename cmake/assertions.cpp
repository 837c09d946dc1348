// SPDX-License-Identifier: MIT
// What the standard library calls when one of its own checks finds an index or a pointer beyond its bounds. Its
// runtime, which we do without, would bring its own.
#include <cstdio>
#include <cstdlib>

namespace std {

// Not every version of the library declares it here.
__attribute__((noreturn)) void __glibcxx_assert_fail(const char *file, int line, const char *function,
                                                     const char *condition) noexcept;

void __glibcxx_assert_fail(const char *file, int line, const char *function, const char *condition) noexcept
{
    fprintf(stderr, "%s:%d: %s: %s does not hold\n", file, line, function, condition);
    abort();
}

} // namespace std
