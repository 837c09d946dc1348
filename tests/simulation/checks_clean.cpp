// SPDX-License-Identifier: MIT
// Clean: between two cycles the daemon comes back to what it had between the first two: descriptors of each kind,
// threads, timers, memory. Scans and requests take more for a moment, so the least of a pause between cycles counts,
// and pipes while no command runs.
#include <algorithm>
#include <cstring>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/commands.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time LONG_ENOUGH = 30 * SECOND; // for every request that came in meanwhile to be over
constexpr int LOOKED_AT = 7; // every so manieth moment of rest: enough, and in step with nothing that repeats
constexpr int64_t MADE_WHEN_NEEDED = 4;   // blocks of memory that the first request and reply leave for the next
constexpr int64_t TABLES_OF_RESERVED = 4; // two of two blocks, which stay from the first look at reserved ports on
constexpr int MOST_THREADS_EVER = 161;    // of the daemon, its first one among them
constexpr int64_t RESTING = 0;            // the number of that state
constexpr int64_t UNKNOWN = INT64_MAX;

namespace {

enum t_thing {
    packet_sockets,
    pipes,
    ends_of_commands,
    other_sockets,
    files_open,
    others,
    threads_left,
    timers_set,
    blocks,
    THINGS
};
const char *const NAMES[THINGS] = {"packet sockets",    "pipes",   "ends of commands", "sockets",         "files",
                                   "other descriptors", "threads", "timers",           "blocks of memory"};

struct t_use {
    int64_t of[THINGS];
};

t_use nothing_known()
{
    t_use use;
    std::fill(std::begin(use.of), std::end(use.of), UNKNOWN);
    return use;
}

t_use first = nothing_known(), least;
bool pauses = false;
bool was_reserved[64];
t_time since = 0;

t_thing thing_of(const char *kind)
{
    static const struct {
        const char *kind;
        t_thing thing;
    } KINDS[] = {{"packet socket", packet_sockets},
                 {"pipe", pipes},
                 {"pidfd", ends_of_commands},
                 {"socket", other_sockets},
                 {"file", files_open}};
    for (const auto &one : KINDS)
        if (strcmp(kind, one.kind) == 0)
            return one.thing;
    return others;
}

t_use use_now()
{
    t_use use = {};
    int left = count_of_descriptors();
    for (int fd = 3; left > 0; fd++)
        if (const char *kind = kind_of_descriptor(fd)) {
            use.of[thing_of(kind)]++;
            left--;
        }
    use.of[threads_left] = count_of_threads();
    use.of[timers_set] = count_of_timers();
    use.of[blocks] = memory_in_use().blocks;
    return use;
}

// Kept of each port: that it is or was reserved, that it is banned, and until the next look that it answered.
int64_t entries_of_lists()
{
    int64_t entries = std::count(std::begin(was_reserved), std::end(was_reserved), true);
    entries += entries > 0 ? TABLES_OF_RESERVED : 0;
    for (const t_port &port : world.ports)
        entries += (port.answers > 0) + port.truth.may_be_banned;
    return entries;
}

// A call may wait for a command as long as a pause lasts.
t_time longest_call_of_pause()
{
    t_time longest = 0;
    for (const t_request &request : world.requests)
        if (request.served != NEVER)
            longest = std::max(longest, std::min(request.over, now()) - std::max(request.served, since));
    return longest;
}

void judge_pause()
{
    if (!pauses || now() - since - longest_call_of_pause() < LONG_ENOUGH)
        return;
    for (int i = 0; i < THINGS; i++)
        if (first.of[i] == UNKNOWN)
            first.of[i] = least.of[i];
    log_line("clean", "%ld blocks, %ld threads, %ld others", least.of[blocks], least.of[threads_left],
             least.of[others]);
    for (int i = 0; i < THINGS; i++)
        if (least.of[i] != UNKNOWN &&
            least.of[i] > first.of[i] + (i == blocks ? MADE_WHEN_NEEDED + entries_of_lists() : 0))
            fail("clean: %ld %s are left after a cycle, %ld were before", static_cast<long>(least.of[i]), NAMES[i],
                 static_cast<long>(first.of[i]));
}

void begin_pause()
{
    pauses = true;
    since = now();
    least = nothing_known();
}

void note_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::truth_changed && is_port(seen.port))
        was_reserved[seen.port % static_cast<int>(std::size(was_reserved))] |= port_at(seen.port).truth.is_reserved;
    if (seen.deed != t_deed::way_taken)
        return;
    const auto states = static_cast<int64_t>(STATES);
    if (seen.number / states == RESTING)
        judge_pause();
    pauses = false;
    if (seen.number % states == RESTING)
        begin_pause();
}

void look()
{
    static int moments = 0;
    if (count_of_threads() > MOST_THREADS_EVER)
        fail("clean: %d threads at once", count_of_threads());
    if (!pauses || ++moments % LOOKED_AT != 0)
        return;
    t_use use = use_now();
    if (count_of_commands() > 0) // one that hangs may last for the whole pause, or the next one follows it at once
        use.of[pipes] = use.of[ends_of_commands] = UNKNOWN;
    if (!daemon_is_offered()) // a socket may wait for the greeting, and the connection is away
        use.of[other_sockets] = use.of[others] = UNKNOWN;
    for (int i = 0; i < THINGS; i++)
        least.of[i] = std::min(least.of[i], use.of[i]);
}

} // namespace

extern const t_check clean_between_cycles;
const t_check clean_between_cycles = {
    .name = "clean between cycles", .on_deed = note_deed, .at_rest = look, .at_end = judge_pause};

} // namespace sim
