// SPDX-License-Identifier: MIT
// The process itself: its number, its second start, its end.
#include <cstdio>
#include <cstdlib>
#include <sys/prctl.h>
#include <unistd.h>

#include "tests/simulation/checks.h"
#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/outcome.h"
#include "tests/simulation/real.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/world.h"

namespace sim {

static t_outcome outcome_of_this_process;
t_outcome *outcome = &outcome_of_this_process;

void end_life(t_verdict verdict, const char *text)
{
    inside = false;
    outcome->verdict = verdict;
    snprintf(outcome->text, sizeof outcome->text, "%s", text);
    outcome->hash = event_log.hash;
    outcome->entries = event_log.entries;
    outcome->counts.doors = doors_passed;
    outcome->counts.virtual_us = now() - START_OF_CLOCK;
    outcome->counts.swaps = world.swaps;
    outcome->counts.cycles = world.cycles;
    outcome->counts.events = world.events_happened;
    if (verdict == t_verdict::failed)
        log_line("FAILED", "%s", text);
    __real__exit(verdict == t_verdict::passed ? 0 : 1);
}

// Of the address sanitizer, where there is one.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check(void);

static void look_for_lost_memory()
{
    inside = false;
    const bool is_lost = __lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check() != 0;
    inside = true;
    if (is_lost)
        fail("clean: memory is lost, as the sanitizer has told");
}

static void leave(int status)
{
    outcome->exit_status = status;
    look_for_lost_memory();
    saw({.deed = t_deed::life_ended, .number = status});
    look_at_end();
    end_life(t_verdict::passed, "");
}

} // namespace sim

using namespace sim;

// Neither returns, so none can be written as the other doors are.
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status);
extern "C" [[noreturn]] void __wrap__exit(int status);

extern "C" void __wrap_exit(int status)
{
    if (inside)
        leave(status);
    __real_exit(status);
}

extern "C" void __wrap__exit(int status)
{
    if (inside) {
        log_line("daemon", "ends at once");
        leave(status);
    }
    __real__exit(status);
}

// The second process is the one that is looked at; the first one would only pass signals on.
DOOR(pid_t, fork, (void), (), t_door::thread)
{
    return 0;
}

QUIET_DOOR(pid_t, getpid, (void), ())
{
    return DAEMON_PID;
}

extern "C" int __wrap_prctl(int option, ...);
extern "C" int __wrap_prctl(int, ...)
{
    return 0;
}
