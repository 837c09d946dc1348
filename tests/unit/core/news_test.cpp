// SPDX-License-Identifier: MIT
#include "core/news.h"

#include <thread>

#include "core/background.h"
#include "core/cycle.h"
#include "core/link_change.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/chronicle.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/core/recorded_events.h"

namespace {

using t_events = std::vector<std::string>;

class news : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        recorded_events.clear();
    }
    // What is announced when the timer comes.
    static t_events told()
    {
        recorded_events.clear();
        fire(engine.news);
        return recorded_events;
    }
    static void ban(const char *port, int32_t seconds)
    {
        engine_handlers.begin_retries_anew(); // as the event does, before the ban
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port, seconds);
    }
};

} // namespace

// holds: events
TEST_F(news, a_cycle_is_announced_from_its_first_pass_to_its_end)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(recorded_events, t_events());
    fire(engine.start_wan_detect);
    EXPECT_EQ(recorded_events, (t_events{"cycle 1 begins"}));
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(recorded_events, (t_events{"cycle 1 begins", "swap eth1 0 21", "verdict 1", "cycle 1 ends"}));
}

// holds: events
TEST_F(news, a_link_that_changed_is_announced_once_with_what_it_is_now)
{
    wan_detect_process_link_change(dev("eth2"), true);
    wan_detect_process_link_change(dev("eth2"), false);
    EXPECT_EQ(told(), (t_events{"link eth2 down 2"}));
    EXPECT_FALSE(engine.news.pending);
    wan_detect_process_link_change(dev("eth2"), true);
    EXPECT_EQ(told(), (t_events{"link eth2 up 3"}));
}

// holds: events
TEST_F(news, a_link_that_another_thread_saw_is_announced_by_the_loop)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    std::thread([] { wan_detect_process_link_change(dev("eth2"), true); }).join();
    EXPECT_FALSE(engine.news.pending);
    uloop_run_timeout(1000); // until the wish is served
    EXPECT_EQ(recorded_events, t_events());
    EXPECT_EQ(told(), (t_events{"link eth2 up 1"}));
    detach_wishes_from_loop();
}

// holds: events
TEST_F(news, a_ban_is_announced_when_it_is_made_and_when_it_is_lifted)
{
    ban("eth2", 60);
    ban("eth3", BAN_FOREVER);
    EXPECT_EQ(told(), (t_events{"ban eth2 60", "ban eth3 -1"}));
    EXPECT_EQ(armed(engine.news), 61000) << "when the first one may be over";
    EXPECT_EQ(told(), t_events());
    ban("eth2", 0);
    ban("eth3", 0);
    EXPECT_EQ(told(), (t_events{"ban eth2 0", "ban eth3 0"}));
    EXPECT_FALSE(engine.news.pending);
}

// holds: events
TEST_F(news, a_ban_that_a_link_lifts_is_announced_with_it)
{
    ban("eth2", BAN_FOREVER);
    told();
    wan_detect_process_link_change(dev("eth2"), true);
    EXPECT_EQ(told(), (t_events{"link eth2 up 1", "ban eth2 0"}));
}

// holds: link-forgets
TEST_F(news, a_port_that_loses_its_link_forgets_who_was_there)
{
    t_port_notes &notes = dev("eth2")->notes;
    wan_detect_process_link_change(dev("eth2"), true);
    note_lan_host(dev("eth2"));
    note_answer(dev("eth2"), "dhcp");
    told();
    EXPECT_STREQ(notes.answer, "dhcp");
    EXPECT_EQ(notes.lan_hosts, 1);
    wan_detect_process_link_change(dev("eth2"), false);
    told();
    EXPECT_EQ(notes.answer, nullptr);
    EXPECT_EQ(notes.answered_s, 0u);
    EXPECT_EQ(notes.lan_hosts, 0);
    EXPECT_EQ(notes.lan_seen_s, 0u);
}
