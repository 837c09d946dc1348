// SPDX-License-Identifier: MIT
#include "core/verdict_line.h"

#include <bit>

#include "adapters/state_events.h"
#include "core/hints.h"
#include "model/chronicle_words.h"
#include "platform/log.h"

void tell_verdict(const t_device *winner)
{
    note_cycle_ends(winner);
    const t_cycle_note *cycle = newest_cycle();
    if (!cycle)
        return;
    constexpr uint32_t TENTH_MS = MILLISECONDS_PER_SECOND / 10;
    const uint32_t tenths = cycle->took_ms / TENTH_MS;
    LOG(Notice, "Verdict: %s by %s, %d asked, %u.%u s\n", winner ? winner->name : "none",
        decision_word(cycle->decision), std::popcount(cycle->asked), tenths / 10, tenths % 10);
    look_for_hints(winner);
    announce_verdict();
    announce_cycle(false);
}
