// SPDX-License-Identifier: MIT
#include "core/look_again.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/link_change.h"
#include "core/retries.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "platform/clock.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr uint32_t BEHIND_THE_FILTER_MS = 50;

class look_again : public t_engine_test {
protected:
    // A cycle over all ports, up to and including its first pass.
    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    static void configure_interval(const std::string &value)
    {
        write_config("network", read_file("/etc/config/network") +
                                    "config auto_wan_detect 'auto_wan_detect'\n\toption retry_interval '" + value +
                                    "'\n");
    }
    // With a gateway and an address of its own.
    void use_static_line()
    {
        set_connection("static", "config static 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n");
    }
    // It comes up and is in the next pass.
    static void join(const char *port)
    {
        plug({port});
        delay_trigger_thread(dev(port), 0);
        fire(engine.start_wan_detect);
    }
    // The next step of a stage, or the pass behind it.
    static void ask_on()
    {
        fire(engine.proto_detect_start.pending   ? engine.proto_detect_start
             : engine.proto_detect_end.pending   ? engine.proto_detect_end
             : engine.using_proto_detect.pending ? engine.using_proto_detect
                                                 : engine.start_wan_detect);
    }
    static void ask_one_stage()
    {
        for (int i = 0; i < 10 && !engine.start_wan_detect.pending; i++)
            ask_on();
    }
    static void ask_until_nobody_is_left()
    {
        for (int i = 0; i < 100 && !engine.look_again.pending; i++)
            ask_on();
    }
    // eth2 comes up and is asked, alone and in vain, until a pause begins.
    static void ask_flapping_port()
    {
        join("eth2");
        EXPECT_EQ(armed(engine.proto_detect_start), 0);
        unplug({"eth2"});
        ask_until_nobody_is_left();
    }
    // Of a cycle in which eth4 waits for a look that is overdue.
    static void ask_eth2()
    {
        open_cycle();
        plug({"eth4"}); // without a word
        join("eth2");
        engine.retry.due_ms = monotonic_ms();
        ask_one_stage();
    }
    static void ask_eth2_until_joined_by(const char *port)
    {
        ask_eth2();
        join(port);
    }
    // The look comes and the pass after it.
    static void look()
    {
        fire(engine.look_again);
        fire(engine.start_wan_detect);
    }
    // Whole seconds, however long the test took.
    static int pause_s() { return (armed(engine.look_again) + 999) / 1000; }
};

// holds: look-again-list
TEST_F(look_again, an_open_cycle_with_nobody_left_lists_all_ports_anew_after_30_s)
{
    open_cycle();
    EXPECT_EQ(pause_s(), 30);
    EXPECT_TRUE(log->has("Info", "look_again_later", "No port left to ask, looking at all ports again in 30s!"));
    plug({"eth2"});
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(armed(engine.start_wan_detect), 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0) << "the port is asked";
}

// holds: look-again-list
TEST_F(look_again, a_port_that_was_silent_in_three_stages_is_asked_again_and_wins)
{
    plug({"eth2"});
    open_cycle();
    ask_until_nobody_is_left();
    ASSERT_EQ(pause_s(), 30);
    EXPECT_EQ(fake_probes.count("dhcp all"), 3);
    fake_probes.dhcp_ports = {"eth2"}; // the modem is up now
    look();
    run_until_end();
    EXPECT_EQ(engine.result_dev, dev("eth2"));
}

// holds: look-again-pauses
TEST_F(look_again, the_pauses_grow_from_30_s_to_300_s)
{
    open_cycle();
    for (int wanted : {30, 60, 120, 240, 300, 300}) {
        EXPECT_EQ(pause_s(), wanted);
        look();
    }
}

// holds: look-again-pauses
TEST_F(look_again, the_polls_of_a_pause_neither_tell_of_it_again_nor_put_it_off)
{
    open_cycle();
    uloop_timeout_set(&engine.look_again, 7000);
    for (int i = 0; i < 5; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(pause_s(), 7);
    EXPECT_EQ(log->count("Info", "look_again_later", "No port left to ask, looking at all ports again in 30s!"), 1);
}

// holds: retry-interval
TEST_F(look_again, the_configured_interval_is_the_first_pause)
{
    configure_interval("10");
    open_cycle();
    for (int wanted : {10, 20, 40, 80, 160, 300, 300}) {
        EXPECT_EQ(pause_s(), wanted);
        look();
    }
}

// holds: retry-interval
TEST_F(look_again, an_interval_beyond_300_s_is_every_pause)
{
    configure_interval("3600");
    open_cycle();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(pause_s(), 3600);
        look();
    }
}

