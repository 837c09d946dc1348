// SPDX-License-Identifier: MIT
// Off means off: whatever a cycle is doing when detection is switched off, no role is moved any more.
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *OFF = "exiting detecting due to switch off!";

class switched_off : public t_engine_test {
protected:
    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    void expect_an_end_without_a_result()
    {
        EXPECT_EQ(engine.result_dev, nullptr);
        fire(engine.end);
        EXPECT_FALSE(port_model.wan_detect_running);
        EXPECT_TRUE(fake_router.commands.empty());
        EXPECT_FALSE(file_exists("/tmp/wan_detect_result"));
        EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
        EXPECT_EQ(armed(engine.look_again), NOT_ARMED);
    }
};

// holds: off-in-cycle
TEST_F(switched_off, before_the_pass_nobody_is_asked)
{
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    port_model.enable = 0;
    fire(engine.start_wan_detect);
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", OFF));
    expect_an_end_without_a_result();
}

// holds: off-in-cycle
TEST_F(switched_off, before_the_probes_go_out_none_does)
{
    plug({"eth1"});
    open_cycle();
    port_model.enable = 0;
    fire(engine.proto_detect_start);
    EXPECT_EQ(fake_probes.count("dhcp all"), 0);
    EXPECT_TRUE(log->has("Info", "uloop_proto_detect_start", OFF));
    expect_an_end_without_a_result();
}

// holds: off-in-cycle
TEST_F(switched_off, while_answers_are_collected_the_cycle_ends_at_its_next_look)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle();
    fire(engine.proto_detect_start);
    port_model.enable = 0;
    fire(engine.using_proto_detect);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect", OFF));
    expect_an_end_without_a_result();
    EXPECT_FALSE(port_model.proto_detect_running);
}

// holds: off-in-cycle
TEST_F(switched_off, answers_that_are_collected_late_do_not_bring_the_cycle_back)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle();
    fire(engine.proto_detect_start);
    port_model.enable = 0; // by a call that blocked for so long that all that follows is overdue
    fire(engine.using_proto_detect);
    fire(engine.proto_detect_end);
    EXPECT_EQ(engine.state, t_cycle_state::ending);
    expect_an_end_without_a_result();
    EXPECT_EQ(engine.state, t_cycle_state::resting);
}

// holds: off-in-cycle
TEST_F(switched_off, before_the_search_by_arp_nobody_is_asked)
{
    set_connection("static", "config static 'static'\n\toption gateway '10.0.0.1'\n");
    plug({"eth1"});
    open_cycle();
    port_model.enable = 0;
    fire(engine.using_arp);
    EXPECT_EQ(fake_probes.count("arp 10.0.0.1"), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_arp", OFF));
    expect_an_end_without_a_result();
}

// holds: off-in-cycle
TEST_F(switched_off, before_the_names_are_asked_for_nobody_is_asked)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    open_cycle();
    while (!engine.using_dns.pending)
        fire(engine.proto_detect_start.pending ? engine.proto_detect_start
             : engine.proto_detect_end.pending ? engine.proto_detect_end
                                               : engine.using_proto_detect);
    port_model.enable = 0;
    fire(engine.using_dns);
    EXPECT_EQ(fake_probes.count("dns"), 0);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_dns", OFF));
    expect_an_end_without_a_result();
}

// holds: off-in-cycle
TEST_F(switched_off, behind_the_verdict_the_role_stays_where_it_is)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle();
    run_until_end();
    ASSERT_EQ(engine.result_dev, dev("eth1"));
    port_model.enable = 0;
    fire(engine.end);
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_FALSE(file_exists("/tmp/wan_detect_result"));
    EXPECT_TRUE(log->has("Warning", "uloop_wan_detect_end", "Detect wan result is null! just keep the original wan"));
}

// holds: off-behind-verdict
TEST_F(switched_off, a_loss_behind_the_verdict_opens_no_other_cycle)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle();
    run_until_end();
    uloop_timeout_set(&engine.start_wan_detect, 1000);
    port_model.enable = 0;
    fire(engine.end);
    EXPECT_FALSE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
}

// holds: off-in-cycle
TEST_F(switched_off, a_request_for_one_port_goes_on)
{
    const t_proto_detect_request request = {.timeout_ms = 2000, .dev = dev("eth1"), .protocol = nullptr};
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    port_model.enable = 0;
    ASSERT_EQ(engine_handlers.start_proto_detect(&request), 0);
    fire(engine.proto_detect_start);
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
}

} // namespace
