// SPDX-License-Identifier: MIT
#include "core/wan_role.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "adapters/network_status.h"
#include "core/background.h"
#include "core/combo_switch.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/wishes.h"
#include "model/current_wan.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *TO_ETH0 = "network_lanwan_swap set port0";
constexpr const char *TO_ETH2 = "network_lanwan_swap set port2";
constexpr const char *TO_ETH3 = "network_lanwan_swap set port3";

class wan_role : public t_engine_test {
protected:
    // Somebody else gives the role away.
    static void move_role(int port) { write_switch_config(5, port); }

    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    // A cycle, up to the verdict.
    static void let_eth2_win()
    {
        plug({"eth2"});
        fake_probes.dhcp_ports = {"eth2"};
        open_cycle();
        run_until_end();
    }
    // A cycle won by eth2 ends; `meanwhile` happens while the ports are rebuilt without the fake WAN port.
    void end_while_the_fake_wan_port_is_given_up(const std::function<void()> &meanwhile)
    {
        let_eth2_win();
        port_model.fake_wan = dev("eth4");
        fake_router.on_command = [meanwhile](const std::string &command) {
            if (command == "/sbin/wanlan_port_reload")
                meanwhile();
        };
        fire(engine.end);
    }
    static int swaps()
    {
        return static_cast<int>(
            std::count_if(fake_router.commands.begin(), fake_router.commands.end(),
                          [](const std::string &command) { return command.rfind("network_lanwan_swap", 0) == 0; }));
    }
};

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_during_a_cycle_goes_to_the_new_port_and_not_back)
{
    plug({"eth0"}); // linked, without service: the cycle polls
    open_cycle();
    ASSERT_EQ(armed(engine.start_wan_detect), 1000);
    move_role(3);
    plug({"eth3"});
    fake_router.network_state = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.result_dev, dev("eth3"));
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    EXPECT_EQ(read_file("/tmp/wan_detect_result"), "eth3");
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_while_a_cycle_is_open_is_left_to_its_next_pass)
{
    open_cycle();
    move_role(3);
    follow_moved_role();
    EXPECT_EQ(port_model.wan_dev, dev("eth0"));
    fire(engine.start_wan_detect);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_in_a_pass_leaves_no_candidate_that_was_listed_as_the_wan_port_only)
{
    plug({"eth0"});
    open_cycle();
    move_role(3);
    fire(engine.start_wan_detect);
    ASSERT_EQ(port_model.wan_dev, dev("eth3"));
    EXPECT_EQ(candidates(), "");
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_while_the_network_manager_was_away_is_not_taken_back)
{
    for (bool manager_is_away : {false, true}) {
        SCOPED_TRACE(manager_is_away);
        plug({"eth0", "eth1"});
        fake_probes.dhcp_ports = {"eth0"};
        fake_router.network_state = -1;
        open_cycle_after_loss();
        serve_wished_pass();
        fake_router.bus_result = manager_is_away ? ERR_BUS_OBJECT : 0;
        fire(engine.start_wan_detect);
        move_role(1); // whose port is connecting still
        fake_router.bus_result = 0;
        fire(engine.start_wan_detect);
        EXPECT_EQ(port_model.wan_dev, dev("eth1"));
        EXPECT_EQ(candidates(), "");
        EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
        move_role(0);
        be_in(t_cycle_state::resting);
        update_wan_device(&port_model);
    }
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_to_a_port_that_is_connecting_still_after_the_old_one_was_judged_good_is_not_taken_back)
{
    plug({"eth0", "eth3"});
    fake_probes.dhcp_ports = {"eth0"};
    fake_router.network_state = NETWORK_CONNECTED;
    open_cycle_after_loss(); // its link is back within the 10 s
    serve_wished_pass();
    fire(engine.start_wan_detect);
    ASSERT_EQ(engine.result_dev, dev("eth0"));
    move_role(3);
    fake_router.network_state = NETWORK_CONNECTING;
    fire(engine.end);
    EXPECT_EQ(candidates(), "");
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_while_the_network_manager_is_away_leaves_the_old_port_listed_when_it_was_before)
{
    plug({"eth0", "eth1"});
    fake_router.network_state = NETWORK_CONNECTING;
    fake_router.bus_result = ERR_BUS_OBJECT;
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // which lists all ports
    fire(engine.start_wan_detect);
    move_role(1);
    fake_router.bus_result = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(candidates(), "eth0");
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_before_the_first_pass_begins_with_the_first_pause_again)
{
    plug({"eth0"});
    open_cycle();
    for (int i = 0; i < 3; i++) {
        fire(engine.look_again);
        fire(engine.start_wan_detect);
    }
    end_cycle_with(nullptr, t_decision::nobody);
    fire(engine.end);
    move_role(3);
    fire(engine.look_again);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    constexpr int BEHIND_ALL_STAGES_MS = 20'000;
    while (passed_ms() + armed(*next_timer()) < BEHIND_ALL_STAGES_MS)
        fire_after_its_time(*next_timer());
    EXPECT_EQ(engine.retry.armed_s, 30);
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_after_the_pass_judged_the_old_port_good_is_not_taken_back)
{
    plug({"eth0", "eth3"});
    fake_router.network_state = 0;
    open_cycle();
    ASSERT_EQ(engine.result_dev, dev("eth0"));
    move_role(3);
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_TRUE(port_model.wan_detect_running);
    fire(engine.start_wan_detect);
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_between_the_verdict_and_the_end_sends_the_cycle_back_to_look_at_the_new_port)
{
    let_eth2_win();
    ASSERT_EQ(engine.result_dev, dev("eth2"));
    move_role(3);
    plug({"eth3"});
    fake_router.network_state = 0;
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.result_dev, dev("eth3"));
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_to_a_port_that_does_not_work_yields_to_the_port_that_answers)
{
    let_eth2_win();
    move_role(3);
    fire(engine.end);
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(fake_router.count(TO_ETH2), 1);
    EXPECT_EQ(fake_router.count(TO_ETH0) + fake_router.count(TO_ETH3), 0);
}