// holds: retry-interval
TEST_F(look_again, an_interval_of_0_switches_it_off)
{
    configure_interval("0");
    open_cycle();
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
}

// holds: retry-interval
TEST_F(look_again, an_interval_holds_while_the_configuration_cannot_be_read)
{
    configure_interval("0");
    open_cycle();
    remove_config("network");
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
}

// holds: retry-interval
TEST_F(look_again, a_wrong_interval_means_30_s)
{
    for (const char *wrong : {"9", "3601", "-1", "often", "30s", ""}) {
        load();
        configure_interval(wrong);
        open_cycle();
        EXPECT_EQ(pause_s(), 30) << wrong;
        TearDown();
        SetUp();
    }
}

// holds: pause-begins-anew
TEST_F(look_again, a_link_change_of_any_port_begins_with_the_first_pause_again)
{
    load("dhcp", "0 1 2 3", "0 1 2 3"); // eth4 is not in the pool
    open_cycle();
    for (int i = 0; i < 3; i++)
        look();
    ASSERT_EQ(pause_s(), 240);
    fake_router.links["eth4"] = true;
    wan_detect_process_link_change(dev("eth4"), true);
    EXPECT_EQ(pause_s(), 30);
    look();
    EXPECT_EQ(pause_s(), 60);
    EXPECT_TRUE(stop_background_threads());
}

// holds: pause-begins-anew
TEST_F(look_again, a_change_puts_no_longer_pause_off_that_is_about_to_be_over)
{
    open_cycle();
    look();
    ASSERT_EQ(pause_s(), 60);
    engine.retry.due_ms = monotonic_ms() + 5 * MILLISECONDS_PER_SECOND;
    wan_detect_process_link_change(dev("eth4"), true);
    EXPECT_EQ(pause_s(), 5);
    EXPECT_TRUE(stop_background_threads());
}

// holds: pause-begins-anew
TEST_F(look_again, a_link_that_changes_all_the_time_does_not_put_it_off)
{
    open_cycle();
    engine.retry.due_ms = monotonic_ms() + 5 * MILLISECONDS_PER_SECOND;
    for (bool up : {true, false, true, false})
        wan_detect_process_link_change(dev("eth4"), up);
    EXPECT_EQ(pause_s(), 5);
    EXPECT_TRUE(stop_background_threads());
}

// holds: pause-begins-anew
TEST_F(look_again, a_change_seen_by_another_thread_counts_too)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    open_cycle();
    look();
    ASSERT_EQ(pause_s(), 60);
    pthread_t thread;
    ASSERT_EQ(start_background_thread(
                  &thread,
                  [](void *port) -> void * {
                      wan_detect_process_link_change(static_cast<t_device *>(port), true);
                      leave_background();
                      return nullptr;
                  },
                  dev("eth4")),
              0);
    pthread_join(thread, nullptr);
    uloop_run_timeout(1000);
    EXPECT_EQ(pause_s(), 30);
    EXPECT_TRUE(stop_background_threads());
    detach_wishes_from_loop();
}

// holds: pause-begins-anew
TEST_F(look_again, requests_begin_with_the_first_pause_again)
{
    open_cycle();
    look();
    ASSERT_EQ(pause_s(), 60);
    const t_proto_detect_request request = {.timeout_ms = 2000, .dev = dev("eth1"), .protocol = nullptr};
    ASSERT_EQ(engine_handlers.start_proto_detect(&request), 0);
    EXPECT_EQ(pause_s(), 30);
    uloop_timeout_set(&engine.look_again, 120000);
    engine.retry.armed_s = 120;
    start_wan_detect_all(60000);
    EXPECT_EQ(pause_s(), 30);
}

// holds: look-again-list
TEST_F(look_again, a_port_whose_ban_ran_out_is_listed_again)
{
    plug({"eth2"});
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 100);
    open_cycle();
    EXPECT_EQ(candidates(), "");
    remove_banned_device_from_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", nullptr);
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "eth2");
}

