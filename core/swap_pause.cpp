// SPDX-License-Identifier: MIT
#include "core/swap_pause.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>

#include "adapters/wan_switch.h"
#include "core/cycle.h"
#include "model/chronicle.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/uci_limits.h"

constexpr int SWAP_PAUSE_FIRST_S = REDETECT_AFTER_SWITCH_SECONDS;
constexpr uint8_t MOST_DOUBLINGS = 4; // more lengthen the pause no further
static_assert(SWAP_PAUSE_FIRST_S << MOST_DOUBLINGS >= SWAP_PAUSE_LONGEST_S);

static t_file_stamp stamp_of_network_package()
{
    char path[sizeof "/network" + UCI_PATH_SIZE];
    snprintf(path, sizeof path, "%s/network", UCI_CONFIG_DIR);
    struct stat file = {};
    if (stat(path, &file) != 0)
        return {};
    return {file.st_ino, file.st_size, file.st_mtim.tv_sec, file.st_mtim.tv_nsec};
}

static int doublings()
{
    return std::min<int>(engine.swap.failures + engine.swap.doubts, MOST_DOUBLINGS);
}

int swap_pause_s()
{
    return std::min(SWAP_PAUSE_FIRST_S << doublings(), SWAP_PAUSE_LONGEST_S);
}

static void double_pause(uint8_t &count)
{
    count = std::min<uint8_t>(count + 1, MOST_DOUBLINGS);
}

static void begin_with_first_pause()
{
    engine.swap.failures = engine.swap.doubts = 0;
}

int begin_swap(t_device *dev)
{
    if (doublings() && stamp_of_network_package() != engine.swap.network)
        begin_with_first_pause();
    engine.swap.dev = dev;
    engine.swap.is_new = true;
    engine.swap.failed = engine.swap.is_doubtful = false;
    return swap_pause_s();
}

static bool has_role(const t_device *dev)
{
    return port_model.wan_dev == dev && !port_model.role_is_away;
}

// Nothing is on trial any more, and the WAN port works: what failed before is over.
static void forget_failures()
{
    engine.swap.failures = 0;
    chronicle.counters.swaps_failed_in_a_row = 0;
}

void test_swap(bool wan_works)
{
    t_swap_trial &swap = engine.swap;
    if (!swap.dev) {
        if (wan_works)
            forget_failures();
        return;
    }
    if (wan_works && has_role(swap.dev)) { // maybe only later in the cycle that tests it
        swap.dev = nullptr;
        swap.failures = 0;
        note_confirmation(true);
    } else if (!swap.failed) {
        swap.failed = true;
        double_pause(swap.failures);
        note_confirmation(false);
    }
}

void put_next_test_off()
{
    t_swap_trial &swap = engine.swap;
    if (swap.dev && !swap.failed && !swap.is_doubtful)
        double_pause(swap.doubts);
    swap.is_doubtful = swap.dev != nullptr;
}

void forget_doubts()
{
    engine.swap.doubts = 0;
    engine.swap.is_doubtful = false;
}

static void leave_swap_untested()
{
    engine.swap.dev = nullptr;
    engine.swap.failed = engine.swap.is_doubtful = false;
}

void end_trial_at_rest()
{
    leave_swap_untested();
    forget_failures();
}

void drop_swap_of_moved_role()
{
    if (!has_role(engine.swap.dev)) // else it is the swap itself, later than its command was through
        leave_swap_untested();
}

void look_for_new_answers()
{
    for (const t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next)
        if (was_silent_before(node->dev))
            begin_swap_pauses_anew();
}

// Only a pause that is longer than the first one can be cut short.
static void watch_network_package()
{
    if (doublings())
        uloop_timeout_set(&engine.network_watch, SWAP_PAUSE_FIRST_S * MILLISECONDS_PER_SECOND);
}

void uloop_watch_network_package(uloop_timeout *)
{
    if (!engine.swap.pause_runs || !engine.init_wan_detect_all.pending)
        return;
    if (stamp_of_network_package() != engine.swap.network)
        begin_swap_pauses_anew();
    else
        watch_network_package();
}

void settle_swap()
{
    t_swap_trial &swap = engine.swap;
    if (swap.is_new) {
        swap.network = stamp_of_network_package(); // the swap may have written it
        swap.pause_runs = true;
        watch_network_package();
    } else if (swap.failed) {
        swap.dev = nullptr;
    }
    swap.is_new = false;
}

void cut_pause_to_first()
{
    if (engine.swap.pause_runs)
        bring_cycle_over_all_forward(SWAP_PAUSE_FIRST_S * MILLISECONDS_PER_SECOND);
}

void begin_swap_pauses_anew()
{
    begin_with_first_pause();
    cut_pause_to_first();
}
