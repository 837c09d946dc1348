// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/engine_scene.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <libubus.h>
#include <poll.h>
#include <pthread.h>
#include <vector>

#include "adapters/bus_object.h"
#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/engine_life.h"
#include "core/link_change.h"
#include "core/link_scan.h"
#include "core/proto_stage.h"
#include "core/wishes.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/port_config.h"
#include "model/protocol_config.h"
#include "model/tables.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/ending.h"
#include "platform/log.h"
#include "tests/fuzz/support/bus_message.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/fuzz/support/private_files.h"
#include "tests/support/engine_timers.h"
#include "tests/support/router_config.h"
#include "tests/unit/core/fake_probes.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr int MOST_TURNS = 20'000;
constexpr int64_t MICROSECONDS_PER_MS = 1000;
constexpr int64_t NANOSECONDS_PER_US = 1000;
constexpr int64_t MICROSECONDS_PER_S = 1'000'000;

struct t_worker_thread {
    void *(*body)(void *);
    void *argument;
    int64_t due_us;
};

t_engine_scene *scene;
std::vector<t_worker_thread> workers;
bool on_other_thread;

struct t_on_other_thread {
    t_on_other_thread() { on_other_thread = true; }
    ~t_on_other_thread() { on_other_thread = false; }
};

// A worker's sleep lies between its start and now: it ends where it began.
void run_due_workers()
{
    for (;;) {
        const auto due = std::find_if(workers.begin(), workers.end(),
                                      [](const t_worker_thread &worker) { return worker.due_us <= fake_clock.now_us; });
        if (due == workers.end())
            return;
        const t_worker_thread worker = *due;
        workers.erase(due);
        const int64_t now_us = fake_clock.now_us;
        t_on_other_thread guard;
        worker.body(worker.argument);
        fake_clock.now_us = now_us;
    }
}

int64_t next_worker_us()
{
    int64_t next_us = INT64_MAX;
    for (const t_worker_thread &worker : workers)
        next_us = std::min(next_us, worker.due_us);
    return next_us;
}

int64_t next_timer_us()
{
    const int next_ms = uloop_get_next_timeout();
    return next_ms < 0 ? INT64_MAX : fake_clock.now_us + next_ms * MICROSECONDS_PER_MS;
}

void check_list(const t_device_list_head &list)
{
    unsigned count = 0;
    for (const t_device_list *node = list.head.next; node; node = node->next, count++) {
        REQUIRE(node->dev && find_device(port_model.dev_hashmap_head, node->dev->name) == node->dev);
        for (const t_device_list *other = node->next; other; other = other->next)
            REQUIRE(other->dev != node->dev);
    }
    REQUIRE(count <= ENGINE_PORTS);
    // Ports that came up during a cycle may be counted twice when they are adopted; the next pass mends that.
    const bool may_count_twice = &list == &engine.possible_wan_dev_list;
    REQUIRE(may_count_twice ? count <= list.count : count == list.count);
}

} // namespace

// The router around the daemon.

int ubus_call_method(const char *object, const char *method, blob_buf *, t_bus_reply_handler, void *context)
{
    REQUIRE(strcmp(object, "network.interface") == 0 && strcmp(method, "status") == 0);
    if (scene->bus_result == 0)
        *static_cast<int *>(context) = scene->network_state;
    return scene->bus_result;
}

extern "C" int __wrap_ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *)
{
    return 0;
}

// Time and threads; the fuzzer's own keep theirs.

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now)
{
    if (clock != CLOCK_MONOTONIC)
        return __real_clock_gettime(clock, now);
    now->tv_sec = fake_clock.now_us / MICROSECONDS_PER_S;
    now->tv_nsec = fake_clock.now_us % MICROSECONDS_PER_S * NANOSECONDS_PER_US;
    return 0;
}

extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                                     void *argument)
{
    if (!scene)
        return __real_pthread_create(thread, attributes, body, argument);
    workers.push_back({body, argument, fake_clock.now_us + PORT_SETTLE_MS * MICROSECONDS_PER_MS});
    *thread = 0; // it is detached at once
    return 0;
}

extern "C" int __real_pthread_detach(pthread_t thread);
extern "C" int __wrap_pthread_detach(pthread_t thread)
{
    return scene ? 0 : __real_pthread_detach(thread);
}

