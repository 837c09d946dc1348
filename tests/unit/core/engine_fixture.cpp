// SPDX-License-Identifier: MIT
#include "tests/unit/core/engine_fixture.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/engine_life.h"
#include "core/proto_stage.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/port_config.h"
#include "model/protocol_config.h"
#include "model/tables.h"
#include "tests/support/router_config.h"

// When each timer is due on a clock that only tests move, and which was set first: on a busy machine as on an idle one.
struct t_due {
    int ms;
    unsigned turn;
    auto operator<=>(const t_due &) const = default;
};
static std::map<const uloop_timeout *, t_due> due;
static int now_ms;
static unsigned turns;

extern "C" int __real_uloop_timeout_set(uloop_timeout *timer, int delay_ms);
extern "C" int __wrap_uloop_timeout_set(uloop_timeout *timer, int delay_ms);
extern "C" int __wrap_uloop_timeout_set(uloop_timeout *timer, int delay_ms)
{
    due[timer] = {now_ms + delay_ms, turns++};
    return __real_uloop_timeout_set(timer, delay_ms);
}

void t_engine_test::SetUp()
{
    due.clear();
    now_ms = 0;
    ASSERT_TRUE(init_background());
    uloop_handle_sigchld = false;
    uloop_init();
    init_engine();
    fake_probes = {};
    fake_router = {};
    std::filesystem::remove(WAN_RESULT_FILE);
    std::filesystem::remove(PROTO_RESULT_FILE);
    load();
}

void t_engine_test::TearDown()
{
    EXPECT_TRUE(stop_background_threads());
    log.reset();
    cancel_all_timers();
    release_engine();
    engine = {};
    port_model = {};
    uloop_done();
    release_background();
    release_wishes();
}

void t_engine_test::write_router_config(const std::string &wan_type, const std::string &priority,
                                        const std::string &pool)
{
    const t_router_config config = {.wan_type = wan_type, .priority = priority, .pool = pool};
    write_config("network", config.network());
    write_config("protocol", config.protocol());
    write_config("sysmode", "config sysmode 'sysmode'\n\toption mode 'router'\n");
    write_switch_config(5, 0);
}

void t_engine_test::load(const std::string &wan_type, const std::string &priority, const std::string &pool)
{
    release_port_model(&port_model);
    port_model = {};
    write_router_config(wan_type, priority, pool);
    init_all_protocols(&port_model);
    init_all_eth_device(&port_model);
    init_fake_wan_device(&port_model);
    port_model.enable = 1;
    port_model.router_mode = 1;
    update_wan_device(&port_model);
    update_wan_ipv4_protocol(&port_model);
    for (int i = 0; i < 5; i++)
        fake_router.links["eth" + std::to_string(i)] = false;
    log.reset();
    log = std::make_unique<t_log_capture>();
}

void t_engine_test::set_connection(const std::string &type, const std::string &protocol_options)
{
    const t_router_config config = {.wan_type = type, .protocol_sections = protocol_options};
    write_config("network", config.network());
    write_config("protocol", config.protocol());
    update_wan_ipv4_protocol(&port_model);
}

t_device *t_engine_test::dev(const std::string &name)
{
    return find_device(port_model.dev_hashmap_head, name.c_str());
}

t_protocol *t_engine_test::protocol(const std::string &name)
{
    return find_protocol(port_model.proto_hashmap_head, name.c_str());
}

void t_engine_test::plug(std::initializer_list<const char *> ports)
{
    for (const char *port : ports) {
        fake_router.links[port] = true;
        dev(port)->link_active = 1;
    }
}

void t_engine_test::unplug(std::initializer_list<const char *> ports)
{
    for (const char *port : ports) {
        fake_router.links[port] = false;
        dev(port)->link_active = 0;
    }
}

void t_engine_test::add_ban_that_is_over(const char *port)
{
    constexpr int SECONDS = 100;
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port, SECONDS);
    port_model.banned_list.find(dev(port))->aging_time = {};
}

int t_engine_test::armed(uloop_timeout &timer)
{
    if (!timer.pending)
        return NOT_ARMED;
    constexpr int STEP_MS = 100; // what is left of a flapping port's wait is taken from the clock
    return std::max(0, (due.at(&timer).ms - now_ms + STEP_MS - 1) / STEP_MS * STEP_MS);
}

void t_engine_test::fire(uloop_timeout &timer)
{
    ASSERT_TRUE(timer.pending);
    uloop_timeout_cancel(&timer);
    timer.cb(&timer);
}

uloop_timeout *t_engine_test::next_timer()
{
    uloop_timeout *next = nullptr;
    for (uloop_timeout *timer : ENGINE_TIMERS)
        if (timer->pending && (!next || due.at(timer) < due.at(next)))
            next = timer;
    return next;
}

int t_engine_test::passed_ms()
{
    return now_ms;
}

void t_engine_test::fire_after_its_time(uloop_timeout &next)
{
    const int ms = armed(next);
    now_ms += ms;
    if (while_time_passes)
        while_time_passes(ms);
    fire(next);
}

void t_engine_test::run_until_end()
{
    constexpr int MAX_STEPS = 200;
    for (int step = 0; step < MAX_STEPS; step++) {
        uloop_timeout *next = next_timer();
        if (!next || next == &engine.end)
            return;
        fire_after_its_time(*next);
    }
    FAIL() << "the engine never came to an end";
}

std::string t_engine_test::candidates()
{
    std::string names;
    for (t_device_list *node = engine.possible_wan_dev_list.head.next; node; node = node->next)
        names += (names.empty() ? "" : " ") + std::string(node->dev->name);
    return names;
}

void t_engine_test::be_in(t_cycle_state state)
{
    engine.state = state;
    engine.detecting = state != t_cycle_state::resting;
    port_model.wan_detect_running = state >= t_cycle_state::looking;
}
