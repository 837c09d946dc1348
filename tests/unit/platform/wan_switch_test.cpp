// SPDX-License-Identifier: MIT
// Moving the WAN role and toggling combo ports: the command, the locks around it, and what follows.
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "adapters/link_status.h"
#include "adapters/wan_switch.h"
#include "model/chronicle.h"
#include "tests/unit/platform/adapter_fixture.h"

namespace {

using namespace std::chrono_literals;

class wan_switch : public t_adapter_test {
protected:
    wan_switch() : eth0(add_port("eth0", 0)), eth3(add_port("eth3", 3)), combo(add_combo_port("eth5", 5, SUB_PORT_PHY))
    {
        configure_wan("eth0");
        port_model.enable = 1;
        install_program("network_lanwan_swap");
        combo_says(R"({"phy":true,"sfp":false,"serdes":"phy"})");
    }
    static void combo_says(const std::string &text)
    {
        write_program("/etc/wan_detect/get_combo_state.sh", "#!/bin/sh\necho '" + text + "'\n");
    }
    // As the combo switch does it, with the port that has the role.
    void toggle()
    {
        configure_wan(combo->name);
        toggle_combo_state(combo);
    }
    static std::string swaps() { return calls_of("network_lanwan_swap"); }

    bool is_taken(pthread_mutex_t &lock)
    {
        if (pthread_mutex_trylock(&lock) != 0)
            return true;
        pthread_mutex_unlock(&lock);
        return false;
    }
    bool both_taken() { return is_taken(gate.locks.link_block_lock) && is_taken(gate.locks.combo_block_lock); }
    bool none_taken() { return !is_taken(gate.locks.link_block_lock) && !is_taken(gate.locks.combo_block_lock); }
    bool both_blocked() const { return gate.link_trigger_blocked == 1 && gate.combo_switch_blocked == 1; }
    bool none_blocked() const { return gate.link_trigger_blocked == 0 && gate.combo_switch_blocked == 0; }

    // Lets the swap command wait until the test has looked around; true when both locks were held meanwhile.
    template <typename action> bool holds_both_locks_while_the_command_runs(action act)
    {
        install_program("network_lanwan_swap", "touch /tmp/calls_of_running\n"
                                               "while [ -e /tmp/calls_of_running ]; do sleep 0.01; done");
        std::thread acting(act);
        while (!file_exists("/tmp/calls_of_running"))
            std::this_thread::sleep_for(1ms);
        bool held = both_taken();
        remove("/tmp/calls_of_running");
        acting.join();
        return held;
    }

