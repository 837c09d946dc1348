// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

// What the code under test says is formatted, but nobody wants to read it. Only the fuzzer's own lines are shown.
constexpr char CLOSE_STANDARD_OUTPUTS[] = "-close_fd_mask=3";

int report_fd = STDERR_FILENO;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static std::vector<char *> arguments(*argv, *argv + *argc);
    static char option[sizeof CLOSE_STANDARD_OUTPUTS];
    std::copy_n(CLOSE_STANDARD_OUTPUTS, sizeof option, option);
    arguments.insert(arguments.begin() + 1, option);
    arguments.push_back(nullptr);
    *argc += 1;
    *argv = arguments.data();
    report_fd = dup(STDERR_FILENO);
    prepare();
    return 0;
}

void fail_requirement(const char *condition, const char *file, int line)
{
    dprintf(report_fd, "%s:%d: does not hold: %s\n", file, line, condition);
    abort();
}

uint8_t t_input::byte()
{
    if (left_.empty())
        return 0;
    const uint8_t value = left_.front();
    left_ = left_.subspan(1);
    return value;
}

uint16_t t_input::word()
{
    const unsigned high = byte();
    return static_cast<uint16_t>(high << 8 | byte());
}

t_octets t_input::block()
{
    const size_t wanted = word();
    const t_octets taken = left_.first(std::min(wanted, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
}

std::vector<std::string> split(std::string_view text, std::string_view separator, size_t count)
{
    std::vector<std::string> pieces;
    while (pieces.size() + 1 < count) {
        const size_t end = std::min(text.find(separator), text.size());
        pieces.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + separator.size(), text.size()));
    }
    pieces.emplace_back(text);
    return pieces;
}
