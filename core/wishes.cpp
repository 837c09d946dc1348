// SPDX-License-Identifier: MIT
#include "core/wishes.h"

#include "core/background.h"
#include "platform/shared.h"

constexpr int NO_REQUEST = -1;

static t_wish_servers serve;
static t_shared<int> wished_pass_ms = {NO_REQUEST};
static t_flag wished_role_look;
static t_flag wished_fresh_retries;

// True when it was wished for since somebody asked last.
static bool take(t_flag &wish)
{
    return __atomic_exchange_n(&wish.value, uint8_t{0}, __ATOMIC_ACQ_REL) != 0;
}

void bind_wish_servers(const t_wish_servers &servers)
{
    serve = servers;
}

void request_pass(int delay_ms)
{
    if (on_loop_thread()) {
        forget_requested_pass();
        return serve.pass(delay_ms);
    }
    wished_pass_ms = delay_ms;
    wake_loop();
}

void request_role_look()
{
    if (on_loop_thread())
        return serve.role_look();
    wished_role_look = 1;
    wake_loop();
}

void request_fresh_retries()
{
    if (on_loop_thread())
        return serve.fresh_retries();
    wished_fresh_retries = 1;
    wake_loop();
}

void forget_requested_pass()
{
    wished_pass_ms = NO_REQUEST;
}

void serve_wishes()
{
    if (take(wished_fresh_retries))
        serve.fresh_retries();
    const int delay_ms = __atomic_exchange_n(&wished_pass_ms.value, NO_REQUEST, __ATOMIC_ACQ_REL);
    if (delay_ms != NO_REQUEST)
        serve.pass(delay_ms);
    if (take(wished_role_look))
        serve.role_look();
}

void forget_wishes()
{
    forget_requested_pass();
    wished_role_look = 0;
    wished_fresh_retries = 0;
}