    // True when the action, kept from the combo lock, waits for it with the link lock in hand.
    template <typename action> bool takes_the_link_lock_first(action act)
    {
        pthread_mutex_lock(&gate.locks.combo_block_lock);
        std::thread acting(act);
        auto end = std::chrono::steady_clock::now() + 3s;
        while (!is_taken(gate.locks.link_block_lock) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(1ms);
        bool taken = is_taken(gate.locks.link_block_lock);
        bool nothing_run = swaps().empty();
        pthread_mutex_unlock(&gate.locks.combo_block_lock);
        acting.join();
        return taken && nothing_run;
    }

    t_device *eth0, *eth3, *combo;
    t_log_capture log;
};

} // namespace

// holds: confirming-cycle
TEST_F(wan_switch, makes_another_port_the_wan_port)
{
    switch_wan_to_dev(eth3, 0);
    EXPECT_EQ(swaps(), "set port3\n");
    EXPECT_TRUE(both_blocked());
    EXPECT_TRUE(none_taken());
    EXPECT_EQ(engine.detections, std::vector<int>{21000});
    const char *function = "switch_wan_to_dev";
    EXPECT_TRUE(
        log.has("Debug", function, "wan_detect:Switching wan dev to eth3 execute:network_lanwan_swap set port3!"));
    EXPECT_TRUE(log.has("Debug", function,
                        "wan_detect:success switch! Block update eth link & combo switch for 20s!! Start re-detect all "
                        "in 21s!"));
    EXPECT_TRUE(log.has("Notice", function, "wan_detect:success switching wan dev to eth3, port:3!"));
}

// holds: switch-to-current
TEST_F(wan_switch, to_the_current_wan_port_does_nothing)
{
    switch_wan_to_dev(eth0, 0);
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
    EXPECT_TRUE(engine.detections.empty());
    EXPECT_TRUE(log.has("Debug", "switch_wan_to_dev", "Same wan device, no need to switch!"));
}

// holds: switch-to-current
TEST_F(wan_switch, to_the_current_wan_port_happens_when_forced)
{
    switch_wan_to_dev(eth0, 1);
    EXPECT_EQ(swaps(), "set port0\n");
    EXPECT_TRUE(both_blocked());
    EXPECT_EQ(engine.detections, std::vector<int>{21000});
}

TEST_F(wan_switch, keeps_the_side_that_a_combo_port_uses)
{
    switch_wan_to_dev(combo, 0);
    EXPECT_EQ(swaps(), "set port5 phy\n");
}

TEST_F(wan_switch, asks_a_combo_port_for_its_side_first)
{
    combo_says(R"({"phy":false,"sfp":true,"serdes":"sfp"})");
    switch_wan_to_dev(combo, 0);
    EXPECT_EQ(swaps(), "set port5 sfp\n");
    EXPECT_EQ(combo->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(combo->sfp_link, 1);
}

// holds: role-moves-before-swap
TEST_F(wan_switch, leaves_the_role_where_somebody_put_it_while_a_combo_port_was_asked)
{
    write_program("/etc/wan_detect/get_combo_state.sh", "#!/bin/sh\nsed -i s/eth0/eth3/ /etc/config/switch\n"
                                                        "echo '{\"phy\":true,\"sfp\":false,\"serdes\":\"phy\"}'\n");
    switch_wan_to_dev(combo, 0);
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
    EXPECT_TRUE(none_taken());
    EXPECT_TRUE(engine.detections.empty());
    EXPECT_TRUE(
        log.has("Info", "switch_wan_to_dev", "The wan role can't be seen at eth0 any more, so it stays where it is!"));
}

// holds: role-moves-before-swap
TEST_F(wan_switch, leaves_the_role_where_somebody_put_it_while_nobody_could_read_it)
{
    port_model.wan_dev = eth3;
    switch_wan_to_dev(combo, 0);
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(
        log.has("Info", "switch_wan_to_dev", "The wan role is not at eth3 any more, whoever moved it keeps it!"));
    port_model.wan_dev = eth0;
    port_model.role_is_away = true;
    switch_wan_to_dev(combo, 0);
    EXPECT_EQ(swaps(), "");
    switch_wan_to_dev(combo, 1);
    EXPECT_EQ(swaps(), "set port5 phy\n");
}

// holds: role-moves-before-swap
TEST_F(wan_switch, takes_no_role_that_is_no_ports_any_more_or_cannot_be_read)
{
    for (const char *what_happens : {"sed -i s/eth0/wwan0/ /etc/config/switch", "rm /etc/config/switch"}) {
        configure_wan("eth0");
        write_program("/etc/wan_detect/get_combo_state.sh",
                      std::string("#!/bin/sh\n") + what_happens +
                          "\necho '{\"phy\":true,\"sfp\":false,\"serdes\":\"phy\"}'\n");
        switch_wan_to_dev(combo, 0);
        EXPECT_EQ(swaps(), "") << what_happens;
        EXPECT_FALSE(
            log.has("Info", "switch_wan_to_dev", "The wan role is not at eth0 any more, whoever moved it keeps it!"))
            << "nobody saw it move";
    }
}

// holds: role-moves-before-swap
TEST_F(wan_switch, takes_no_role_that_moved_while_it_waited_for_the_locks)
{
    pthread_mutex_lock(&gate.locks.combo_block_lock);
    std::thread switching([this] { switch_wan_to_dev(eth3, 0); });
    while (!is_taken(gate.locks.link_block_lock))
        std::this_thread::sleep_for(1ms);
    configure_wan("eth5");
    pthread_mutex_unlock(&gate.locks.combo_block_lock);
    switching.join();
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(engine.detections.empty());
}

TEST_F(wan_switch, does_not_happen_while_the_current_port_is_unknown)
{
    remove_config("switch");
    switch_wan_to_dev(eth3, 0);
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
    EXPECT_TRUE(log.has("Error", "switch_wan_to_dev", "get_wan_device_name failed!"));
}

TEST_F(wan_switch, does_not_ask_for_the_current_port_when_forced)
{
    remove_config("switch");
    switch_wan_to_dev(eth3, 1);
    EXPECT_EQ(swaps(), "set port3\n");
}

TEST_F(wan_switch, to_nothing_is_refused)
{
    t_device nameless = {};
    switch_wan_to_dev(nullptr, 1);
    switch_wan_to_dev(&nameless, 1);
    EXPECT_EQ(log.count("Error", "switch_wan_to_dev", "Invalid dev!"), 2);
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
}

// holds: chronicle-swaps
TEST_F(wan_switch, does_not_look_at_the_exit_status_of_the_command_but_tells_it)
{
    begin_chronicle();
    note_cycle_begins();
    install_program("network_lanwan_swap", "exit 3");
    switch_wan_to_dev(eth3, 0);
    EXPECT_TRUE(both_blocked());
    EXPECT_EQ(engine.detections, std::vector<int>{21000});
    EXPECT_EQ(newest_cycle()->swap_status, 3);
    EXPECT_EQ(chronicle.asked_opener, t_opener::after_swap);
    EXPECT_EQ(chronicle.counters.swaps_asked, 1u);
}

// holds: swap-pause-doubles
TEST_F(wan_switch, waits_as_long_as_the_engine_says_and_tells_it)
{
    engine_handlers.begin_swap = [](t_device *) { return 84; };
    switch_wan_to_dev(eth3, 0);
    EXPECT_EQ(engine.detections, std::vector<int>{84000});
    EXPECT_TRUE(log.has("Debug", "switch_wan_to_dev",
                        "wan_detect:success switch! Block update eth link & combo switch for 20s!! Start re-detect all "
                        "in 84s!"));
}

TEST_F(wan_switch, survives_a_missing_command_and_a_missing_engine)
{
    remove("/usr/sbin/network_lanwan_swap");
    engine_handlers = {};
    testing::internal::CaptureStderr();
    switch_wan_to_dev(eth3, 0);
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(both_blocked());
    EXPECT_TRUE(none_taken());
}

// holds: switch-locks
TEST_F(wan_switch, holds_both_locks_while_the_command_runs_and_sets_the_flags_afterwards)
{
    EXPECT_TRUE(holds_both_locks_while_the_command_runs([this] { switch_wan_to_dev(eth3, 0); }));
    EXPECT_TRUE(both_blocked());
    EXPECT_TRUE(none_taken());
}

TEST_F(wan_switch, asks_for_the_new_detection_with_both_locks_held_and_both_flags_set)
{
    bool held = false, blocked = false;
    static std::function<void()> look_around;
    look_around = [&] {
        held = both_taken();
        blocked = both_blocked();
    };
    engine_handlers.start_wan_detect_all = [](int) { look_around(); };
    switch_wan_to_dev(eth3, 0);
    EXPECT_TRUE(held);
    EXPECT_TRUE(blocked);
}

// holds: switch-locks
TEST_F(wan_switch, takes_the_link_lock_before_the_combo_lock)
{
    EXPECT_TRUE(takes_the_link_lock_first([this] { switch_wan_to_dev(eth3, 0); }));
}

TEST_F(wan_switch, a_toggle_takes_the_link_lock_before_the_combo_lock)
{
    EXPECT_TRUE(takes_the_link_lock_first([this] { toggle(); }));
}

// holds: switch-locks
TEST_F(wan_switch, a_toggle_holds_both_locks_while_the_command_runs)
{
    EXPECT_TRUE(holds_both_locks_while_the_command_runs([this] { toggle(); }));
    EXPECT_TRUE(both_blocked());
    EXPECT_TRUE(none_taken());
}

TEST_F(wan_switch, a_toggle_moves_a_combo_port_from_copper_to_sfp)
{
    combo->phy_link = 1;
    combo_says(R"({"phy":true,"sfp":true,"serdes":"sfp"})");
    toggle();
    EXPECT_EQ(swaps(), "set port5 sfp\n");
    EXPECT_TRUE(both_blocked());
    EXPECT_TRUE(engine.detections.empty());
    const char *function = "toggle_combo_state";
    EXPECT_TRUE(
        log.has("Debug", function,
                "wan_detect:Switching wan dev to eth5, sub_port:sfp execute:network_lanwan_swap set port5 sfp!"));
    EXPECT_TRUE(log.has("Notice", function,
                        "Toggle combo eth5 state, phy up, sfp down, serdes was using phy, success switch it to sfp!"));
    EXPECT_TRUE(log.has("Debug", function,
                        "toggle_combo_state:success switch combo! Block update eth link & combo switch for 20s!"));
}

TEST_F(wan_switch, a_toggle_moves_a_combo_port_from_sfp_to_copper)
{
    combo->sub_port = SUB_PORT_SFP;
    combo->sfp_link = 1;
    toggle();
    EXPECT_EQ(swaps(), "set port5 phy\n");
    EXPECT_TRUE(log.has("Notice", "toggle_combo_state",
                        "Toggle combo eth5 state, phy down, sfp up, serdes was using sfp, success switch it to phy!"));
}

TEST_F(wan_switch, a_toggle_reads_the_state_of_the_port_anew_at_its_end)
{
    combo_says(R"({"phy":false,"sfp":true,"serdes":"sfp"})");
    toggle();
    EXPECT_EQ(combo->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(combo->sfp_link, 1);
}

// holds: toggle-after-switch
TEST_F(wan_switch, a_toggle_that_waited_for_the_locks_does_not_undo_the_switch_that_held_them)
{
    pthread_mutex_lock(&gate.locks.link_block_lock);
    std::thread toggling([this] { toggle(); });
    std::this_thread::sleep_for(20ms);
    gate.link_trigger_blocked = gate.combo_switch_blocked = 1; // as a switch leaves them
    pthread_mutex_unlock(&gate.locks.link_block_lock);
    toggling.join();
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_taken());
}

// holds: toggle-after-switch
TEST_F(wan_switch, a_toggle_that_waited_for_the_locks_does_nothing_once_detection_is_off)
{
    port_model.enable = 0;
    toggle();
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
    EXPECT_TRUE(
        log.has("Info", "toggle_combo_state", "Device eth5 keeps its side, as it may not be the wan port any more!"));
}

TEST_F(wan_switch, a_toggle_of_nothing_or_of_a_plain_port_is_refused)
{
    t_device nameless = {};
    nameless.is_combo = 1;
    toggle_combo_state(nullptr);
    toggle_combo_state(&nameless);
    toggle_combo_state(eth3);
    EXPECT_EQ(log.count("Error", "toggle_combo_state", "Invalid dev!"), 2);
    EXPECT_TRUE(log.has("Error", "toggle_combo_state", "device eth3 not a combo device!"));
    EXPECT_EQ(swaps(), "");
    EXPECT_TRUE(none_blocked());
}
