// SPDX-License-Identifier: MIT
#include "core/engine_fixture.h"

#include <algorithm>
#include <filesystem>

#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/link_change.h"
#include "core/proto_stage.h"
#include "core/timers.h"
#include "core/wishes.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/port_config.h"
#include "model/protocol_config.h"
#include "model/tables.h"
#include "platform/adapters/link_status.h"

static std::string network_config(const std::string &wan_type, const std::string &priority, const std::string &pool)
{
    std::string text;
    for (int i = 0; i < 5; i++)
        text += "config device\n\toption name 'eth" + std::to_string(i) + "'\n";
    text += "config auto_wan 'auto_wan_detect'\n\toption enable 'on'\n\toption fake_wan_port '-1'\n";
    text += "\toption wan_port_priority '" + priority + "'\n\toption wan_port_pool '" + pool + "'\n";
    text += "\toption proto_priority 'pppoe dhcp static'\n\toption wan_combo_first_priority 'phy'\n";
    return text + "config interface 'wan'\n\toption proto '" + wan_type + "'\n";
}

static std::string protocol_config(const std::string &options)
{
    std::string text = "config family 'ipv4'\n";
    for (const char *name : {"dhcp", "pppoe", "static", "l2tp", "pptp", "ocn"})
        text += std::string("\tlist protos '") + name + "'\n";
    return text + "config family 'ipv6'\n\tlist protos 'dhcpv6'\n" + options;
}

static uloop_timeout *const timers[] = {
    &engine.init_wan_detect_all,
    &engine.start_wan_detect,
    &engine.using_proto_detect,
    &engine.using_arp,
    &engine.using_dns,
    &engine.try_each,
    &engine.end,
    &engine.proto_detect_start,
    &engine.proto_detect_end,
    &engine.look_again,
};

void t_engine_test::SetUp()
{
    uloop_handle_sigchld = false;
    uloop_init();
    init_engine_gate(&engine.gate);
    engine_gate = &engine.gate;
    engine_handlers = {start_wan_detect_all, start_proto_detect, wan_detect_process_link_change, request_fresh_retries};
    bind_engine_timers();
    fake_probes = {};
    fake_router = {};
    std::filesystem::remove(WAN_RESULT_FILE);
    std::filesystem::remove(PROTO_RESULT_FILE);
    load();
}

void t_engine_test::TearDown()
{
    log.reset();
    for (uloop_timeout *timer : timers)
        uloop_timeout_cancel(timer);
    engine.possible_wan_dev_list.clear();
    engine.possible_wan_dev_list_cache.clear();
    port_model.banned_list.clear();
    release_port_model(&port_model);
    destroy_engine_gate(&engine.gate);
    engine = {};
    port_model = {};
    uloop_done();
}

void t_engine_test::write_router_config(const std::string &wan_type, const std::string &priority,
                                        const std::string &pool)
{
    write_config("network", network_config(wan_type, priority, pool));
    write_config("protocol", protocol_config(""));
    write_config("sysmode", "config sysmode 'sysmode'\n\toption mode 'router'\n");
    write_switch_config(5, 0);
}

void t_engine_test::load(const std::string &wan_type, const std::string &priority, const std::string &pool)
{
    release_port_model(&port_model);
    port_model = {};
    write_router_config(wan_type, priority, pool);
    init_all_protocols(&port_model.proto_hashmap_head);
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
    write_config("network", network_config(type, "0 1 2 3 4", "0 1 2 3 4"));
    write_config("protocol", protocol_config(protocol_options));
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

int t_engine_test::armed(uloop_timeout &timer)
{
    if (!timer.pending)
        return NOT_ARMED;
    // Delays are whole tenths of a second, and a test does not take one.
    constexpr int64_t STEP_MS = 100;
    int64_t left = uloop_timeout_remaining64(&timer);
    return left <= 0 ? 0 : static_cast<int>((left + STEP_MS - 1) / STEP_MS * STEP_MS);
}

void t_engine_test::fire(uloop_timeout &timer)
{
    ASSERT_TRUE(timer.pending);
    uloop_timeout_cancel(&timer);
    timer.cb(&timer);
}

// The time until the next timer passes for all of them, though no time passes.
static void pass_time(int64_t milliseconds)
{
    for (uloop_timeout *timer : timers)
        if (timer->pending)
            uloop_timeout_set(timer,
                              static_cast<int>(std::max<int64_t>(0, uloop_timeout_remaining64(timer) - milliseconds)));
}

void t_engine_test::run_until_end()
{
    constexpr int MAX_STEPS = 200;
    for (int step = 0; step < MAX_STEPS; step++) {
        uloop_timeout *next = nullptr;
        for (uloop_timeout *timer : timers)
            if (timer->pending && (!next || uloop_timeout_remaining64(timer) < uloop_timeout_remaining64(next)))
                next = timer;
        if (!next || next == &engine.end)
            return;
        pass_time(uloop_timeout_remaining64(next));
        fire(*next);
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