// holds: role-moves-in-cycle
TEST_F(wan_role, moved_to_the_winner_itself_ends_the_cycle_without_a_switch)
{
    let_eth2_win();
    move_role(2);
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_EQ(read_file("/tmp/wan_detect_result"), "eth2");
}

// holds: role-at-foreign-port
TEST_F(wan_role, moved_during_a_cycle_to_a_port_that_is_none_of_ours_stays_there)
{
    let_eth2_win();
    write_switch_config(8, 7);
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_FALSE(file_exists("/tmp/wan_detect_result"));
}

// holds: role-at-foreign-port
TEST_F(wan_role, that_was_at_a_foreign_port_all_the_time_may_be_taken)
{
    port_model.wan_dev = nullptr;
    write_switch_config(8, 7);
    let_eth2_win();
    fire(engine.end);
    EXPECT_EQ(fake_router.count(TO_ETH2), 1);
}

// holds: live-role-at-foreign-port
TEST_F(wan_role, that_went_to_a_foreign_port_during_a_cycle_is_not_taken_by_a_later_one)
{
    let_eth2_win();
    write_switch_config(8, 7);
    fire(engine.end);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    open_cycle();
    EXPECT_TRUE(
        log->has("Info", "uloop_start_wan_detect", "The wan role is at eth7, none of the ports, and stays there!"));
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(fake_probes.count("dhcp all"), 1);
    EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
}

// holds: live-role-at-foreign-port
TEST_F(wan_role, that_went_to_a_foreign_port_between_cycles_is_not_given_to_the_former_one_that_seems_to_work)
{
    plug({"eth0"});
    write_switch_config(8, 7);
    fake_router.network_state = 0; // through the foreign port
    open_cycle();
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
}

// holds: live-role-at-foreign-port
TEST_F(wan_role, that_goes_to_a_foreign_port_in_the_middle_of_a_cycle_ends_it)
{
    open_cycle();
    write_switch_config(8, 7);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_EQ(engine.result_dev, nullptr);
}

// holds: live-role-at-foreign-port
TEST_F(wan_role, that_comes_back_from_a_foreign_port_is_adopted)
{
    plug({"eth3"});
    write_switch_config(8, 7);
    follow_moved_role();
    move_role(3);
    follow_moved_role();
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
}

// holds: role-returns
TEST_F(wan_role, that_comes_back_from_a_foreign_port_to_the_former_one_is_noticed)
{
    write_switch_config(8, 7);
    open_cycle();
    fire(engine.end);
    ASSERT_EQ(armed(engine.look_again), NOT_ARMED);
    move_role(0);
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(log->has("Info", "look_at_role", "The wan role was moved from eth7 to eth0!"));
    EXPECT_EQ(armed(engine.start_wan_detect), 10000) << "it has no link";
}

