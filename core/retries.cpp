// SPDX-License-Identifier: MIT
#include "core/retries.h"

#include <algorithm>

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

static int first_pause_s()
{
    char value[UCI_VALUE_SIZE] = "";
    return first_pause_of(_uci_get_value("network.auto_wan_detect.retry_interval", value) == OK ? value : nullptr);
}

void read_first_pause()
{
    t_uci_package network("network");
    uci_section *section = network.package ? find_config_section(network.package, "auto_wan_detect") : nullptr;
    const uci_option *option = section ? find_config_option(section, "retry_interval") : nullptr;
    engine.retry.first_s = first_pause_of(option ? option_text(option) : nullptr);
}

static int pause_after(int pause_s)
{
    return std::min(2 * pause_s, std::max(engine.retry.first_s, RETRY_LONGEST_S));
}

static void arm(int pause_s)
{
    engine.retry.armed_s = pause_s;
    uloop_timeout_set(&engine.look_again, pause_s * MILLISECONDS_PER_SECOND);
}

void look_again_later()
{
    if (engine.look_again.pending || !port_model.enable || !port_model.router_mode)
        return;
    engine.retry.first_s = first_pause_s();
    if (engine.retry.first_s == NO_RETRIES)
        return;
    const int pause_s = std::max(engine.retry.next_s, engine.retry.first_s);
    LOG(Info, "No port left to ask, looking at all ports again in %ds!\n", pause_s);
    arm(pause_s);
}

void stop_looking_again()
{
    uloop_timeout_cancel(&engine.look_again);
}

// A pause that is already a first one runs on: who changes all the time does not put the look off for ever.
void begin_retries_anew()
{
    engine.retry.next_s = 0; // a look that comes reckons it anew
    if (engine.look_again.pending && engine.retry.armed_s > engine.retry.first_s)
        arm(engine.retry.first_s);
}

int retry_pause_s()
{
    if (engine.look_again.pending)
        return engine.retry.armed_s;
    return engine.retry.first_s == NO_RETRIES ? NO_RETRIES : std::max(engine.retry.next_s, engine.retry.first_s);
}

bool asks_in_own_name()
{
    return engine.retry.round % 2 != 0;
}

void begin_rounds()
{
    if (!engine.retry.opened_cycle)
        engine.retry.round = 0;
    engine.retry.opened_cycle = false;
    engine.silence_is_expected = true;
}

void begin_look(bool opens_cycle)
{
    engine.retry.next_s = pause_after(engine.retry.armed_s); // a pause that was cut short does not count
    engine.retry.round++;
    engine.retry.opened_cycle = opens_cycle;
    engine.silence_is_expected = true;
}
