// SPDX-License-Identifier: MIT
#include "core/progress.h"

#include "core/cycle.h"
#include "core/link_change.h"
#include "core/proto_stage.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

class progress : public t_engine_test {
protected:
    static t_progress now()
    {
        t_progress told = {};
        engine_handlers.tell_progress(&told);
        return told;
    }
};

} // namespace

// holds: progress
TEST_F(progress, at_rest_nothing_is_awaited)
{
    EXPECT_STREQ(now().state, "resting");
    EXPECT_EQ(now().next, nullptr);
    EXPECT_EQ(now().retry_pause_s, 30);
    EXPECT_EQ(now().swap_pause_s, 21);
}

// holds: progress
TEST_F(progress, the_timer_that_is_due_first_is_awaited)
{
    start_wan_detect_all(60000);
    EXPECT_STREQ(now().next, "cycle");
    EXPECT_NEAR(now().next_ms, 60000, 1000);
    plug({"eth0"});
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_STREQ(now().state, "waiting");
    EXPECT_STREQ(now().next, "pass");
    EXPECT_NEAR(now().next_ms, WAN_DOWN_DELAY_MS, 1000);
}

// holds: progress
TEST_F(progress, every_state_of_a_cycle_has_its_word)
{
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_STREQ(now().state, "probing");
    EXPECT_STREQ(now().next, "answers");
    fire(engine.proto_detect_start);
    EXPECT_STREQ(now().next, "judgement");
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    EXPECT_STREQ(now().state, "judging");
    fire(engine.using_proto_detect);
    EXPECT_STREQ(now().state, "looking");
    end_cycle_with(nullptr, t_decision::nobody);
    EXPECT_STREQ(now().state, "ending");
    EXPECT_STREQ(now().next, "end");
    be_in(t_cycle_state::asking_arp);
    EXPECT_STREQ(now().state, "asking_arp");
    be_in(t_cycle_state::asking_dns);
    EXPECT_STREQ(now().state, "asking_dns");
}

// holds: progress
TEST_F(progress, with_nobody_left_the_next_look_is_awaited_and_not_the_poll_before_it)
{
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    ASSERT_TRUE(engine.start_wan_detect.pending);
    EXPECT_STREQ(now().next, "look");
    EXPECT_NEAR(now().next_ms, 30000, 1000);
    engine.possible_wan_dev_list.add(dev("eth1"));
    EXPECT_STREQ(now().next, "pass");
}

// holds: progress
TEST_F(progress, the_pause_between_looks_is_the_one_that_runs)
{
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(now().retry_pause_s, 30);
    ASSERT_TRUE(engine.start_wan_detect.pending);
    EXPECT_STREQ(now().next, "look") << "not the polls until then";
    EXPECT_NEAR(now().next_ms, 30000, 1000);
    fire(engine.look_again);
    EXPECT_EQ(now().retry_pause_s, 60);
    EXPECT_STREQ(now().next, "pass");
    fire(engine.start_wan_detect);
    EXPECT_EQ(now().retry_pause_s, 60);
}

// holds: progress
TEST_F(progress, a_daemon_whose_loop_has_not_begun_is_starting)
{
    EXPECT_TRUE(now().starting);
    uloop_timeout_set(&engine.heartbeat, 0);
    EXPECT_FALSE(now().starting);
}
