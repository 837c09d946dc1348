// SPDX-License-Identifier: MIT
#include "core/swap_pause.h"

#include "core/combo_switch.h"
#include "core/cycle.h"
#include "core/link_change.h"
#include "core/wan_role.h"
#include "model/chronicle.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/support/fake_clock.h"

namespace {

// Two lines answer a DISCOVER, and neither works: the role goes to and fro.
class swap_pause : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        while_time_passes = [](int ms) { fake_clock.advance_ms(ms); };
        plug({"eth1", "eth2"});
        fake_probes.dhcp_ports = {"eth1", "eth2"};
        fake_probes.dns_ports = {"eth1", "eth2"};
    }
    // A cycle over all ports to its end; the pause behind its swap, in seconds, 0 without one.
    static int run_cycle()
    {
        if (!engine.init_wan_detect_all.pending)
            start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        run_until_end();
        fire(engine.end);
        return engine.init_wan_detect_all.pending ? armed(engine.init_wan_detect_all) / 1000 : 0;
    }
    static std::vector<int> run_cycles(int count)
    {
        std::vector<int> pauses;
        for (int i = 0; i < count; i++)
            pauses.push_back(run_cycle());
        return pauses;
    }
    // The first pass of the cycle that tests the last swap.
    static void open_test()
    {
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    // At rest, where somebody else has put it; ABROAD is none of the table.
    static constexpr int ABROAD = 7;
    static void find_role_at(int port)
    {
        write_switch_config(port == ABROAD ? ABROAD + 1 : 5, port);
        follow_moved_role();
    }
    static void run_for_an_hour()
    {
        constexpr int HOUR_MS = 3'600'000;
        for (uloop_timeout *next = next_timer(); next && passed_ms() + armed(*next) < HOUR_MS; next = next_timer())
            fire_after_its_time(*next);
    }
    // Each discovery is one frame on each port, each search by ARP at most two, each query one.
    static int questions_on(const std::string &port)
    {
        int count = fake_probes.count("dhcp all");
        for (const std::string &call : fake_probes.calls)
            count += call.rfind("special " + port + " ", 0) == 0 || call.rfind("arp ", 0) == 0 ? 2 : 0;
        for (const std::string &entry : fake_probes.dns_entries)
            count += entry.rfind(port + " ", 0) == 0;
        return count;
    }
    void expect_an_hour_of_swaps(int most_questions)
    {
        start_wan_detect_all(0);
        run_for_an_hour();
        EXPECT_EQ(fake_router.commands.size(), 15u);
        EXPECT_LE(questions_on("eth1"), most_questions);
        EXPECT_GE(questions_on("eth1"), 30);
    }
    static void write_network() { write_config("network", read_file("/etc/config/network") + "\n"); }
};

} // namespace

// holds: swap-pause-doubles
TEST_F(swap_pause, doubles_from_21_s_to_300_s_while_no_swap_helps)
{
    EXPECT_EQ(run_cycles(7), (std::vector<int>{21, 42, 84, 168, 300, 300, 300}));
    EXPECT_EQ(fake_router.commands.size(), 7u);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 6u);
    EXPECT_EQ(log->count("Debug", "switch_wan_to_dev",
                         "wan_detect:success switch! Block update eth link & combo switch for 20s!! Start re-detect "
                         "all in 84s!"),
              1);
}

// holds: questions-bound
TEST_F(swap_pause, an_hour_of_swaps_that_do_not_help_asks_a_port_a_bounded_number_of_times)
{
    plug({"eth3"});
    fake_probes.dhcp_ports.insert("eth3");
    expect_an_hour_of_swaps(60);
}

// holds: questions-bound
TEST_F(swap_pause, an_hour_of_swaps_of_a_static_connection_asks_little_more)
{
    set_connection("static", "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n");
    plug({"eth3"});
    fake_probes.gateway_ports = {"eth1", "eth2", "eth3"};
    expect_an_hour_of_swaps(75);
}

// holds: questions-bound
TEST_F(swap_pause, an_hour_of_silence_asks_a_port_a_bounded_number_of_times)
{
    fake_probes.dhcp_ports.clear();
    start_wan_detect_all(0);
    run_for_an_hour();
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_LE(questions_on("eth1"), 45);
    EXPECT_GE(questions_on("eth1"), 36);
}

