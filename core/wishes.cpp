// SPDX-License-Identifier: MIT
#include "core/wishes.h"

#include <atomic>

#include "core/background.h"

constexpr int NO_WISH = -1;

static t_wish_servers serve;
static std::atomic<int> wished_pass_ms = NO_WISH;
static std::atomic<bool> wished_role_look;
static std::atomic<bool> wished_fresh_retries;

void bind_wish_servers(const t_wish_servers &servers)
{
    serve = servers;
}

void wish_for_pass(int delay_ms)
{
    if (on_loop_thread()) {
        forget_wished_pass();
        return serve.pass(delay_ms);
    }
    wished_pass_ms = delay_ms;
    wake_loop();
}

void wish_for_role_look()
{
    if (on_loop_thread())
        return serve.role_look();
    wished_role_look = true;
    wake_loop();
}

void wish_for_fresh_retries()
{
    if (on_loop_thread())
        return serve.fresh_retries();
    wished_fresh_retries = true;
    wake_loop();
}

void forget_wished_pass()
{
    wished_pass_ms = NO_WISH;
}

void serve_wishes()
{
    if (wished_fresh_retries.exchange(false))
        serve.fresh_retries();
    const int delay_ms = wished_pass_ms.exchange(NO_WISH);
    if (delay_ms != NO_WISH)
        serve.pass(delay_ms);
    if (wished_role_look.exchange(false))
        serve.role_look();
}

void forget_wishes()
{
    forget_wished_pass();
    wished_role_look = false;
    wished_fresh_retries = false;
}