// holds: stage-ends-pause
TEST_F(look_again, a_stage_that_begins_ends_the_pause_which_does_not_count_then)
{
    open_cycle();
    plug({"eth2"});
    delay_trigger_thread(dev("eth2"), 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    unplug({"eth2"});
    fire(engine.start_wan_detect.pending ? engine.start_wan_detect : engine.using_proto_detect);
    ask_until_nobody_is_left();
    EXPECT_EQ(pause_s(), 30);
}

// holds: stage-ends-pause
TEST_F(look_again, a_port_that_is_asked_again_and_again_does_not_put_it_off)
{
    open_cycle();
    for (int left_s : {25, 12, 1}) {
        engine.retry.due_ms = monotonic_ms() + static_cast<unsigned>(left_s * MILLISECONDS_PER_SECOND);
        ask_flapping_port();
        EXPECT_EQ(pause_s(), left_s);
    }
    engine.retry.due_ms = monotonic_ms() - 5 * MILLISECONDS_PER_SECOND;
    ask_flapping_port();
    EXPECT_EQ(pause_s(), 0) << "it fell due during the stage";
    look();
    EXPECT_EQ(pause_s(), 60) << "and is a look like any other";
}

// holds: overdue-look
TEST_F(look_again, ports_that_are_asked_in_turns_do_not_put_it_off)
{
    open_cycle();
    plug({"eth4"}); // without a word: a look alone finds it
    for (int pause_s : {30, 60, 120}) {
        EXPECT_EQ(engine.retry.armed_s, pause_s);
        join("eth2");
        ask_one_stage();
        engine.retry.due_ms = monotonic_ms() + 5 * MILLISECONDS_PER_SECOND;
        join("eth1"); // before the other one is through
        EXPECT_EQ(candidates(), "eth1 eth2") << "not yet";
        ask_one_stage();
        engine.retry.due_ms = monotonic_ms();
        join("eth3");
        EXPECT_EQ(candidates(), "eth1 eth2 eth3 eth4");
        EXPECT_EQ(armed(engine.proto_detect_start), 0) << "they are asked at once";
        EXPECT_EQ(engine.retry.runs_on, t_running_on::none) << "the next pause begins behind it";
        ask_until_nobody_is_left();
        unplug({"eth3"});
    }
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_leaves_out_the_wan_port_that_does_not_work)
{
    open_cycle();
    plug({"eth0", "eth4"}); // without a word
    join("eth2");
    ask_one_stage();
    engine.retry.due_ms = monotonic_ms();
    join("eth1");
    EXPECT_EQ(candidates(), "eth1 eth2 eth4");
}

// holds: look-again-list
TEST_F(look_again, reads_who_is_reserved_and_which_bans_are_over)
{
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port1'\n");
    open_cycle();
    plug({"eth1", "eth2"});
    add_ban_that_is_over("eth2");
    write_switch_config(5, 0);
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "eth1 eth2");
}