extern "C" pthread_t __real_pthread_self();
extern "C" pthread_t __wrap_pthread_self()
{
    return __real_pthread_self() + (on_other_thread ? 1 : 0);
}

extern "C" int __wrap_poll(pollfd *, nfds_t, int timeout_ms)
{
    if (end_is_asked_for())
        return 1;
    fake_clock.advance_ms(timeout_ms);
    return 0;
}

void prepare_engine_scene()
{
    enter_private_files();
    write_private_file("/tmp/wan_detect.log", "");
    log_set_level(LOG_LEVEL_Debug);
    uloop_handle_sigchld = false;
}

t_engine_scene::t_engine_scene(const std::string &priority, const std::string &fake_wan)
    : priority_(priority), fake_wan_(fake_wan)
{
    // The loop takes over the signals, so it must not begin before the fuzzer has its own.
    static const bool loop_is_there = uloop_init() == 0;
    REQUIRE(loop_is_there);
    scene = this;
    fake_clock.reset();
    fake_clock.set(1);
    fake_probes = {};
    fake_commands = {};
    fake_commands.prints = [this](const std::string &command) { return print(command); };
    fake_commands.ends = [this](const std::string &command) { return end(command); };
    engine = {};
    port_model = {};
    REQUIRE(init_background());
    attach_background_to_loop();
    attach_wishes_to_loop();
    init_engine();
    wan_detect_bus_exports();
    write_configuration();
    started_ = init_all_protocols(&port_model) >= 0 && init_all_eth_device(&port_model) > 0;
    init_fake_wan_device(&port_model);
    port_model.enable = 1;
    port_model.router_mode = 1;
    update_wan_device(&port_model);
    update_wan_ipv4_protocol(&port_model);
}

t_engine_scene::~t_engine_scene()
{
    cancel_all_timers();
    begin_to_stop(0);
    for (t_worker_thread &worker : workers)
        worker.due_us = 0;
    run_due_workers();
    REQUIRE(stop_background_threads());
    detach_background_from_loop();
    detach_wishes_from_loop();
    release_background();
    release_wishes();
    release_engine();
    wan_detect_bus_exports_release();
    scene = nullptr;
}

void t_engine_scene::configure(t_setting setting, const std::string &value)
{
    settings_[setting] = value;
    write_configuration();
}

// The static connection and the tunnels.
std::string t_engine_scene::addresses() const
{
    std::string text = "config proto 'static'\n" + option_line("ipaddr", "192.0.2.2") +
                       option_line("gateway", settings_[GATEWAY]) + option_line("pri_dns", "192.0.2.53");
    for (const char *name : {"l2tp", "pptp"})
        text += std::string("config proto '") + name + "'\n" + option_line("snd_conn", settings_[SECONDARY]) +
                option_line("static_ip", "192.0.2.4") + option_line("static_gateway", settings_[GATEWAY]);
    return text;
}

void t_engine_scene::write_configuration() const
{
    const t_router_config config = {.wan_type = settings_[CONNECTION],
                                    .priority = priority_,
                                    .pool = priority_,
                                    .fake_wan = fake_wan_,
                                    .preferred_side = settings_[PREFERRED_SIDE],
                                    .protocol_sections = addresses()};
    write_private_file("/etc/config/network", config.network());
    write_private_file("/etc/config/protocol", config.protocol());
    write_private_file("/etc/config/switch",
                       switch_config(ENGINE_PORTS, settings_[WAN_PORT], COMBO_PORT) + "config gaming 'gaming'\n" +
                           option_line("switch_port", settings_[GAMING]) + "config lan_agg 'lan_agg'\n" +
                           option_line("enable_agg", settings_[AGGREGATION]) +
                           option_line("lanport", "LAN0 LAN1 LAN2 LAN3 LAN4") +
                           option_line("lacpports", settings_[AGGREGATED]));
}

std::string t_engine_scene::print(const std::string &command) const
{
    if (command != PORT_STATE_COMMAND)
        return combo_state;
    if (!port_states.empty())
        return port_states;
    std::string json;
    for (size_t i = 0; i < ENGINE_PORTS; i++)
        json += (json.empty() ? "{\"" : ",\"") + port(static_cast<int>(i)) + "\":" + (links[i] ? "true" : "false");
    return json + "}";
}

