// SPDX-License-Identifier: MIT
// The table of checks.
#include "tests/simulation/checks.h"

#include "tests/simulation/event_log.h"
#include "tests/simulation/timeline.h"

namespace sim {

extern const t_check ends_with_done;
extern const t_check clean_between_cycles;
extern const t_check notes_questions; // before those that read them
extern const t_check never_wrong;
extern const t_check never_stuck;
extern const t_check found;
extern const t_check answers;
extern const t_check polite;
extern const t_check state;
extern const t_check steps;

static const t_check *const CHECKS[] = {
    &notes_questions, &never_wrong, &never_stuck,          &steps,          &found, &answers,
    &polite,          &state,       &clean_between_cycles, &ends_with_done,
};

static const char *word(t_deed deed)
{
    switch (deed) {
    case t_deed::frame_sent:
        return "frame";
    case t_deed::command_started:
        return "command";
    case t_deed::command_ended:
        return "ended";
    case t_deed::role_moved:
        return "role";
    case t_deed::bus_replied:
        return "reply";
    case t_deed::bus_call_over:
        return "answer";
    case t_deed::notified:
        return "notify";
    case t_deed::file_written:
        return "file";
    case t_deed::log_line:
        return "log";
    case t_deed::life_ended:
        return "end";
    case t_deed::truth_changed:
        return "truth";
    case t_deed::request_served:
        return "served";
    case t_deed::command_refused:
        return "refused";
    case t_deed::way_taken:
        return "cycle";
    }
    return "?";
}

void saw(const t_seen &seen)
{
    log_deed(word(seen.deed), seen.text, seen.port, seen.number);
    if (event_log.tells && !event_log.is_raw)
        tell_deed(seen);
    for (const t_check *check : CHECKS)
        if (check->on_deed)
            check->on_deed(seen);
}

void look_after_event()
{
    for (const t_check *check : CHECKS)
        if (check->on_event)
            check->on_event();
}

void look_at_rest()
{
    for (const t_check *check : CHECKS)
        if (check->at_rest)
            check->at_rest();
}

void look_at_end()
{
    for (const t_check *check : CHECKS)
        if (check->at_end)
            check->at_end();
}

} // namespace sim