// holds: swap-pause-doubles
TEST_F(swap_pause, doubles_while_the_role_does_not_move)
{
    fake_router.swap_works = false;
    EXPECT_EQ(run_cycles(3), (std::vector<int>{21, 42, 84}));
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_swap_that_helped_begins_anew)
{
    run_cycles(3);
    fake_router.network_state = 0;
    plug({"eth1"});
    EXPECT_EQ(run_cycle(), 0);
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 1u);
    fake_router.network_state = -1;
    EXPECT_EQ(run_cycle(), 21);
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_port_that_is_connected_only_later_in_the_cycle_that_tests_it_helped)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(swap_pause_s(), 42);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 1u);
    fake_router.network_state = 0;
    run_until_end();
    EXPECT_EQ(swap_pause_s(), 21);
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::agreed);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_changed_link_begins_anew_and_cuts_a_longer_pause)
{
    run_cycles(3);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 84000);
    wan_detect_process_link_change(dev("eth4"), true);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21000);
    fake_router.links["eth4"] = true;
    EXPECT_EQ(run_cycle(), 42) << "the one that was tested in vain counts";
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_changed_link_does_not_cut_the_delay_of_a_call)
{
    run_cycles(3);
    start_wan_detect_all(60000);
    wan_detect_process_link_change(dev("eth4"), true);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 60000);
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_changed_network_package_begins_anew)
{
    EXPECT_EQ(run_cycles(3), (std::vector<int>{21, 42, 84}));
    write_network();
    EXPECT_EQ(run_cycles(2), (std::vector<int>{21, 42}));
}

// holds: swap-pause-anew
TEST_F(swap_pause, what_the_swap_itself_writes_is_no_change)
{
    fake_router.on_command = [](const std::string &) { write_network(); };
    EXPECT_EQ(run_cycles(3), (std::vector<int>{21, 42, 84}));
}

// holds: swap-pause-anew
TEST_F(swap_pause, an_answer_of_a_port_that_was_silent_in_the_cycle_before_begins_anew)
{
    plug({"eth3"});
    EXPECT_EQ(run_cycles(3), (std::vector<int>{21, 42, 84}));
    newest_cycle()->fates[port_place(dev("eth3"))] = t_fate::silent;
    fake_probes.dhcp_ports.insert("eth3");
    EXPECT_EQ(run_cycles(2), (std::vector<int>{21, 42}));
}

// holds: swap-pause-doubles
TEST_F(swap_pause, a_port_that_another_one_was_faster_than_was_not_silent)
{
    plug({"eth3"});
    EXPECT_EQ(run_cycles(3), (std::vector<int>{21, 42, 84}));
    fake_probes.dhcp_ports.insert("eth3");
    EXPECT_EQ(run_cycle(), 168);
}

// holds: swap-pause-doubles
TEST_F(swap_pause, a_link_outside_the_pool_is_no_change)
{
    load("dhcp", "0 1 2 3 4", "0 1 2 3");
    plug({"eth1", "eth2"});
    run_cycles(3);
    wan_detect_process_link_change(dev("eth4"), true);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 84000);
    EXPECT_EQ(swap_pause_s(), 84);
    EXPECT_TRUE(engine.news.pending) << "it is told all the same";
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_changed_network_package_cuts_a_longer_pause)
{
    EXPECT_EQ(run_cycle(), 21);
    EXPECT_FALSE(engine.network_watch.pending) << "no pause is shorter";
    EXPECT_EQ(run_cycles(2), (std::vector<int>{42, 84}));
    EXPECT_EQ(armed(engine.network_watch), 21000);
    fire(engine.network_watch);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 84000);
    write_network();
    fire(engine.network_watch);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21000);
    EXPECT_FALSE(engine.network_watch.pending);
}

// holds: swap-pause-anew
TEST_F(swap_pause, the_network_package_is_not_watched_when_the_pause_is_over)
{
    run_cycles(3);
    start_wan_detect_all(60000);
    fire(engine.network_watch);
    EXPECT_FALSE(engine.network_watch.pending);
}

// holds: swap-pause-anew
TEST_F(swap_pause, a_wan_port_that_works_when_its_swap_is_not_on_trial_any_more_ends_the_row_of_failures)
{
    unplug({"eth2"});
    EXPECT_EQ(run_cycle(), 21);
    open_test();
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // the test gives up
    fire(engine.start_wan_detect);
    fire(engine.end);
    EXPECT_EQ(engine.swap.dev, nullptr);
    EXPECT_EQ(swap_pause_s(), 42);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 1u);
    fake_router.network_state = 0;
    EXPECT_EQ(run_cycle(), 0);
    EXPECT_EQ(swap_pause_s(), 21);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 0u) << "it was not the swap that helped";
}