// holds: role-returns
TEST_F(wan_role, that_comes_back_from_a_foreign_port_is_looked_after_although_it_has_a_link)
{
    plug({"eth0", "eth3"});
    for (int port : {0, 3}) {
        write_switch_config(8, 7);
        open_cycle();
        fire(engine.end);
        ASSERT_EQ(armed(engine.look_again), NOT_ARMED);
        move_role(port);
        t_combo_state state = {};
        wan_combo_auto_switch(&state);
        EXPECT_EQ(armed(engine.look_again), 30000) << port;
    }
}

// holds: role-moves-in-fake-wan-removal
TEST_F(wan_role, given_to_a_foreign_port_while_the_fake_wan_port_was_given_up_leaves_no_result)
{
    end_while_the_fake_wan_port_is_given_up([] { write_switch_config(8, 7); });
    EXPECT_EQ(swaps(), 0);
    EXPECT_FALSE(std::filesystem::exists(WAN_RESULT_FILE));
}

// holds: role-moves-in-fake-wan-removal
TEST_F(wan_role, given_to_a_foreign_port_while_a_wan_port_that_works_ended_its_cycle_stays_there)
{
    plug({"eth0"});
    fake_router.network_state = 0;
    open_cycle();
    ASSERT_EQ(engine.result_dev, dev("eth0"));
    port_model.fake_wan = dev("eth4");
    fake_router.on_command = [](const std::string &command) {
        if (command == "/sbin/wanlan_port_reload")
            write_switch_config(8, 7);
    };
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_TRUE(port_model.role_is_away);
}

// holds: role-moves-at-end
TEST_F(wan_role, moved_while_a_cycle_without_a_result_ended_counts_as_a_loss_when_its_port_has_no_link)
{
    plug({"eth0"});
    open_cycle();
    end_cycle_with(nullptr, t_decision::nobody);
    move_role(3);
    fire(engine.end);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    EXPECT_TRUE(log->has("Info", "look_at_role", "The wan role was moved from eth0 to eth3!"));
}

// holds: winner-lost
TEST_F(wan_role, moved_to_a_winner_that_lost_its_link_meanwhile_is_no_success)
{
    let_eth2_win();
    ASSERT_EQ(engine.result_dev, dev("eth2"));
    unplug({"eth2"});
    move_role(2);
    fire(engine.end);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
}

// holds: role-moves-in-fake-wan-removal
TEST_F(wan_role, moved_while_the_fake_wan_port_was_given_up_is_not_taken)
{
    end_while_the_fake_wan_port_is_given_up([] { move_role(3); });
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
}

// holds: role-moves-in-fake-wan-removal
TEST_F(wan_role, moved_to_the_winner_while_the_fake_wan_port_was_given_up_needs_no_swap)
{
    end_while_the_fake_wan_port_is_given_up([] { move_role(2); });
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(port_model.wan_dev, dev("eth2"));
    EXPECT_TRUE(log->has("Debug", "switch_wan_to_dev", "Same wan device, no need to switch!"));
}

// holds: role-at-foreign-port
TEST_F(wan_role, that_goes_to_a_foreign_port_behind_a_verdict_makes_it_none)
{
    let_eth2_win();
    write_switch_config(8, 7);
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_NE(log->text().find("Verdict: none by role_is_foreign"), std::string::npos);
    EXPECT_FALSE(file_exists("/tmp/wan_detect_result"));
}

// holds: role-unreadable
TEST_F(wan_role, that_cannot_be_read_is_not_given_back_by_an_end_without_a_result)
{
    plug({"eth0"});
    open_cycle();
    end_cycle_with(nullptr, t_decision::nobody);
    write_config("switch", "");
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_FALSE(port_model.wan_detect_running);
}

// holds: role-read-silently
TEST_F(wan_role, a_pass_says_nothing_new_while_nothing_moved)
{
    open_cycle();
    log.reset();
    log = std::make_unique<t_log_capture>();
    fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Debug", "get_wan_device_name", "Successful get wan device:eth0"), 0);
    EXPECT_FALSE(log->has("Debug", "update_wan_device", "Entering function: update_wan_device!"));
}

// holds: role-moves-in-cycle
TEST_F(wan_role, the_old_port_leaves_the_candidates_with_the_role_unless_it_was_one_itself)
{
    open_cycle();
    move_role(3);
    fire(engine.start_wan_detect);
    EXPECT_EQ(candidates(), "");
}

// holds: role-moves-at-rest
TEST_F(wan_role, moved_while_no_cycle_is_open_is_adopted_when_the_combo_thread_sees_it)
{
    plug({"eth3"});
    move_role(3);
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    EXPECT_TRUE(log->has("Info", "look_at_role", "The wan role was moved from eth0 to eth3!"));
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
}