// holds: look-again-cycle
TEST_F(look_again, leaves_it_to_a_cycle_that_is_about_to_open)
{
    start_wan_detect_all(60'000);
    uloop_timeout_set(&engine.look_again, 30'000);
    fire(engine.look_again);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 60'000);
    uloop_timeout_cancel(&engine.init_wan_detect_all);
    be_waiting();
    uloop_timeout_set(&engine.look_again, 30'000);
    fire(engine.look_again);
    EXPECT_EQ(armed(engine.init_wan_detect_all), NOT_ARMED);
}

// holds: overdue-look, stage-ends-pause
TEST_F(look_again, a_port_that_comes_up_alone_is_asked_to_the_end_and_then_all_are)
{
    open_cycle();
    plug({"eth4"}); // without a word
    join("eth2");
    engine.retry.due_ms = monotonic_ms();
    ask_one_stage();
    fire(engine.start_wan_detect);
    EXPECT_EQ(candidates(), "eth2");
    ask_until_nobody_is_left();
    EXPECT_EQ(pause_s(), 0);
    look();
    EXPECT_EQ(candidates(), "eth2 eth4");
}

// holds: overdue-look
TEST_F(look_again, ports_that_join_a_cycle_before_its_first_pause_do_not_put_it_off)
{
    plug({"eth2"});
    open_cycle();
    ask_one_stage();
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
    join("eth1");
    EXPECT_EQ(engine.retry.armed_s, 30);
    const uint32_t due_ms = engine.retry.due_ms;
    EXPECT_NEAR(static_cast<int>(due_ms - monotonic_ms()), 30000, 5000);
    ask_one_stage();
    join("eth3");
    EXPECT_EQ(engine.retry.due_ms, due_ms) << "it runs already";
    ask_one_stage();
    plug({"eth4"}); // without a word
    engine.retry.due_ms = monotonic_ms() - MILLISECONDS_PER_SECOND;
    join("eth2"); // it left after three stages
    EXPECT_EQ(candidates(), "eth1 eth2 eth3 eth4");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
    EXPECT_EQ(log->count("Info", "begin_overdue_look", "There is always a port left to ask, looking at all ports now!"),
              1);
    ask_one_stage();
    join("eth4");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::begun);
    EXPECT_EQ(engine.retry.armed_s, 60);
}

// holds: overdue-look, look-again-list
TEST_F(look_again, behind_ports_that_joined_a_whole_pause_is_waited_for)
{
    plug({"eth2"});
    open_cycle();
    ask_one_stage();
    join("eth1");
    engine.retry.due_ms = monotonic_ms() + MILLISECONDS_PER_SECOND;
    ask_until_nobody_is_left();
    EXPECT_EQ(pause_s(), 30);
}

// holds: overdue-look
TEST_F(look_again, who_is_asked_already_goes_on_where_it_was)
{
    plug({"eth2"});
    open_cycle();
    ask_one_stage();
    join("eth1");
    ask_one_stage();
    engine.retry.due_ms = monotonic_ms();
    join("eth3");
    EXPECT_EQ(candidates(), "eth1 eth2 eth3");
    EXPECT_EQ(engine.possible_wan_dev_list.find(dev("eth2"))->retry_count, 2);
    EXPECT_EQ(engine.possible_wan_dev_list.find(dev("eth1"))->retry_count, 1);
}

// holds: overdue-look
TEST_F(look_again, what_changes_brings_it_forward_while_ports_are_asked_and_puts_nothing_off)
{
    open_cycle();
    for (int i = 0; i < 3; i++)
        look();
    ASSERT_EQ(engine.retry.armed_s, 240);
    join("eth2");
    ASSERT_EQ(engine.retry.runs_on, t_running_on::cut);
    wan_detect_process_link_change(dev("eth3"), true);
    EXPECT_EQ(engine.retry.armed_s, 30);
    EXPECT_NEAR(static_cast<int>(engine.retry.due_ms - monotonic_ms()), 30000, 5000);
    engine.retry.armed_s = 240;
    engine.retry.due_ms = monotonic_ms() + 5 * MILLISECONDS_PER_SECOND;
    wan_detect_process_link_change(dev("eth3"), false);
    EXPECT_LE(static_cast<int>(engine.retry.due_ms - monotonic_ms()), 5000);
    EXPECT_TRUE(stop_background_threads());
}

// holds: overdue-look, every-second-look-arp
TEST_F(look_again, an_overdue_one_asks_in_the_connections_own_name_as_well)
{
    use_static_line();
    open_cycle();
    for (bool own : {true, false}) {
        join("eth2");
        EXPECT_EQ(asks_in_own_name(), !own);
        engine.retry.due_ms = monotonic_ms();
        fire(engine.using_arp);
        fake_probes.calls.clear();
        join("eth1");
        EXPECT_EQ(asks_in_own_name(), own);
        EXPECT_EQ(candidates(), "eth1 eth2");
        fire(engine.using_arp);
        EXPECT_EQ(fake_probes.calls.at(0), own ? "arp 10.0.0.1 as 10.0.0.2" : "arp 10.0.0.1");
        fire(engine.start_wan_detect);
    }
}

// holds: overdue-look, retry-interval
TEST_F(look_again, an_interval_of_0_switches_it_off_for_ports_that_join_too)
{
    configure_interval("0");
    plug({"eth2"});
    open_cycle();
    ask_one_stage();
    join("eth1");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
}

// holds: overdue-look, retry-interval
TEST_F(look_again, with_an_interval_that_became_0_or_outside_router_mode_none_is_overdue)
{
    open_cycle();
    join("eth2");
    engine.retry.due_ms = monotonic_ms();
    dev("eth2")->has_joined = true;
    port_model.router_mode = 0;
    EXPECT_FALSE(begin_look_in_passing());
    port_model.router_mode = 1;
    configure_interval("0");
    dev("eth2")->has_joined = true;
    EXPECT_FALSE(begin_look_in_passing());
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
}

// holds: overdue-look
TEST_F(look_again, a_pause_that_ran_on_while_ports_were_asked_is_over_with_its_cycle)
{
    open_cycle();
    join("eth2");
    for (t_running_on how : {t_running_on::cut, t_running_on::begun}) {
        engine.retry.runs_on = how;
        count_looks_anew();
        EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
    }
}

// holds: overdue-look
TEST_F(look_again, a_cycle_after_a_loss_asks_who_came_up_first_also_behind_a_swap_in_vain)
{
    open_cycle();
    fake_probes.dhcp_ports = {"eth2"};
    fake_router.swap_works = false;
    join("eth2");
    engine.retry.due_ms = monotonic_ms();
    run_until_end();
    ASSERT_EQ(engine.result_dev, dev("eth2"));
    fire(engine.end);
    ASSERT_TRUE(engine.init_wan_detect_all.pending) << "a swap is tested, whatever became of it";
    plug({"eth4"}); // without a word
    open_cycle_after_loss();
    join("eth3");
    EXPECT_EQ(candidates(), "eth3");
}

// holds: overdue-look
TEST_F(look_again, a_port_outside_the_pool_that_joins_brings_none)
{
    load("dhcp", "0 1 2 3 4", "0 2 3 4");
    ask_eth2_until_joined_by("eth1");
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::cut);
}

// holds: overdue-look
TEST_F(look_again, the_wan_port_that_joins_brings_none)
{
    ask_eth2_until_joined_by("eth0");
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::cut);
}

