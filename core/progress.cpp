// SPDX-License-Identifier: MIT
#include "core/progress.h"

#include <algorithm>

#include "core/engine.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "platform/text.h"

namespace {

// By its place in the record, for a table of pointers has to be set right at every start.
struct t_awaited {
    uloop_timeout t_wan_detect_engine::*timer;
    char what[10];
};

constexpr t_awaited AWAITED[] = {
    {&t_wan_detect_engine::start_wan_detect, "pass"},
    {&t_wan_detect_engine::init_wan_detect_all, "cycle"},
    {&t_wan_detect_engine::look_again, "look"},
    {&t_wan_detect_engine::proto_detect_start, "answers"},
    {&t_wan_detect_engine::proto_detect_end, "answers"},
    {&t_wan_detect_engine::using_arp, "answers"},
    {&t_wan_detect_engine::using_dns, "answers"},
    {&t_wan_detect_engine::using_proto_detect, "judgement"},
    {&t_wan_detect_engine::end, "end"},
};

} // namespace

// In the order of the values.
constexpr char STATES[] = "resting\0"
                          "waiting\0"
                          "looking\0"
                          "probing\0"
                          "judging\0"
                          "asking_arp\0"
                          "asking_dns\0"
                          "ending\0";
static_assert(count_of_texts(STATES) == static_cast<size_t>(t_cycle_state::ending) + 1);

// With nobody left a pass is only a poll for ports that came up: what is waited for is the next look.
static bool only_polls()
{
    return engine.state == t_cycle_state::looking && engine.look_again.pending &&
           engine.possible_wan_dev_list.count == 0;
}

// The timer that is due first.
static void tell_next(t_progress *progress)
{
    progress->next = nullptr;
    progress->next_ms = 0;
    for (const auto &[place, what] : AWAITED) {
        uloop_timeout &timer = engine.*place;
        const int left_ms = static_cast<int>(std::max<int64_t>(uloop_timeout_remaining64(&timer), 0));
        if (!timer.pending || (&timer == &engine.start_wan_detect && only_polls()))
            continue;
        if (progress->next && left_ms >= progress->next_ms)
            continue;
        progress->next = what;
        progress->next_ms = left_ms;
    }
}

void tell_progress(t_progress *progress)
{
    progress->state = text_at(STATES, static_cast<int>(engine.state.load()));
    tell_next(progress);
    progress->retry_pause_s = retry_pause_s();
    progress->swap_pause_s = swap_pause_s();
    progress->starting = !engine.heartbeat.pending; // it is the first timer that is armed for the loop
}
