// SPDX-License-Identifier: MIT
#include "core/retries.h"

#include <algorithm>
#include <utility>

#include "core/engine.h"
#include "model/config_text.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/uci_access.h"

constexpr int NO_RETRIES = 0;

// As configured; null for nothing.
static int first_pause_of(const char *value)
{
    int seconds = RETRY_FIRST_S;
    if (value && !parse_decimal(value, NO_RETRIES, NO_RETRIES, &seconds))
        parse_decimal(value, RETRY_SHORTEST_FIRST_S, RETRY_LONGEST_FIRST_S, &seconds);
    return seconds;
}

void read_first_pause()
{
    t_uci_package network("network");
    if (!network.package)
        return; // what was read before still holds
    uci_section *section = find_config_section(network.package, "auto_wan_detect");
    const uci_option *option = section ? find_config_option(section, "retry_interval") : nullptr;
    engine.retry.first_s = first_pause_of(option ? option_text(option) : nullptr);
}

static int next_pause_s()
{
    return engine.retry.first_s == NO_RETRIES ? NO_RETRIES : std::max(engine.retry.next_s, engine.retry.first_s);
}

static int read_next_pause_s()
{
    read_first_pause();
    return next_pause_s();
}

static int pause_after(int pause_s)
{
    return std::min(2 * pause_s, std::max(engine.retry.first_s, RETRY_LONGEST_S));
}

static void plan(int pause_s, int delay_ms)
{
    engine.retry.armed_s = pause_s;
    engine.retry.due_ms = monotonic_ms() + static_cast<unsigned>(delay_ms);
}

static void arm(int pause_s, int delay_ms)
{
    plan(pause_s, delay_ms);
    uloop_timeout_set(&engine.look_again, delay_ms);
}

static int milliseconds_until_due()
{
    return static_cast<int>(engine.retry.due_ms - monotonic_ms());
}

// What is left of a pause that a stage cut short, or a whole one.
static int delay_of(int pause_s, bool was_cut)
{
    const int pause_ms = pause_s * MILLISECONDS_PER_SECOND;
    return was_cut ? std::clamp(milliseconds_until_due(), 0, pause_ms) : pause_ms;
}

void look_again_later()
{
    const bool was_cut = std::exchange(engine.retry.runs_on, t_running_on::none) == t_running_on::cut;
    if (engine.look_again.pending || !port_model.enable || !port_model.router_mode)
        return;
    const int pause_s = read_next_pause_s();
    if (pause_s == NO_RETRIES)
        return;
    const int delay_ms = delay_of(pause_s, was_cut);
    LOG(Info, "No port left to ask, looking at all ports again in %ds!\n",
        (delay_ms + MILLISECONDS_PER_SECOND - 1) / MILLISECONDS_PER_SECOND);
    arm(pause_s, delay_ms);
}

// A port whose link comes and goes all the time begins stages of its own, which must not put the look off for ever.
void cut_pause_short()
{
    if (engine.look_again.pending)
        engine.retry.runs_on = t_running_on::cut;
    uloop_timeout_cancel(&engine.look_again);
}

void stop_looking_again()
{
    engine.retry.runs_on = t_running_on::none;
    uloop_timeout_cancel(&engine.look_again);
}

// Never later than it is due already: who changes all the time does not put the look off for ever.
void begin_retries_anew()
{
    engine.retry.next_s = 0; // a look that comes reckons it anew
    const int delay_ms = std::min(milliseconds_until_due(), engine.retry.first_s * MILLISECONDS_PER_SECOND);
    if (engine.look_again.pending)
        arm(engine.retry.first_s, std::max(delay_ms, 0));
    else if (engine.retry.runs_on != t_running_on::none)
        plan(engine.retry.first_s, delay_ms);
}

int retry_pause_s()
{
    return engine.look_again.pending ? engine.retry.armed_s : next_pause_s();
}

bool asks_in_own_name()
{
    return engine.retry.looks % 2 != 0;
}

static void forget_who_joined()
{
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        dev->has_joined = false;
}

// Since this was asked last; who joined and may not be asked has left the list by now.
static bool somebody_joined()
{
    bool found = false;
    for (const t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next)
        found = found || node->dev->has_joined;
    forget_who_joined();
    return found;
}

void count_looks_anew()
{
    if (!engine.retry.opened_cycle)
        engine.retry.looks = 0;
    engine.retry.has_searched = false;
    engine.retry.opened_cycle = false;
    engine.retry.runs_on = t_running_on::none;
    engine.silence_is_expected = true;
    forget_who_joined();
}

void note_search()
{
    engine.retry.has_searched = true;
}

void begin_look(bool opens_cycle)
{
    engine.retry.next_s = pause_after(engine.retry.armed_s); // a pause that was cut short does not count
    engine.retry.runs_on = t_running_on::none;
    if (std::exchange(engine.retry.has_searched, false))
        engine.retry.looks++;
    engine.retry.opened_cycle = opens_cycle;
    engine.silence_is_expected = true;
}

static void begin_pause_while_asking()
{
    if (engine.retry.runs_on != t_running_on::none || engine.look_again.pending)
        return;
    const int pause_s = read_next_pause_s();
    if (pause_s == NO_RETRIES)
        return;
    plan(pause_s, pause_s * MILLISECONDS_PER_SECOND);
    engine.retry.runs_on = t_running_on::begun;
}

// The look whose pause is over by now although ports are asked still. False while none is due.
static bool begin_overdue_look()
{
    if (engine.retry.runs_on == t_running_on::none || milliseconds_until_due() > 0 || !port_model.router_mode)
        return false;
    engine.retry.runs_on = t_running_on::none;
    if (read_next_pause_s() == NO_RETRIES)
        return false;
    LOG(Info, "There is always a port left to ask, looking at all ports now!\n");
    begin_look(false);
    return true;
}

bool begin_look_in_passing()
{
    if (!somebody_joined())
        return false;
    if (begin_overdue_look())
        return true;
    begin_pause_while_asking();
    return false;
}
