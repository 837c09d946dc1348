// SPDX-License-Identifier: MIT
// Who goes first when a pass, a stage, a request and a ban meet.
#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/link_change.h"
#include "core/proto_stage.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "platform/clock.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *BUSY_PROBE =
    "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!";
constexpr const char *BANNED_AFTER_DETECTION =
    "About to change eth0 as wan, however it's banned after detection and before switch wan. So treat the detecion as "
    "failure! If more than one server is plugged in the same time, it's very likely that another server is missed!!";
constexpr uint32_t REACH_LOCK_MS = 50; // long enough for a thread to reach a lock that somebody holds

class cycle_order : public t_engine_test {
protected:
    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    static int ask_for(const char *port)
    {
        const t_proto_detect_request request = {.timeout_ms = 2000, .dev = dev(port), .protocol = nullptr};
        return start_proto_detect(&request);
    }
    static void finish_request()
    {
        fire(engine.proto_detect_start);
        while (port_model.proto_detect_running)
            fire(engine.proto_detect_end);
    }
    void use_static_line() { set_connection("static", "config static 'static'\n\toption gateway '10.0.0.1'\n"); }
    static void ban(const char *port, int seconds)
    {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port, seconds);
    }
    static int network_questions() { return static_cast<int>(fake_router.bus_calls.size()); }
};

// --- a verdict and a pass

// holds: verdict-kept
TEST_F(cycle_order, a_verdict_is_carried_out_before_a_pass_that_fell_due_while_its_stage_blocked)
{
    use_static_line();
    plug({"eth2"});
    fake_probes.gateway_ports = {"eth2"};
    open_cycle();
    uloop_timeout_set(&engine.start_wan_detect, 0); // the WAN port's loss, a second ago
    fire(engine.using_arp);
    ASSERT_TRUE(engine.end.pending);
    fire(engine.start_wan_detect);
    EXPECT_TRUE(engine.end.pending);
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    EXPECT_FALSE(engine.using_arp.pending);
    fire(engine.end);
    EXPECT_EQ(fake_router.count("network_lanwan_swap set port2"), 1);
}

// holds: verdict-kept
TEST_F(cycle_order, ports_found_by_arp_are_told_apart_before_such_a_pass)
{
    use_static_line();
    plug({"eth2", "eth3"});
    fake_probes.gateway_ports = {"eth2", "eth3"};
    fake_probes.dns_ports = {"eth3"};
    open_cycle();
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.using_arp);
    fire(engine.start_wan_detect);
    ASSERT_TRUE(engine.using_dns.pending);
    fire(engine.using_dns);
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.result_dev, dev("eth3"));
    fire(engine.end);
    EXPECT_EQ(fake_probes.count("arp 10.0.0.1"), 1);
}

