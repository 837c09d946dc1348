// SPDX-License-Identifier: MIT
#include "core/combo_switch.h"

#include "core/background.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *COMBO_COMMAND = "/etc/wan_detect/get_combo_state.sh port0";
constexpr const char *TO_SFP = "network_lanwan_swap set port0 sfp";
constexpr const char *TO_PHY = "network_lanwan_swap set port0 phy";

class combo_switch : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        write_switch_config(5, 0, "", 0);
        dev("eth0")->is_combo = 1;
    }
    static void sides(bool phy, bool sfp, const char *serdes)
    {
        fake_router.outputs[COMBO_COMMAND] = std::string("{\"phy\":") + (phy ? "true" : "false") +
                                             ",\"sfp\":" + (sfp ? "true" : "false") + ",\"serdes\":\"" + serdes + "\"}";
    }
    static void prefer(const std::string &side)
    {
        write_config("network",
                     "config auto_wan_detect 'auto_wan_detect'\n\toption wan_combo_first_priority '" + side + "'\n");
    }
    // The swap command that a pass runs for these sides; empty for none.
    std::string decide(bool phy, bool sfp, const char *serdes, t_combo_state *state)
    {
        state->pass = 0;
        fake_router.commands.clear();
        sides(phy, sfp, serdes);
        wan_combo_auto_switch(state);
        return fake_router.commands.empty() ? "" : fake_router.commands.front();
    }
};

// holds: combo-falls-back
TEST_F(combo_switch, copper_first_falls_back_to_sfp_and_moves_back)
{
    t_combo_state state = {};
    EXPECT_EQ(decide(true, false, "phy", &state), "");
    EXPECT_EQ(decide(false, true, "phy", &state), TO_SFP);
    EXPECT_EQ(decide(false, true, "sfp", &state), "");
    EXPECT_EQ(decide(true, true, "sfp", &state), TO_PHY);
    EXPECT_EQ(decide(true, true, "phy", &state), "");
}

// holds: combo-falls-back
TEST_F(combo_switch, sfp_first_falls_back_to_copper_and_moves_back)
{
    prefer("sfp");
    t_combo_state state = {};
    EXPECT_EQ(decide(true, true, "phy", &state), TO_SFP);
    EXPECT_EQ(decide(true, false, "sfp", &state), TO_PHY);
    EXPECT_EQ(decide(true, false, "phy", &state), "");
}

// holds: combo-falls-back
TEST_F(combo_switch, nothing_changes_while_neither_side_has_a_link)
{
    prefer("sfp");
    t_combo_state state = {};
    EXPECT_EQ(decide(false, false, "phy", &state), "");
    EXPECT_EQ(decide(false, false, "sfp", &state), "");
}

TEST_F(combo_switch, a_toggle_blocks_both_threads_once)
{
    t_combo_state state = {};
    decide(false, true, "phy", &state);
    EXPECT_TRUE(engine_gate->link_trigger_blocked);
    // The pass that toggled sees its own flag at its end.
    EXPECT_TRUE(
        log->has("Debug", "wan_combo_auto_switch", "Block wan_combo_auto_switch for 20s due to success switch wan!"));
    EXPECT_FALSE(engine_gate->combo_switch_blocked);
    EXPECT_EQ(wan_combo_auto_switch(&state), 1u);
}

// holds: combo-cadence
TEST_F(combo_switch, the_preference_is_read_again_every_ten_passes)
{
    t_combo_state state = {};
    sides(true, true, "phy");
    wan_combo_auto_switch(&state);
    EXPECT_FALSE(state.sfp_first);
    prefer("sfp");
    for (int pass = 1; pass < 10; pass++) {
        wan_combo_auto_switch(&state);
        EXPECT_FALSE(state.sfp_first) << pass;
    }
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(state.sfp_first);
    EXPECT_EQ(log->count("Debug", "wan_combo_auto_switch",
                         "Success get network.auto_wan_detect.wan_combo_first_priority=phy"),
              1);
}

// holds: combo-cadence
TEST_F(combo_switch, decides_on_every_second_pass_only)
{
    t_combo_state state = {};
    state.pass = 1;
    sides(false, true, "phy");
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(fake_router.commands.empty());
    wan_combo_auto_switch(&state);
    EXPECT_EQ(fake_router.count(TO_SFP), 1);
}

// holds: combo-cadence
TEST_F(combo_switch, the_pass_counter_wraps_from_59_to_0)
{
    t_combo_state state = {59, false};
    wan_combo_auto_switch(&state);
    EXPECT_EQ(state.pass, 0u);
}

// holds: combo-cadence
TEST_F(combo_switch, a_missing_preference_means_copper)
{
    remove_config("network");
    t_combo_state state = {0, true};
    sides(true, true, "phy");
    wan_combo_auto_switch(&state);
    EXPECT_FALSE(state.sfp_first);
    EXPECT_TRUE(log->has("Error", "wan_combo_auto_switch",
                         "Unable to get network.auto_wan_detect.wan_combo_first_priority, treat it as phy!"));
    EXPECT_TRUE(
        log->has("Debug", "wan_combo_auto_switch", "Success get network.auto_wan_detect.wan_combo_first_priority=phy"));
}

// holds: combo-cadence
TEST_F(combo_switch, an_unknown_preference_means_copper)
{
    prefer("fibre");
    t_combo_state state = {0, true};
    wan_combo_auto_switch(&state);
    EXPECT_FALSE(state.sfp_first);
    EXPECT_TRUE(log->has("Error", "wan_combo_auto_switch",
                         "network.auto_wan_detect.wan_combo_first_priority only support phy/sfp, fibre not supported! "
                         "treat it as phy"));
}

TEST_F(combo_switch, a_plain_wan_port_is_left_alone)
{
    dev("eth0")->is_combo = 0;
    t_combo_state state = {};
    EXPECT_EQ(decide(false, true, "phy", &state), "");
    EXPECT_TRUE(
        log->has("Debug", "wan_combo_auto_switch", "Device eth0 is not combo device, ignore auto combo state change!"));
}

TEST_F(combo_switch, an_unreadable_or_unknown_wan_port_is_told)
{
    t_combo_state state = {};
    remove_config("switch");
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(log->has("Error", "wan_combo_auto_switch", "get_wan_device_name failed!"));
    write_config("switch", "config switch_port 'port9'\n\toption ifname 'eth9'\nconfig wan 'wan'\n"
                           "\toption switch_port 'port9'\n");
    state.pass = 0;
    wan_combo_auto_switch(&state);
    EXPECT_TRUE(log->has("Error", "wan_combo_auto_switch", "Can't find the device:eth9 in hash list!"));
}

TEST_F(combo_switch, rests_while_detection_is_off)
{
    port_model.enable = 0;
    t_combo_state state = {};
    EXPECT_EQ(decide(false, true, "phy", &state), "");
    EXPECT_TRUE(log->lines().empty());
    EXPECT_EQ(state.pass, 1u);
}

// holds: threads-rest-after-switch
TEST_F(combo_switch, sleeps_20_s_once_after_a_switch)
{
    engine_gate->combo_switch_blocked = 1;
    t_combo_state state = {1, false};
    EXPECT_EQ(wan_combo_auto_switch(&state), 20u);
    EXPECT_EQ(wan_combo_auto_switch(&state), 1u);
}

TEST_F(combo_switch, the_thread_parks_when_the_process_ends)
{
    pthread_t thread;
    ASSERT_EQ(start_background_thread(&thread, wan_combo_switch_thread, nullptr), 0);
    EXPECT_TRUE(stop_background_threads());
    EXPECT_EQ(pthread_cancel(thread), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
}

} // namespace
