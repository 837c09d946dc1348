// SPDX-License-Identifier: MIT
#include "core/wishes.h"

#include "core/background.h"
#include "core/engine.h"
#include "core/link_change.h"
#include "core/look_again.h"
#include "core/wan_role.h"
#include "model/port_model.h"

constexpr int NO_REQUEST = -1;

static t_shared<int> wished_start_ms = {NO_REQUEST};
static t_flag wished_role_look;
static t_flag wished_fresh_retries;

// True when it was wished for since somebody asked last.
static bool take(t_flag &wish)
{
    return __atomic_exchange_n(&wish.value, uint8_t{0}, __ATOMIC_ACQ_REL) != 0;
}

void request_start_wan_detect(int delay_ms)
{
    if (on_loop_thread()) {
        forget_requested_start();
        uloop_timeout_set(&engine.start_wan_detect, delay_ms);
        return;
    }
    wished_start_ms = delay_ms;
    wake_loop();
}

void forget_requested_start()
{
    wished_start_ms = NO_REQUEST;
}

void request_role_look()
{
    if (on_loop_thread())
        return follow_moved_role();
    wished_role_look = 1;
    wake_loop();
}

void request_fresh_retries()
{
    if (on_loop_thread())
        return begin_retries_anew();
    wished_fresh_retries = 1;
    wake_loop();
}

// A cycle may have ended between the wish and now.
static void serve_start()
{
    int delay_ms = __atomic_exchange_n(&wished_start_ms.value, NO_REQUEST, __ATOMIC_ACQ_REL);
    if (delay_ms == NO_REQUEST)
        return;
    if (engine.detecting || port_model.wan_detect_running)
        uloop_timeout_set(&engine.start_wan_detect, delay_ms);
    else
        reopen_after_wan_loss();
}

void serve_wishes()
{
    if (take(wished_fresh_retries))
        begin_retries_anew();
    serve_start();
    if (take(wished_role_look))
        follow_moved_role();
}

void forget_wishes()
{
    forget_requested_start();
    wished_role_look = 0;
    wished_fresh_retries = 0;
}