// holds: role-moves-at-rest
TEST_F(wan_role, adopted_by_a_port_without_a_link_counts_as_a_wan_loss)
{
    plug({"eth0"});
    move_role(3);
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    EXPECT_TRUE(log->has("Info", "wan_detect_process_link_change", "Wan down!! Begin detecting in 10000ms"));
}

// holds: role-moves-at-rest
TEST_F(wan_role, unknown_at_start_up_is_adopted_once_it_can_be_read)
{
    port_model.wan_dev = nullptr;
    port_model.wan_role[0] = '\0';
    plug({"eth0"});
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    EXPECT_EQ(port_model.wan_dev, dev("eth0"));
    EXPECT_TRUE(log->has("Info", "look_at_role", "The wan role was moved from null to eth0!"));
}

// holds: role-at-foreign-port
TEST_F(wan_role, at_a_foreign_port_is_left_alone_and_told_once)
{
    write_switch_config(8, 7);
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    follow_moved_role();
    follow_moved_role();
    EXPECT_EQ(port_model.wan_dev, dev("eth0"));
    EXPECT_EQ(log->count("Error", "update_wan_device", "Can't find the device:eth7 in hash list!"), 1);
    EXPECT_FALSE(engine.detecting);
}

// holds: role-moves-at-rest
TEST_F(wan_role, seen_by_another_thread_is_adopted_on_the_loop)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    plug({"eth3"});
    move_role(3);
    pthread_t thread;
    ASSERT_EQ(start_background_thread(
                  &thread,
                  [](void *) -> void * {
                      t_combo_state state = {};
                      wan_combo_auto_switch(&state);
                      leave_background();
                      return nullptr;
                  },
                  nullptr),
              0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(port_model.wan_dev, dev("eth0"));
    uloop_run_timeout(1000);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    detach_wishes_from_loop();
}

// holds: toggle-gives-nothing-back
TEST_F(wan_role, moved_while_the_sides_of_a_combo_port_were_read_is_not_taken_back_by_a_toggle)
{
    write_switch_config(5, 0, "", 0);
    dev("eth0")->is_combo = 1;
    fake_router.outputs["/etc/wan_detect/get_combo_state.sh port0"] = "{\"phy\":false,\"sfp\":true,\"serdes\":\"phy\"}";
    fake_router.on_capture = [](const std::string &) { move_role(3); };
    t_combo_state state = {};
    wan_combo_auto_switch(&state);
    EXPECT_EQ(swaps(), 0);
}

// holds: toggle-gives-nothing-back
TEST_F(wan_role, moved_while_a_toggle_waited_for_the_locks_is_not_taken_back)
{
    write_switch_config(5, 0, "", 0);
    dev("eth0")->is_combo = 1;
    fake_router.outputs["/etc/wan_detect/get_combo_state.sh port0"] = "{\"phy\":false,\"sfp\":true,\"serdes\":\"phy\"}";
    pthread_mutex_lock(&engine_gate->locks.combo_block_lock);
    std::thread switching([] {
        t_combo_state state = {};
        wan_combo_auto_switch(&state);
    });
    bool waits = false;
    for (int i = 0; i < 10000 && !waits; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        waits = pthread_mutex_trylock(&engine_gate->locks.link_block_lock) != 0;
        if (!waits)
            pthread_mutex_unlock(&engine_gate->locks.link_block_lock);
    }
    EXPECT_TRUE(waits);
    move_role(3);
    pthread_mutex_unlock(&engine_gate->locks.combo_block_lock);
    switching.join();
    EXPECT_EQ(swaps(), 0);
}

// holds: role-moves-before-swap
TEST_F(wan_role, moved_in_the_middle_of_a_switch_calls_it_off_and_eases_the_pauses)
{
    dev("eth2")->is_combo = 1;
    plug({"eth2", "eth3"});
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle();
    run_until_end();
    ASSERT_EQ(engine.result_dev, dev("eth2"));
    engine.retry.next_s = 240;     // after looks in vain
    engine.swap.dev = dev("eth1"); // that nobody could test
    fake_router.on_capture = [](const std::string &command) {
        if (command.find("get_combo_state") != std::string::npos)
            move_role(3);
    };
    fire(engine.end);
    EXPECT_EQ(swaps(), 0);
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    EXPECT_EQ(newest_cycle()->swap, t_swap::called_off);
    EXPECT_EQ(engine.swap.dev, nullptr);
    EXPECT_EQ(armed(engine.look_again), 30000);
}

} // namespace