// holds: swap-pause-foreign
TEST_F(swap_pause, a_role_that_somebody_else_moved_is_no_failure_of_the_swap)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    find_role_at(3);
    EXPECT_EQ(engine.swap.dev, nullptr);
    run_cycle();
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::unknown);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_that_was_moved_before_the_first_pass_of_the_test)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    write_switch_config(5, 3);
    open_test();
    ASSERT_EQ(newest_cycle()->number, 2u);
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::unknown);
    EXPECT_EQ(engine.swap.dev, nullptr);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_that_was_moved_while_the_test_runs)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fake_router.bus_result = ERR_BUS_OBJECT;
    open_test();
    ASSERT_EQ(engine.swap.dev, dev("eth1"));
    write_switch_config(5, 3);
    fire(engine.start_wan_detect);
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::unknown);
    EXPECT_EQ(engine.swap.dev, nullptr);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, a_swap_that_is_seen_late_stays_on_trial)
{
    fake_router.swap_works = false;
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    find_role_at(1);
    EXPECT_EQ(engine.swap.dev, dev("eth1"));
    fake_router.network_state = 0;
    run_cycle();
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 1u);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, a_network_manager_that_stays_away_is_no_failure_of_the_swap)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fake_router.bus_result = ERR_BUS_OBJECT;
    open_test();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(noted_fate(dev("eth1")), t_fate::not_connected);
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::unknown);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(engine.swap.dev, dev("eth1"));
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, two_lines_do_not_take_turns_while_the_network_manager_is_away)
{
    fake_router.bus_result = ERR_BUS_OBJECT;
    start_wan_detect_all(0);
    run_for_an_hour();
    EXPECT_LE(fake_probes.count("dhcp all"), 60);
    EXPECT_LE(std::count_if(fake_router.commands.begin(), fake_router.commands.end(),
                            [](const std::string &command) { return command.rfind("network_lanwan_swap", 0) == 0; }),
              20);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), SWAP_PAUSE_LONGEST_S);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, one_whose_role_went_abroad_and_came_back_is_no_failure)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    write_switch_config(8, 7); // none of the ports
    open_test();
    fire(engine.end);
    find_role_at(1);
    start_wan_detect_all(0);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_whose_role_went_abroad_and_came_back_within_its_pause)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    t_combo_state thread = {}; // that reads every 2 s who has the role
    write_switch_config(8, 7);
    for (int seconds = 0; seconds < 3; seconds++)
        wan_combo_auto_switch(&thread);
    EXPECT_TRUE(port_model.role_is_away);
    write_switch_config(5, 1);
    for (int seconds = 0; seconds < 3; seconds++)
        wan_combo_auto_switch(&thread);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_whose_role_went_abroad_while_it_was_made_and_came_back)
{
    fake_probes.dhcp_ports = {"eth1"};
    fake_router.swap_works = false;
    fake_router.on_command = [](const std::string &command) {
        if (command.rfind("network_lanwan_swap", 0) == 0)
            write_switch_config(8, 7);
    };
    EXPECT_EQ(run_cycle(), 21);
    fake_router.on_command = nullptr;
    find_role_at(1);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_whose_role_went_abroad_while_detection_was_off_and_came_back)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    port_model.enable = 0;
    write_switch_config(8, 7);
    open_test();
    fire(engine.end);
    find_role_at(1);
    port_model.enable = 1;
    start_wan_detect_all(0);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-foreign
TEST_F(swap_pause, nor_is_one_whose_role_went_abroad_in_a_pass_and_came_back)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fire(engine.init_wan_detect_all);
    fake_router.on_capture = [](const std::string &) { write_switch_config(8, 7); }; // behind the head of the pass
    fire(engine.start_wan_detect);
    fake_router.on_capture = nullptr;
    fire(engine.end);
    find_role_at(1);
    start_wan_detect_all(0);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: absent-manager
TEST_F(swap_pause, an_absence_at_the_test_is_waited_for_when_the_manager_was_back_in_the_pause)
{
    plug({"eth0"});
    fake_router.bus_result = ERR_BUS_OBJECT;
    EXPECT_EQ(run_cycle(), 21);
    ASSERT_EQ(engine.swap.dev, dev("eth1"));
    const int asked_before = fake_probes.count("dhcp all");
    fire_after_its_time(engine.init_wan_detect_all); // nobody has looked in the pause
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    fake_router.bus_result = 0;
    fake_router.network_state = 0;
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(fake_probes.count("dhcp all"), asked_before);
    EXPECT_EQ(port_model.wan_dev, dev("eth1")) << "it works";
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, what_nobody_could_tell_is_forgotten_as_soon_as_somebody_can)
{
    fake_router.bus_result = ERR_BUS_OBJECT;
    start_wan_detect_all(0);
    run_for_an_hour();
    ASSERT_EQ(swap_pause_s(), SWAP_PAUSE_LONGEST_S);
    fake_router.bus_result = 0;
    fake_router.network_state = -1;
    while (!engine.init_wan_detect_all.pending)
        fire_after_its_time(*next_timer());
    EXPECT_EQ(run_cycle(), 42) << "behind one that failed";
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, a_test_that_could_not_tell_at_first_fails_as_any_other)
{
    unplug({"eth2"});
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fake_router.bus_result = ERR_BUS_OBJECT;
    open_test();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(swap_pause_s(), 42);
    begin_swap_pauses_anew(); // a link changes
    fire(engine.start_wan_detect);
    EXPECT_EQ(swap_pause_s(), 21);
    fake_router.bus_result = 0;
    test_swap(false);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 1u);
    EXPECT_EQ(swap_pause_s(), 42);
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, what_nobody_could_tell_is_forgotten_when_a_look_at_rest_can)
{
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_cycle(), 21);
    fake_router.bus_result = ERR_BUS_OBJECT;
    open_test();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(swap_pause_s(), 42);
    end_cycle_with(nullptr, t_decision::nobody);
    fire(engine.end);
    fake_router.bus_result = 0;
    fake_router.network_state = 0;
    fire(engine.look_again);
    EXPECT_EQ(swap_pause_s(), 21);
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 0u) << "it may have been moved since";
    fake_router.network_state = -1; // weeks later
    start_wan_detect_all(0);
    open_test();
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0u);
}

