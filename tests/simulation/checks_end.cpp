// SPDX-License-Identifier: MIT
// How a life ends: asked to, the daemon tidies up and is gone within five seconds, with status 0 and nothing left over.
#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/commands.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/packets.h"
#include "tests/simulation/router.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time LONGEST_END = 5 * SECOND;
constexpr t_time LOOP_HAS = 4 * SECOND; // to come by; then a timer ends the process

constexpr int GIVES_UP = 1, HAS_NO_TABLE = -1; // the statuses of a start, or a table, that cannot go on

static int exit_status = 0;
static bool is_status_told = false;
static bool model_may_fail, threads_may_fail; // what start-up needs: at first all it reads, and the bus; then threads

static bool descriptors_are_few()
{
    static const unsigned usual = t_world{}.descriptor_limit;
    return world.descriptor_limit < usual;
}

// A network manager, commands or a disk that are ill keep nobody from starting.
static void note_start()
{
    if (loop_began() != NEVER)
        return;
    if (world.model_is_read)
        threads_may_fail = threads_may_fail || threads_are_refused;
    else
        model_may_fail = model_may_fail || memory_was_refused() || descriptors_are_few() || !world.health.bus ||
                         !configuration_is_well();
}

static void note_status(const t_seen &seen)
{
    note_start();
    if (seen.deed != t_deed::life_ended)
        return;
    exit_status = static_cast<int>(seen.number);
    is_status_told = true;
}

static bool start_may_end_with(int status)
{
    if (loop_began() != NEVER || world.told_to_end != NEVER)
        return false;
    return status == GIVES_UP && (world.model_is_read ? threads_may_fail : model_may_fail);
}

static void look_at_what_is_left()
{
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

// A table of ports or protocols is read at the start, those of reserved ports in each pass.
static bool table_may_have_ended_it()
{
    return exit_status == HAS_NO_TABLE && memory_was_refused(now());
}

static void judge_end()
{
    if (!is_status_told)
        fail("ends with done: nobody has told the status");
    if (table_may_have_ended_it())
        return; // and leaves the tidying to the kernel
    const bool gave_up = start_may_end_with(exit_status);
    if (world.told_to_end == NEVER && !gave_up)
        fail("ends with done: the daemon ended by itself, with status %d", exit_status);
    if (!gave_up && now() - world.told_to_end > LONGEST_END)
        fail("ends with done: the end took %ld ms", static_cast<long>((now() - world.told_to_end) / MILLISECOND));
    if (!gave_up && exit_status != 0)
        fail("ends with done: status %d", exit_status);
    if (!gave_up && now() - world.told_to_end >= LOOP_HAS && loop_may_still_wait())
        return; // in one of the long waits; the kernel tidies up
    look_at_what_is_left();
}

extern const t_check ends_with_done;
const t_check ends_with_done = {
    .name = "ends with done", .on_deed = note_status, .on_event = note_start, .at_end = judge_end};

} // namespace sim
