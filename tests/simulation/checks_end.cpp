// SPDX-License-Identifier: MIT
// How a life ends: asked to, the daemon tidies up and is gone within five seconds, with status 0 and nothing left over.
#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/commands.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/packets.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time LONGEST_END = 5 * SECOND;
constexpr t_time LOOP_HAS = 4 * SECOND; // to come by; then a timer ends the process

static int exit_status = -1;
static bool is_past_start, was_unwell; // in the start

static void note_status(const t_seen &seen)
{
    is_past_start = loop_began() != NEVER;
    was_unwell = was_unwell || (!is_past_start && !world.health.all());
    if (seen.deed == t_deed::life_ended)
        exit_status = static_cast<int>(seen.number);
}

static void look_at_what_is_left()
{
    if (world.told_to_end == NEVER && (exit_status == 1 || exit_status == -1) && was_unwell && !is_past_start)
        return; // a start without memory, configuration or a bus gives up, and leaves the tidying to the kernel
    if (world.told_to_end == NEVER)
        fail("ends with done: the daemon ended by itself, with status %d", exit_status);
    if (now() - world.told_to_end > LONGEST_END)
        fail("ends with done: the end took %ld ms", static_cast<long>((now() - world.told_to_end) / MILLISECOND));
    if (exit_status != 0)
        fail("ends with done: status %d", exit_status);
    if (now() - world.told_to_end >= LOOP_HAS && loop_may_still_wait())
        return; // in one of the long waits; the kernel tidies up
    if (count_of_threads() != 1)
        fail("clean: %d threads are left", count_of_threads());
    if (const int left = count_of_descriptors()) {
        const char *kind = nullptr;
        for (int fd = 3; !kind; fd++)
            kind = kind_of_descriptor(fd);
        fail("clean: %d descriptors are left, the first is a %s", left, kind);
    }
    if (count_of_timers() || count_of_commands())
        fail("clean: %d timers and %d commands are left", count_of_timers(), count_of_commands());
}

extern const t_check ends_with_done;
const t_check ends_with_done = {.name = "ends with done", .on_deed = note_status, .at_end = look_at_what_is_left};

} // namespace sim