int t_engine_scene::end(const std::string &command)
{
    constexpr std::string_view SWAP = "network_lanwan_swap set ";
    if (command == "online-test")
        return online_test;
    if (swap_works && command.starts_with(SWAP)) {
        const std::string port = command.substr(SWAP.size());
        configure(WAN_PORT, port.substr(0, port.find(' ')));
    }
    return 0;
}

void t_engine_scene::pass_ms(int64_t milliseconds)
{
    const int64_t until_us = fake_clock.now_us + milliseconds * MICROSECONDS_PER_MS;
    for (int turn = 0;; turn++) {
        REQUIRE(turn < MOST_TURNS);
        uloop_run_timeout(0);
        run_due_workers();
        const int64_t next_us = std::min(next_timer_us(), next_worker_us());
        if (next_us > until_us)
            break;
        fake_clock.now_us = std::max(fake_clock.now_us, next_us);
    }
    fake_clock.now_us = std::max(fake_clock.now_us, until_us);
}

void t_engine_scene::fire_next_timer()
{
    uloop_timeout *next = earliest_timer();
    if (!next)
        return;
    fake_clock.advance_ms(std::max<int64_t>(0, uloop_timeout_remaining64(next)));
    uloop_timeout_cancel(next);
    next->cb(next);
}

void t_engine_scene::scan_links()
{
    t_on_other_thread guard;
    update_eth_link_status_trigger();
}

void t_engine_scene::look_at_combo_port()
{
    t_on_other_thread guard;
    wan_combo_auto_switch(&combo_);
}

void t_engine_scene::call(int handler, t_octets arguments, bool is_json)
{
    const t_bus_exports *offer = wan_detect_bus_exports();
    t_fuzz_message message(arguments, is_json);
    if (handler >= offer->object->n_methods) {
        offer->event_handler->cb(nullptr, offer->event_handler, offer->event_pattern, message.attribute());
        return;
    }
    const ubus_method &method = offer->object->methods[handler];
    ubus_context context = {};
    context.sock.fd = -1;
    ubus_request_data request = {};
    REQUIRE(method.handler(&context, offer->object, &request, method.name, message.attribute()) == 0);
    // The method "log" may have closed the log.
    log_close();
    log_set_level(LOG_LEVEL_Debug);
}

void t_engine_scene::mend_router()
{
    links.fill(true);
    port_states.clear();
    combo_state = R"({"phy":true,"sfp":false,"serdes":"phy"})";
    network_state = bus_result = online_test = 0;
    swap_works = true;
    fake_commands.start = true;
    fake_probes = {};
    settings_ = {"dhcp", "192.0.2.1", "dynamic", "port0", "off", "", "", "phy"};
    write_configuration();
}

void t_engine_scene::check() const
{
    check_list(engine.possible_wan_dev_list);
    check_list(engine.possible_wan_dev_list_cache);
    check_list(port_model.banned_list);
    for (const t_device *dev : {port_model.wan_dev.load(), port_model.fake_wan, engine.result_dev})
        REQUIRE(!dev || find_device(port_model.dev_hashmap_head, dev->name) == dev);
    // One stage at a time.
    const int stages =
        engine.using_proto_detect.pending + engine.using_arp.pending + engine.using_dns.pending + engine.end.pending;
    REQUIRE(stages <= 1);
    REQUIRE(stages == 0 || port_model.wan_detect_running);
    // Who holds the probe stage is under way, and nobody else is.
    const bool held = engine.stage_owner != t_stage_owner::nobody;
    REQUIRE(held == static_cast<bool>(port_model.proto_detect_running));
    REQUIRE(held == (engine.proto_detect_start.pending || engine.proto_detect_end.pending));
    REQUIRE(!engine.try_each.pending);
    // A cycle that is open has a next step.
    REQUIRE(!port_model.wan_detect_running || stages == 1 || engine.start_wan_detect.pending);
}

bool t_engine_scene::at_rest()
{
    return !engine.detecting && !port_model.wan_detect_running && !port_model.proto_detect_running &&
           engine.possible_wan_dev_list.count == 0 && engine.possible_wan_dev_list_cache.count == 0;
}
