// SPDX-License-Identifier: MIT
#include "tests/simulation/tally.h"

#include <algorithm>

#include "core/cycle_ways.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/life.h"

namespace sim {

static_assert(sizeof(t_counts) % sizeof(uint64_t) == 0);

void count_event(const std::string &kind)
{
    const auto kinds = event_kinds();
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const t_event_kind *one) { return kind == one->name; });
    const auto number = static_cast<size_t>(found - kinds.begin());
    if (number < MOST_EVENT_KINDS)
        outcome->counts.events_of_kind[number]++;
}

static void add_counts(t_counts *sum, const t_counts &more)
{
    auto *to = reinterpret_cast<uint64_t *>(sum);
    const auto *from = reinterpret_cast<const uint64_t *>(&more);
    for (size_t i = 0; i < sizeof(t_counts) / sizeof(uint64_t); i++)
        to[i] += from[i];
}

void add_outcome(t_tally *tally, const t_outcome &ended)
{
    tally->lives++;
    tally->failed += ended.verdict != t_verdict::passed;
    add_counts(&tally->counts, ended.counts);
}

void add_tally(t_tally *sum, const t_tally &more)
{
    sum->lives += more.lives;
    sum->failed += more.failed;
    add_counts(&sum->counts, more.counts);
}

static unsigned long long number(uint64_t value)
{
    return value;
}

static void tell_events(const t_counts &counts)
{
    say("%llu events:", number(counts.events));
    size_t place = 0;
    for (const t_event_kind *kind : event_kinds())
        say(" %s %llu", kind->name, number(counts.events_of_kind[place++]));
    say("\n");
}

// The list of candidates is what leads to the question by DNS, and until it is asked, within the same moment, no step
// takes a port out of it. The way is for a list that is empty all the same.
static bool cannot_be_taken(const t_cycle_way &way)
{
    return way.from == t_cycle_state::asking_dns && way.to == t_cycle_state::looking;
}

static const char *remark_on(const t_cycle_way &way, uint64_t taken)
{
    if (taken > 0)
        return "";
    return cannot_be_taken(way) ? ": no life can" : ": NO LIFE TOOK IT";
}

static int tell_ways(const t_counts &counts)
{
    int untaken = 0;
    say("ways of a cycle:\n");
    for (const t_cycle_way &way : cycle_ways()) {
        const auto from = static_cast<size_t>(way.from), to = static_cast<size_t>(way.to);
        const uint64_t taken = counts.ways[from][to];
        say("%12llu  %s -> %s%s\n", number(taken), name_of_state(from), name_of_state(to), remark_on(way, taken));
        untaken += taken == 0 && !cannot_be_taken(way);
    }
    return untaken;
}

int tell_tally(const t_tally &tally, double seconds, double processor_seconds)
{
    const t_counts &counts = tally.counts;
    tell_events(counts);
    say("%llu cycles, %llu swaps by the daemon, %llu doors, %.1f days of the daemon\n", number(counts.cycles),
        number(counts.swaps), number(counts.doors), static_cast<double>(counts.virtual_us) / 86'400e6);
    const int untaken = tell_ways(counts);
    say("%llu lives, %llu failed, in %.0f s; %.1f lives of 10 minutes per second of a processor\n", number(tally.lives),
        number(tally.failed), seconds, static_cast<double>(counts.virtual_us) / 600e6 / processor_seconds);
    return untaken;
}

} // namespace sim