// holds: overdue-look
TEST_F(look_again, a_port_with_lan_hosts_behind_it_that_joins_brings_none)
{
    fake_probes.lan_ports = {"eth3"};
    ask_eth2_until_joined_by("eth3");
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::cut);
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_lists_no_port_with_lan_hosts_behind_it)
{
    fake_probes.lan_ports = {"eth4"};
    ask_eth2_until_joined_by("eth3");
    EXPECT_EQ(candidates(), "eth2 eth3");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
}

// holds: overdue-look
TEST_F(look_again, a_port_that_became_reserved_brings_none_and_one_that_became_free_does)
{
    ask_eth2();
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port1'\n");
    join("eth1");
    EXPECT_EQ(candidates(), "eth2");
    ask_one_stage();
    write_switch_config(5, 0);
    join("eth1");
    EXPECT_EQ(candidates(), "eth1 eth2 eth4");
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_leaves_out_ports_with_lan_hosts_and_says_why)
{
    fake_probes.lan_ports = {"eth4"};
    ask_eth2_until_joined_by("eth3");
    EXPECT_EQ(candidates(), "eth2 eth3");
    EXPECT_TRUE(log->has("Debug", "remove_brlan_dev_from_list",
                         "Remove eth4 out of pssible wan list due to link down or has br-lan device(s)!"));
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_gives_up_a_fake_wan_port_with_lan_hosts)
{
    fake_probes.lan_ports = {"eth4"};
    port_model.fake_wan = dev("eth4");
    ask_eth2();
    ASSERT_EQ(port_model.fake_wan, dev("eth4")) << "nobody has listed it so far";
    join("eth3");
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

// holds: look-again-list
TEST_F(look_again, while_the_network_manager_is_away_leaves_those_that_are_listed_where_they_were)
{
    open_cycle();
    ASSERT_TRUE(engine.look_again.pending);
    plug({"eth0"});
    fake_router.bus_result = ERR_BUS_OBJECT;
    join("eth2");
    ASSERT_EQ(candidates(), "eth2");
    engine.possible_wan_dev_list.find(dev("eth2"))->retry_count = 1;
    plug({"eth4"});
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "eth0 eth2 eth4");
    EXPECT_EQ(engine.possible_wan_dev_list.find(dev("eth2"))->retry_count, 1u);
    EXPECT_FALSE(log->has("Info", "generate_possible_wan_dev_list", "Failed to add device eth2 to possible wan list!"));
}

// holds: overdue-look
TEST_F(look_again, who_joined_at_the_end_of_a_cycle_is_forgotten_with_the_next)
{
    open_cycle();
    dev("eth2")->has_joined = true;
    plug({"eth2"});
    be_in(t_cycle_state::resting);
    open_cycle();
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_knows_what_is_reserved_by_then)
{
    plug({"eth1"});
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port1'\n");
    open_cycle();
    join("eth2");
    ASSERT_EQ(candidates(), "eth2");
    ask_one_stage();
    write_switch_config(5, 0);
    engine.retry.due_ms = monotonic_ms();
    join("eth3");
    EXPECT_EQ(candidates(), "eth1 eth2 eth3");
}