// holds: role-returns, role-at-foreign-port
TEST_F(swap_pause, a_network_behind_a_port_of_nobody_ends_no_row_of_failures)
{
    plug({"eth0"});
    run_cycles(4);
    ASSERT_EQ(swap_pause_s(), 168);
    uloop_timeout_cancel(&engine.init_wan_detect_all);
    uloop_timeout_set(&engine.look_again, 30'000);
    t_combo_state thread = {};
    write_switch_config(8, 7);
    for (int seconds = 0; seconds < 3; seconds++)
        wan_combo_auto_switch(&thread);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED) << "nobody is asked while the role is abroad";
    EXPECT_EQ(swap_pause_s(), 168);
    write_switch_config(5, 1);
    for (int seconds = 0; seconds < 3; seconds++)
        wan_combo_auto_switch(&thread);
    EXPECT_EQ(armed(engine.look_again), 30'000);
}

// holds: swap-pause-anew
TEST_F(swap_pause, begins_anew_with_a_changed_network_package_where_nobody_could_tell)
{
    fake_router.bus_result = ERR_BUS_OBJECT;
    start_wan_detect_all(0);
    run_for_an_hour();
    ASSERT_EQ(swap_pause_s(), SWAP_PAUSE_LONGEST_S);
    while (!engine.init_wan_detect_all.pending || !engine.network_watch.pending)
        fire_after_its_time(*next_timer());
    write_network();
    fire(engine.network_watch);
    EXPECT_LE(armed(engine.init_wan_detect_all), 21'000);
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-anew
TEST_F(swap_pause, begins_anew_when_a_look_at_rest_finds_the_wan_port_working)
{
    run_cycles(3);
    fake_router.bus_result = ERR_BUS_OBJECT;
    open_test();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    end_cycle_with(nullptr, t_decision::nobody);
    fire(engine.end);
    EXPECT_GT(swap_pause_s(), 42);
    fake_router.bus_result = 0;
    fake_router.network_state = 0;
    fire(engine.look_again);
    EXPECT_EQ(swap_pause_s(), 21);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 0U);
}

// holds: role-returns
TEST_F(swap_pause, ends_like_a_first_one_when_the_role_comes_back_from_a_port_of_nobody)
{
    plug({"eth3"});
    run_cycles(5);
    ASSERT_EQ(armed(engine.init_wan_detect_all), 300'000);
    find_role_at(ABROAD);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 300'000);
    find_role_at(3);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21'000);
    EXPECT_EQ(swap_pause_s(), SWAP_PAUSE_LONGEST_S);
}

// holds: role-returns
TEST_F(swap_pause, is_not_what_a_call_waits_for_and_a_role_that_comes_back_leaves_that_alone)
{
    run_cycles(2);
    find_role_at(ABROAD);
    start_wan_detect_all(60'000);
    find_role_at(3);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 60'000);
}

// holds: role-returns
TEST_F(swap_pause, is_left_alone_by_a_role_that_comes_back_with_detection_off)
{
    run_cycles(5);
    find_role_at(ABROAD);
    port_model.enable = 0;
    find_role_at(3);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 300'000);
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, doubles_for_nobody_when_no_swap_is_on_trial)
{
    put_next_test_off();
    EXPECT_EQ(swap_pause_s(), 21);
}

// holds: swap-pause-doubtful
TEST_F(swap_pause, doubles_once_for_an_absence_and_again_for_the_next_one)
{
    begin_swap(dev("eth1"));
    put_next_test_off();
    put_next_test_off();
    EXPECT_EQ(swap_pause_s(), 42);
    forget_doubts();
    EXPECT_EQ(swap_pause_s(), 21);
    put_next_test_off();
    EXPECT_EQ(swap_pause_s(), 42);
}
