// SPDX-License-Identifier: MIT
#include "tests/simulation/changed.h"

#include <string>
#include <sys/mman.h>

#include "tests/simulation/event_log.h"

namespace sim {

constexpr int MOST_CHANGES = 4096;

int change_in_force = 0;
bool tells_reached = false;

// Shared with the processes of the lives.
static bool *reached()
{
    static void *const memory = mmap(nullptr, MOST_CHANGES, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return static_cast<bool *>(memory);
}

void tell_reached(uint64_t seed, uint64_t hash)
{
    std::string numbers;
    for (int i = 0; i < MOST_CHANGES; i++)
        if (reached()[i]) {
            numbers += " " + std::to_string(i);
            reached()[i] = false;
        }
    say("seed %llu with hash %016llx reached%s\n", static_cast<unsigned long long>(seed),
        static_cast<unsigned long long>(hash), numbers.c_str());
}

} // namespace sim

bool is_changed(int number)
{
    return number == sim::change_in_force;
}

void reach_change(int number)
{
    sim::reached()[number] = true;
}