// holds: overdue-look
TEST_F(look_again, a_port_that_joined_while_the_network_manager_was_away_counts_when_it_is_asked)
{
    plug({"eth0", "eth2"});
    open_cycle();
    ask_one_stage();
    fake_router.bus_result = ERR_BUS_OBJECT; // nobody offers it
    join("eth1");
    EXPECT_EQ(engine.retry.runs_on, t_running_on::none);
    fake_router.bus_result = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.retry.runs_on, t_running_on::begun);
}

// holds: stage-ends-pause
TEST_F(look_again, a_cycle_that_asks_all_ports_is_a_look)
{
    look_again_later();
    cut_pause_short();
    look_again_later(); // both may be: one that runs, and one that was cut
    engine.retry.runs_on = t_running_on::cut;
    engine.retry.due_ms = monotonic_ms() + MILLISECONDS_PER_SECOND;
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    fire(engine.start_wan_detect);
    EXPECT_EQ(pause_s(), 30);
}

// holds: stage-ends-pause
TEST_F(look_again, a_pause_that_was_cut_before_is_none_of_a_later_one)
{
    open_cycle();
    engine.retry.due_ms = monotonic_ms() - 5 * MILLISECONDS_PER_SECOND;
    cut_pause_short();
    stop_looking_again();
    look_again_later();
    EXPECT_EQ(pause_s(), 30);
    cut_pause_short();
    port_model.enable = 0;
    look_again_later();
    port_model.enable = 1;
    engine.retry.due_ms = monotonic_ms() - 5 * MILLISECONDS_PER_SECOND;
    look_again_later();
    EXPECT_EQ(pause_s(), 30);
}

// holds: look-again-cycle
TEST_F(look_again, a_cycle_that_ended_without_a_result_looks_again_while_the_wan_port_is_down)
{
    set_connection("ocn");
    plug({"eth2"});
    open_cycle();
    fire(engine.end);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_EQ(pause_s(), 30);
    fire(engine.look_again);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 0);
    set_connection("dhcp");
    fake_probes.dhcp_ports = {"eth2"};
    run_until_end();
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    fire(engine.end);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
}

// holds: look-again-cycle
TEST_F(look_again, a_connection_that_nobody_can_ask_for_ends_the_pause_and_the_end_begins_another)
{
    open_cycle();
    uloop_timeout_set(&engine.look_again, 5000);
    set_connection("ocn");
    plug({"eth2"});
    delay_trigger_thread(dev("eth2"), 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    fire(engine.end);
    EXPECT_EQ(pause_s(), 30);
}

// holds: look-again-cycle
TEST_F(look_again, the_pause_after_such_a_cycle_grows_as_well)
{
    set_connection("ocn");
    plug({"eth2"});
    open_cycle();
    fire(engine.end);
    for (int wanted : {30, 60, 120}) {
        EXPECT_EQ(pause_s(), wanted);
        fire(engine.look_again);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
        fire(engine.end);
    }
}

// holds: look-again-cycle
TEST_F(look_again, a_wan_port_that_works_by_then_needs_no_cycle)
{
    set_connection("ocn");
    plug({"eth2"});
    open_cycle();
    fire(engine.end);
    plug({"eth0"});
    fake_router.network_state = 0;
    fire(engine.look_again);
    EXPECT_EQ(armed(engine.init_wan_detect_all), NOT_ARMED);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
}

// holds: look-again-cycle
TEST_F(look_again, with_detection_off_or_outside_router_mode_nobody_looks)
{
    open_cycle();
    port_model.enable = 0;
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "");
    uloop_timeout_set(&engine.look_again, 0);
    port_model.enable = 1;
    port_model.router_mode = 0;
    plug({"eth2"});
    fire(engine.look_again);
    EXPECT_EQ(candidates(), "");
}

// holds: look-again-cycle
TEST_F(look_again, a_cycle_that_another_one_follows_plans_no_look)
{
    set_connection("ocn");
    plug({"eth2"});
    open_cycle();
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    fire(engine.end);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 500);
}

