// SPDX-License-Identifier: MIT
#include "core/swap_pause.h"

#include "core/cycle.h"
#include "core/link_change.h"
#include "model/chronicle.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

// Two lines answer a DISCOVER, and neither works: the role goes to and fro.
class swap_pause : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
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
    start_wan_detect_all(0);
    run_for_an_hour();
    EXPECT_EQ(fake_router.commands.size(), 15u);
    EXPECT_LE(questions_on("eth1"), 60);
    EXPECT_GE(questions_on("eth1"), 30);
}

// holds: questions-bound
TEST_F(swap_pause, an_hour_of_swaps_of_a_static_connection_asks_little_more)
{
    set_connection("static", "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n");
    plug({"eth3"});
    fake_probes.gateway_ports = {"eth1", "eth2", "eth3"};
    start_wan_detect_all(0);
    run_for_an_hour();
    EXPECT_EQ(fake_router.commands.size(), 15u);
    EXPECT_LE(questions_on("eth1"), 75);
    EXPECT_GE(questions_on("eth1"), 30);
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
    fake_probes.dhcp_ports.insert("eth3");
    EXPECT_EQ(run_cycles(2), (std::vector<int>{21, 42}));
}
