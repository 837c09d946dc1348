// SPDX-License-Identifier: MIT
// What the standard library calls when one of its own checks finds an index or a pointer beyond its bounds. Its
// runtime, which we do without, would bring its own.
#include <cstdio>
#include <cstdlib>

namespace std {

// Not every version of the library declares it here.
__attribute__((noreturn)) void __glibcxx_assert_fail(const char *file, int line, const char *function,
                                                     const char *condition) noexcept;

// File and line are the library's own. The names of its functions, with all that their templates were made with, would
// take half a kilobyte of the program.
void __glibcxx_assert_fail(const char *file, int line, const char *, const char *condition) noexcept
{
    fprintf(stderr, "%s:%d: %s does not hold\n", file, line, condition);
    abort();
}

} // namespace std