// holds: every-second-look-arp
TEST_F(look_again, every_second_look_asks_in_the_connections_own_name)
{
    use_static_line();
    plug({"eth2"});
    open_cycle();
    EXPECT_FALSE(asks_in_own_name());
    for (bool own : {true, false, true}) {
        fire(engine.using_arp);
        fire(engine.start_wan_detect);
        look();
        EXPECT_EQ(asks_in_own_name(), own);
    }
    fire(engine.using_arp);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // the open cycle gives up
    fire(engine.start_wan_detect);
    fire(engine.end);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_FALSE(asks_in_own_name());
}

// holds: every-second-look-arp, look-again-cycle
TEST_F(look_again, a_look_in_a_cycle_of_its_own_counts_as_well)
{
    use_static_line();
    plug({"eth2"});
    fake_probes.bridge_readable = false; // which ends the cycle
    open_cycle();
    fire(engine.using_arp);
    fire(engine.end);
    for (bool own : {true, false, true}) {
        fire(engine.look_again);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
        EXPECT_EQ(asks_in_own_name(), own);
        fire(engine.using_arp);
        fire(engine.end);
    }
}

// holds: every-second-look-arp
TEST_F(look_again, looks_that_find_nobody_to_ask_keep_the_name)
{
    use_static_line();
    plug({"eth2"});
    open_cycle();
    fire(engine.using_arp);
    fire(engine.start_wan_detect);
    unplug({"eth2"});
    for (int i = 0; i < 3; i++) {
        look();
        EXPECT_TRUE(asks_in_own_name());
    }
}

// holds: every-second-look-arp
TEST_F(look_again, a_cycle_after_a_loss_begins_in_the_bridges_name_again)
{
    use_static_line();
    fake_probes.bridge_readable = false; // which ends the cycle
    plug({"eth0", "eth2"});
    open_cycle();
    fire(engine.using_arp);
    fire(engine.end);
    fire(engine.look_again); // a cycle of its own
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_TRUE(asks_in_own_name());
    fire(engine.using_arp);
    fire(engine.end);
    stop_looking_again();
    wan_detect_process_link_change(dev("eth0"), false);
    fire(engine.start_wan_detect);
    EXPECT_FALSE(asks_in_own_name());
}

// holds: every-second-look-arp
TEST_F(look_again, a_cycle_behind_one_that_looked_again_begins_in_the_bridges_name)
{
    use_static_line();
    for (bool in_passing : {false, true}) {
        plug({"eth0", "eth2"});
        open_cycle();
        fire(engine.using_arp);
        fire(engine.start_wan_detect);
        if (in_passing) {
            stop_looking_again();
            join("eth2");
            fire(engine.using_arp);
            engine.retry.due_ms = monotonic_ms();
            join("eth1");
        } else {
            look();
        }
        EXPECT_TRUE(asks_in_own_name());
        end_cycle_with(nullptr, t_decision::nobody);
        fire(engine.end);
        stop_looking_again();
        wan_detect_process_link_change(dev("eth0"), false);
        fire(engine.start_wan_detect);
        EXPECT_FALSE(asks_in_own_name()) << in_passing;
        end_cycle_with(nullptr, t_decision::nobody);
        fire(engine.end);
        stop_looking_again();
    }
}

// holds: every-second-look-arp
TEST_F(look_again, a_call_takes_the_place_of_a_look_and_begins_in_the_bridges_name)
{
    use_static_line();
    fake_probes.bridge_readable = false; // which ends the cycle
    plug({"eth2"});
    open_cycle();
    fire(engine.using_arp);
    fire(engine.end);
    fire(engine.look_again);
    EXPECT_TRUE(asks_in_own_name());
    open_cycle();
    EXPECT_FALSE(asks_in_own_name());
}

// holds: every-second-look-arp
TEST_F(look_again, a_search_of_the_cycle_before_does_not_count)
{
    use_static_line();
    plug({"eth2"});
    open_cycle();
    fire(engine.using_arp);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // the open cycle gives up
    fire(engine.start_wan_detect);
    fire(engine.end);
    unplug({"eth2"});
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    look();
    EXPECT_FALSE(asks_in_own_name());
}

// holds: every-second-look-arp
TEST_F(look_again, one_that_finds_nobody_to_ask_leaves_the_first_search_to_the_bridges_name)
{
    use_static_line();
    open_cycle();
    look();
    EXPECT_TRUE(fake_probes.calls.empty());
    join("eth2");
    fire(engine.using_arp);
    EXPECT_EQ(fake_probes.calls, (std::vector<std::string>{"arp 10.0.0.1"}));
}

