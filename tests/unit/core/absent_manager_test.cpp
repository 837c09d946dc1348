// SPDX-License-Identifier: MIT
// A bus or a network manager that is away says nothing about the network: how long a pass waits for it.
#include "core/cycle.h"
#include "core/engine.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr const char *AWAY = "The network manager is away, asking again in 1000ms!";
constexpr int BUS_WITHOUT_MANAGER = ERR_BUS_OBJECT;

class absent_manager : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        while_time_passes = [](int ms) { fake_clock.advance_ms(ms); };
    }
    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
};

// holds: absent-manager
TEST_F(absent_manager, a_working_wan_port_is_not_dropped_while_the_bus_is_away)
{
    plug({"eth0", "eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", AWAY));
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(fake_probes.count("dhcp all"), 0);
    fake_router.bus_result = 0;
    fake_router.network_state = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.result_dev, dev("eth0"));
}

// holds: absent-manager
TEST_F(absent_manager, after_ten_waits_the_port_is_judged_all_the_same)
{
    plug({"eth0", "eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 1; i < 10; i++) {
        ASSERT_EQ(armed(engine.start_wan_detect), 1000) << i;
        fire(engine.start_wan_detect);
    }
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 10);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

// holds: absent-manager
TEST_F(absent_manager, an_absence_is_waited_for_once_and_the_next_one_again)
{
    plug({"eth0"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 0; i < 20; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 10);
    fake_router.bus_result = 0;
    fire(engine.start_wan_detect);
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    for (int i = 0; i < 20; i++)
        fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 20);
}

// holds: absent-manager
TEST_F(absent_manager, the_next_absence_is_waited_for_although_nobody_saw_the_last_one_end)
{
    plug({"eth0", "eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    port_model.enable = 0;
    run_until_end();
    fire(engine.end);
    port_model.enable = 1;
    fake_clock.advance_ms(21'000);
    open_cycle();
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
}

// holds: absent-manager
TEST_F(absent_manager, one_that_is_seen_again_within_20_s_is_the_same_absence)
{
    plug({"eth0", "eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    end_cycle_with(nullptr, t_decision::nobody);
    fire(engine.end);
    fake_clock.advance_ms(19'000);
    open_cycle();
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

// holds: absent-manager
TEST_F(absent_manager, one_of_an_hour_is_waited_for_once_in_a_cycle)
{
    plug({"eth0", "eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    constexpr int HOUR_MS = 3'600'000;
    while (passed_ms() < HOUR_MS)
        fire_after_its_time(*next_timer());
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 10);
    EXPECT_GE(fake_probes.count("dhcp all"), 10);
}

// holds: absent-manager
TEST_F(absent_manager, the_next_absence_is_waited_for_when_a_look_at_rest_saw_the_last_one_end)
{
    plug({"eth0", "eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    end_cycle_with(nullptr, t_decision::nobody);
    fire(engine.end);
    fake_router.bus_result = 0;
    fake_router.network_state = 0;
    fire(engine.look_again); // in the first seconds, as the rest of a pause that was cut
    ASSERT_FALSE(engine.init_wan_detect_all.pending);
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(armed(engine.proto_detect_start), NOT_ARMED);
}

// holds: absent-manager
TEST_F(absent_manager, the_next_absence_in_a_cycle_is_waited_for_although_nobody_was_asked_in_between)
{
    plug({"eth0"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    for (int i = 0; i < 10; i++)
        fire(engine.start_wan_detect);
    unplug({"eth0"}); // the modem is off for the night: nobody is asked
    for (int i = 0; i < 100; i++)
        fire_after_its_time(engine.start_wan_detect);
    plug({"eth0"}); // and the manager restarts with the link
    fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 11);
}

// holds: absent-manager
TEST_F(absent_manager, who_calls_all_the_time_does_not_put_the_judgement_off)
{
    plug({"eth0", "eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    for (int call_ms = 0; call_ms <= 60'000; call_ms += 8'000) {
        start_wan_detect_all(0);
        while (passed_ms() + armed(*next_timer()) < call_ms + 8'000)
            fire_after_its_time(*next_timer());
    }
    EXPECT_EQ(log->count("Info", "uloop_start_wan_detect", AWAY), 10);
    EXPECT_GE(fake_probes.count("dhcp all"), 1);
}

// holds: absent-manager
TEST_F(absent_manager, a_wan_port_without_a_link_is_judged_at_once)
{
    plug({"eth2"});
    fake_router.bus_result = BUS_WITHOUT_MANAGER;
    open_cycle();
    EXPECT_TRUE(fake_router.bus_calls.empty());
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
}

} // namespace