// holds: flapping-cuts-once
TEST_F(cycle_order, a_wan_port_that_flaps_cuts_one_stage_and_the_next_one_comes_to_its_end)
{
    plug({"eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    fake_probes.silent_ports = {};
    open_cycle();
    fire(engine.proto_detect_start);
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect); // cuts it, and begins another one
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    fire(engine.proto_detect_start);
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
    run_until_end();
    EXPECT_EQ(engine.result_dev, dev("eth2"));
}

// holds: answers-kept
TEST_F(cycle_order, answers_that_are_not_judged_yet_are_not_thrown_away_by_a_pass)
{
    plug({"eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle();
    fire(engine.proto_detect_start);
    while (port_model.proto_detect_running)
        fire(engine.proto_detect_end);
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
    fire(engine.using_proto_detect);
    EXPECT_EQ(engine.result_dev, dev("eth2"));
}

// holds: cut-after-poll
TEST_F(cycle_order, a_stage_after_a_poll_may_be_cut_again)
{
    plug({"eth2"});
    open_cycle();
    fire(engine.proto_detect_start);
    unplug({"eth2"});
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect); // cuts the stage, and finds nobody
    EXPECT_FALSE(engine.stage_was_cut);
}

// holds: look-at-end-of-cycle
TEST_F(cycle_order, a_look_that_is_due_with_the_end_of_its_cycle_is_no_wan_loss)
{
    plug({"eth0"});
    open_cycle();
    end_cycle_with(nullptr, t_decision::nobody);
    uloop_timeout_set(&engine.look_again, 0);
    fire(engine.look_again);
    fire(engine.end);
    EXPECT_FALSE(log->has("Info", "wan_detect_process_link_change", "Wan down!! Begin detecting in 10000ms"));
    EXPECT_FALSE(engine.detecting);
    EXPECT_EQ(armed(engine.look_again), 30000);
}

// --- requests and cycles

// holds: request-heads-pass
TEST_F(cycle_order, a_cycle_waits_for_a_request_at_the_head_of_its_pass_whatever_its_method)
{
    for (bool by_arp : {false, true}) {
        if (by_arp)
            use_static_line();
        plug({"eth0", "eth2"});
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        ASSERT_EQ(ask_for("eth3"), OK);
        fake_probes.calls.clear();
        fake_router.bus_calls.clear();
        fire(engine.start_wan_detect);
        EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", BUSY_PROBE));
        EXPECT_EQ(armed(engine.start_wan_detect), 500);
        EXPECT_FALSE(engine.using_arp.pending);
        EXPECT_EQ(network_questions(), 0);
        EXPECT_TRUE(fake_probes.calls.empty());
        finish_request();
        fire(engine.start_wan_detect);
        EXPECT_EQ(engine.using_arp.pending, by_arp);
        TearDown();
        SetUp();
    }
}

// holds: put-off-is-next
TEST_F(cycle_order, a_cycle_that_was_put_off_is_next)
{
    plug({"eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    ASSERT_EQ(ask_for("eth3"), OK);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // put off before it opens
    finish_request();
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(ask_for("eth3"), OK);
}

// holds: put-off-is-next
TEST_F(cycle_order, a_pass_that_was_put_off_is_next)
{
    plug({"eth2"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    ASSERT_EQ(ask_for("eth3"), OK);
    fire(engine.start_wan_detect);
    finish_request();
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

// holds: put-off-is-next
TEST_F(cycle_order, a_cycle_that_was_put_off_and_finds_nobody_lets_requests_in_again)
{
    ASSERT_EQ(ask_for("eth3"), OK);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    finish_request();
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(ask_for("eth3"), OK);
}

// holds: put-off-is-next
TEST_F(cycle_order, a_cycle_that_was_put_off_and_ends_lets_requests_in_again)
{
    plug({"eth0"});
    fake_router.network_state = 0;
    ASSERT_EQ(ask_for("eth3"), OK);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    finish_request();
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY) << "the verdict is not carried out yet";
    fire(engine.end);
    EXPECT_EQ(ask_for("eth3"), OK);
}

// holds: no-request-before-verdict
TEST_F(cycle_order, no_request_gets_between_a_search_by_arp_and_its_verdict)
{
    use_static_line();
    plug({"eth2", "eth3"});
    fake_probes.gateway_ports = {"eth2", "eth3"};
    open_cycle();
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.using_arp);
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.using_dns);
    EXPECT_EQ(ask_for("eth3"), ERR_BUSY);
    fire(engine.end);
    EXPECT_EQ(ask_for("eth3"), OK);
}

// holds: endless-request
TEST_F(cycle_order, a_stage_that_never_ends_for_want_of_a_dhcp_record_stops_no_search_by_arp)
{
    use_static_line();
    plug({"eth2"});
    t_protocol *dhcp = protocol("dhcp");
    ASSERT_EQ(ask_for("eth3"), OK);
    copy_name(dhcp->name, "other"); // as if the configuration had none
    HASH_DELETE(hh, port_model.proto_hashmap_head, dhcp);
    fire(engine.proto_detect_start);
    ASSERT_TRUE(port_model.proto_detect_running);
    uloop_timeout_set(&engine.start_wan_detect, 0); // the cycle after a WAN loss
    be_waiting();
    fire(engine.start_wan_detect);
    EXPECT_TRUE(port_model.wan_detect_running);
    EXPECT_EQ(armed(engine.look_again), 30000) << "nobody but the WAN port was listed";
    free(dhcp);
}

// holds: put-off-long-ago
TEST_F(cycle_order, a_cycle_that_was_put_off_and_then_asked_for_much_later_keeps_no_request_out)
{
    plug({"eth2"});
    ASSERT_EQ(ask_for("eth3"), OK);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    start_wan_detect_all(60000);
    finish_request();
    EXPECT_EQ(ask_for("eth3"), OK);
}

// --- a WAN port that is banned

// holds: banned-wan-in-pass
TEST_F(cycle_order, a_banned_wan_port_that_works_is_not_good_and_the_others_are_asked)
{
    plug({"eth0", "eth2"});
    fake_router.network_state = 0;
    ban("eth0", -1);
    open_cycle();
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

// holds: banned-wan-in-pass
TEST_F(cycle_order, a_banned_wan_port_is_good_again_when_its_ban_has_run_out)
{
    plug({"eth0"});
    fake_router.network_state = 0;
    ban("eth0", 100);
    open_cycle();
    ASSERT_EQ(armed(engine.start_wan_detect), 1000);
    port_model.banned_list.head.next->aging_time = {};
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.result_dev, dev("eth0"));
}

// holds: banned-wan-in-pass
TEST_F(cycle_order, no_notice_repeats_while_the_wan_port_is_banned)
{
    plug({"eth0"});
    fake_router.network_state = 0;
    open_cycle();
    ban("eth0", -1);
    fire(engine.end);
    for (int i = 0; i < 5; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Notice", "uloop_wan_detect_end", BANNED_AFTER_DETECTION), 1);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
}

// --- a link that returns, and one that is lost

// holds: link-lifts-ban
TEST_F(cycle_order, a_link_that_returns_lifts_the_ban_whoever_sees_it_first)
{
    ban("eth1", -1);
    wan_detect_process_link_change(dev("eth1"), true); // as the bus reports it
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth1")));
    ban("eth2", 500);
    open_cycle();
    fake_router.links["eth2"] = true;
    fire(engine.start_wan_detect); // the pass sees it
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth2")));
    ban("eth3", -1);
    fake_router.links["eth3"] = true;
    ASSERT_EQ(ask_for("eth4"), OK); // the request sees it
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth3")));
    EXPECT_TRUE(stop_background_threads());
}

// holds: link-lifts-ban
TEST_F(cycle_order, a_link_that_is_lost_lifts_no_ban)
{
    plug({"eth1"});
    ban("eth1", -1);
    wan_detect_process_link_change(dev("eth1"), false);
    EXPECT_TRUE(is_banned_device(&port_model.banned_list, dev("eth1")));
}

// holds: loss-handed-on-first
TEST_F(cycle_order, a_cable_that_moved_between_two_looks_is_found_in_its_new_port)
{
    load("dhcp");
    write_switch_config(5, 3);
    port_model.wan_dev = dev("eth3");
    plug({"eth3"});
    fake_router.links["eth3"] = false;
    fake_router.links["eth1"] = true;
    ASSERT_EQ(ask_for("eth4"), OK); // a request looks at all ports in the order of the table
    EXPECT_TRUE(engine.detecting);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change",
                         "Noticed lan dev:eth1 turned up during delay! Add it to possible_wan_dev_list_cache after "
                         "9000ms!"));
    EXPECT_TRUE(stop_background_threads());
}

// holds: open-before-list
TEST_F(cycle_order, a_port_that_comes_up_while_the_list_is_made_is_listed_or_parked)
{
    bool open_before_the_list;
    pthread_t holder;
    pthread_rwlock_wrlock(&engine.gate.locks.device_lock); // the list is made under this lock
    start_wan_detect_all(0);
    ASSERT_EQ(pthread_create(
                  &holder, nullptr,
                  [](void *) -> void * {
                      fire(engine.init_wan_detect_all);
                      return nullptr;
                  },
                  nullptr),
              0);
    sleep_ms(REACH_LOCK_MS);
    open_before_the_list = engine.detecting;
    pthread_rwlock_unlock(&engine.gate.locks.device_lock);
    pthread_join(holder, nullptr);
    EXPECT_TRUE(open_before_the_list);
}

// holds: loss-served-late
TEST_F(cycle_order, a_loss_that_is_served_after_its_cycle_says_how_long_the_next_one_waits)
{
    plug({"eth0"});
    be_running();
    end_cycle_with(dev("eth0"), t_decision::only_answer);
    wan_detect_process_link_change(dev("eth0"), false);
    fire(engine.end);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    EXPECT_TRUE(log->has("Info", "wan_detect_process_link_change", "Wan down!! Begin detecting in 10000ms"));
}

// holds: flapping-wan
TEST_F(cycle_order, flapping_puts_the_wait_off_by_60_s_at_most)
{
    plug({"eth0"});
    wan_detect_process_link_change(dev("eth0"), false);
    engine.waiting_since_ms = engine.waiting_since_ms - 59'000;
    wan_detect_process_link_change(dev("eth0"), true);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    engine.waiting_since_ms = engine.waiting_since_ms - 7'000;
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_EQ(armed(engine.start_wan_detect), 4000);
    engine.waiting_since_ms = engine.waiting_since_ms - 10'000;
    wan_detect_process_link_change(dev("eth0"), true);
    EXPECT_EQ(armed(engine.start_wan_detect), 0);
    EXPECT_TRUE(log->has("Info", "wan_detect_process_link_change", "Reset start detecting time to 0ms"));
}

// holds: flapping-wan
TEST_F(cycle_order, calls_do_not_let_flapping_put_the_wait_off_for_longer)
{
    plug({"eth0"});
    wan_detect_process_link_change(dev("eth0"), false);
    unplug({"eth0"});
    engine.waiting_since_ms = engine.waiting_since_ms - 69'000;
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    wan_detect_process_link_change(dev("eth0"), true);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
}

// holds: dead-request-ends-with-cycle
TEST_F(cycle_order, the_end_of_a_cycle_frees_a_stage_that_never_ends)
{
    use_static_line();
    plug({"eth0", "eth2"});
    fake_router.network_state = 0;
    t_protocol *dhcp = protocol("dhcp");
    ASSERT_EQ(ask_for("eth3"), OK);
    copy_name(dhcp->name, "other");
    HASH_DELETE(hh, port_model.proto_hashmap_head, dhcp);
    fire(engine.proto_detect_start);
    ASSERT_TRUE(port_model.proto_detect_running);
    uloop_timeout_set(&engine.start_wan_detect, 0);
    be_waiting();
    fire(engine.start_wan_detect);
    ASSERT_TRUE(engine.end.pending);
    fire(engine.end);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_FALSE(port_model.proto_detect_running);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(armed(engine.init_wan_detect_all), NOT_ARMED) << "put off for ever";
    free(dhcp);
}

// holds: dead-stage-yields
TEST_F(cycle_order, a_stage_that_never_ends_swallows_no_second_loss)
{
    set_connection("pppoe");
    plug({"eth2"});
    t_protocol *dhcp = protocol("dhcp");
    copy_name(dhcp->name, "other");
    HASH_DELETE(hh, port_model.proto_hashmap_head, dhcp);
    open_cycle();
    ASSERT_TRUE(engine.proto_detect_start.pending);
    fire(engine.proto_detect_start);
    ASSERT_FALSE(engine.proto_detect_end.pending);
    uloop_timeout_set(&engine.start_wan_detect, 0); // first loss
    fire(engine.start_wan_detect);
    ASSERT_TRUE(engine.proto_detect_start.pending);
    fire(engine.proto_detect_start);
    plug({"eth0"}); // second loss, back within a second
    fake_router.network_state = 0;
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_TRUE(engine.end.pending) << "the WAN port works";
    free(dhcp);
}

} // namespace