// holds: every-second-look-arp
TEST_F(look_again, a_gateway_is_searched_for_in_the_bridges_name_first_and_in_the_connections_own_every_second_time)
{
    use_static_line();
    plug({"eth2"});
    open_cycle();
    for (int i = 0; i < 3; i++) {
        fire(engine.using_arp);
        fire(engine.start_wan_detect);
        look();
    }
    fire(engine.using_arp);
    EXPECT_EQ(fake_probes.calls, (std::vector<std::string>{"arp 10.0.0.1", "arp 10.0.0.1 as 10.0.0.2", "arp 10.0.0.1",
                                                           "arp 10.0.0.1 as 10.0.0.2"}));
}

// holds: every-second-look-arp
TEST_F(look_again, a_connection_without_an_address_of_its_own_asks_in_the_bridges_name)
{
    set_connection("static", "config static 'static'\n\toption gateway '10.0.0.1'\n");
    plug({"eth2"});
    open_cycle();
    fire(engine.using_arp);
    fire(engine.start_wan_detect);
    look();
    fire(engine.using_arp);
    EXPECT_EQ(fake_probes.count("arp 10.0.0.1"), 2);
}

// holds: own-address-unusable
TEST_F(look_again, an_own_address_that_is_none_is_not_asked_in)
{
    set_connection("static", "config static 'static'\n\toption ipaddr 'nonsense'\n\toption gateway '10.0.0.1'\n");
    plug({"eth2"});
    open_cycle();
    fire(engine.using_arp);
    fire(engine.start_wan_detect);
    look();
    fire(engine.using_arp);
    EXPECT_EQ(fake_probes.count("arp 10.0.0.1"), 2);
}

// holds: look-again-over
TEST_F(look_again, ends_with_a_verdict_that_was_carried_out)
{
    plug({"eth0"});
    be_running();
    engine.retry.next_s = 120;
    uloop_timeout_set(&engine.look_again, 5000);
    end_cycle_with(dev("eth0"), t_decision::wan_works);
    fire(engine.end);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    EXPECT_EQ(retry_pause_s(), 30);
}

// holds: winner-lost
TEST_F(look_again, a_winner_that_could_not_get_the_role_is_looked_for_again)
{
    plug({"eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle();
    run_until_end();
    ASSERT_EQ(engine.result_dev, dev("eth2"));
    write_config("switch", ""); // as while somebody keeps it locked
    fire(engine.end);
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_EQ(pause_s(), 30);
}

// holds: look-again-change-before-stage
TEST_F(look_again, a_change_before_a_stage_counts_behind_it)
{
    open_cycle();
    for (int i = 0; i < 4; i++)
        look();
    ASSERT_EQ(pause_s(), 300);
    fake_router.links["eth2"] = true;
    wan_detect_process_link_change(dev("eth2"), true);
    EXPECT_EQ(pause_s(), 30);
    delay_trigger_thread(dev("eth2"), 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    ask_until_nobody_is_left();
    EXPECT_EQ(pause_s(), 30);
    EXPECT_TRUE(stop_background_threads());
}

// holds: overdue-look
TEST_F(look_again, an_overdue_one_whose_ports_have_lost_their_links_meanwhile_asks_nobody)
{
    open_cycle();
    join("eth2");
    engine.retry.due_ms = monotonic_ms();
    ask_one_stage();
    std::thread writer; // of a configuration that the look waits for, while the links go
    fake_router.on_capture = [&writer](const std::string &) {
        fake_router.on_capture = nullptr;
        const int file = open("/etc/config/network", O_RDWR | O_CLOEXEC);
        ASSERT_EQ(syscall(SYS_flock, file, LOCK_EX), 0);
        writer = std::thread([file] {
            sleep_ms(BEHIND_THE_FILTER_MS);
            {
                t_write_guard guard(engine.gate.locks.device_lock); // as the scan does
                dev("eth2")->link_active = dev("eth3")->link_active = 0;
            }
            close(file);
        });
    };
    join("eth3");
    writer.join();
    EXPECT_EQ(candidates(), "");
    EXPECT_FALSE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 0 device(s) using protocol detect"));
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
}

} // namespace
