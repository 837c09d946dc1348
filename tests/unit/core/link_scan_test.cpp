// SPDX-License-Identifier: MIT
#include "core/link_scan.h"

#include "core/background.h"
#include "model/banned.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

class link_scan : public t_engine_test {};

// holds: scan-order
TEST_F(link_scan, a_change_pulls_the_trigger_and_an_unchanged_port_does_not)
{
    fake_router.links["eth2"] = true;
    EXPECT_EQ(update_eth_link_status_trigger(), 1u);
    EXPECT_TRUE(dev("eth2")->link_active);
    EXPECT_TRUE(log->has("Info", "update_eth_link_status_trigger",
                         "Cyclic scanning found eth2 link change to up, pull trigger!"));
    EXPECT_FALSE(log->has_body("Cyclic scanning found eth1 link change to up, pull trigger!"));
    EXPECT_TRUE(log->has("Debug", "update_eth_link_status_trigger",
                         "Success Cyclic scanning eth link status using script, "
                         "result:{\"eth0\":false,\"eth1\":false,\"eth2\":true,\"eth3\":false,\"eth4\":false}"));
}

// holds: scan-order
TEST_F(link_scan, the_wan_port_is_looked_at_first_so_that_its_loss_opens_the_cycle_for_the_others)
{
    load("dhcp");
    write_switch_config(5, 3);
    port_model.wan_dev = dev("eth3");
    dev("eth3")->link_active = 1;
    fake_router.links["eth1"] = true;
    update_eth_link_status_trigger();
    EXPECT_TRUE(engine.detecting);
    EXPECT_TRUE(log->has_body("Noticed lan dev:eth1 turned up during delay! Add it to possible_wan_dev_list_cache "
                              "after 9000ms!"));
}

// holds: scan-order, ban-without-end
TEST_F(link_scan, a_link_that_returns_lifts_any_ban_of_the_port)
{
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth1", BAN_FOREVER);
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 500);
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth3", 500);
    fake_router.links["eth1"] = fake_router.links["eth2"] = true;
    update_eth_link_status_trigger();
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth1")));
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth2")));
    EXPECT_TRUE(is_banned_device(&port_model.banned_list, dev("eth3")));
}

// holds: link-lifts-ban
TEST_F(link_scan, a_wan_port_that_comes_up_is_not_banned_any_more_either)
{
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth0", BAN_FOREVER);
    fake_router.links["eth0"] = true;
    update_eth_link_status_trigger();
    EXPECT_TRUE(dev("eth0")->link_active);
    EXPECT_FALSE(is_banned_device(&port_model.banned_list, dev("eth0")));
}

// holds: scan-survives
TEST_F(link_scan, a_port_that_the_script_forgets_is_told_and_the_others_are_looked_at)
{
    fake_router.port_state_output = "{\"eth2\":true,\"eth1\":null}";
    update_eth_link_status_trigger();
    EXPECT_TRUE(dev("eth2")->link_active);
    for (const char *port : {"eth0", "eth1", "eth3", "eth4"})
        EXPECT_TRUE(
            log->has("Error", "update_eth_link_status_trigger",
                     std::string("Invalid device state for:") + port + "! Response:{\"eth2\":true,\"eth1\":null}"));
}

// holds: scan-survives, script-no-json
TEST_F(link_scan, garbage_from_the_script_changes_nothing)
{
    for (const char *garbage : {"", "garbage", "{\"eth1\":tr", "{"}) {
        log.reset();
        log = std::make_unique<t_log_capture>();
        fake_router.port_state_output = *garbage ? garbage : " ";
        EXPECT_EQ(update_eth_link_status_trigger(), 1u);
        EXPECT_TRUE(log->has("Error", "update_eth_link_status_trigger",
                             "Execute command:/etc/wan_detect/get_all_port_state.sh error!"))
            << garbage;
        EXPECT_FALSE(dev("eth1")->link_active);
    }
}

// holds: script-no-object
TEST_F(link_scan, json_that_is_no_object_tells_of_no_port)
{
    for (const char *text : {"[true]", "7", "true", "null"}) {
        log.reset();
        log = std::make_unique<t_log_capture>();
        fake_router.port_state_output = text;
        EXPECT_EQ(update_eth_link_status_trigger(), 1u);
        const char *function = "update_eth_link_status_trigger";
        EXPECT_TRUE(log->has("Debug", function,
                             std::string("Success Cyclic scanning eth link status using script, result:") + text));
        for (const char *port : {"eth0", "eth1", "eth2", "eth3", "eth4"})
            EXPECT_TRUE(
                log->has("Error", function, std::string("Invalid device state for:") + port + "! Response:" + text))
                << text;
        EXPECT_EQ(log->lines().size(), 7u);
        EXPECT_FALSE(dev("eth1")->link_active);
    }
}

// holds: scan-survives
TEST_F(link_scan, a_script_that_cannot_be_started_is_passed_over_silently)
{
    fake_router.commands_start = false;
    EXPECT_EQ(update_eth_link_status_trigger(), 1u);
    EXPECT_EQ(log->lines().size(), 1u);
}

// holds: scan-survives
TEST_F(link_scan, rests_while_detection_is_off_or_outside_router_mode)
{
    fake_router.links["eth1"] = true;
    port_model.enable = 0;
    update_eth_link_status_trigger();
    port_model.enable = 1;
    port_model.router_mode = 0;
    update_eth_link_status_trigger();
    EXPECT_FALSE(dev("eth1")->link_active);
    EXPECT_EQ(log->count("Debug", "update_eth_link_status_trigger",
                         "Skip update eth link status due to wan detect switch off!"),
              2);
}

TEST_F(link_scan, without_a_current_wan_port_the_others_are_looked_at)
{
    port_model.wan_dev = nullptr;
    fake_router.links["eth0"] = true;
    update_eth_link_status_trigger();
    EXPECT_TRUE(dev("eth0")->link_active);
}

// holds: threads-rest-after-switch
TEST_F(link_scan, sleeps_20_s_once_after_a_switch)
{
    engine_gate->link_trigger_blocked = 1;
    EXPECT_EQ(update_eth_link_status_trigger(), 20u);
    EXPECT_TRUE(log->has("Debug", "update_eth_link_status_trigger",
                         "Block update eth link for 20s due to success switch wan!"));
    EXPECT_EQ(update_eth_link_status_trigger(), 1u);
}

TEST_F(link_scan, the_thread_parks_when_the_process_ends)
{
    pthread_t thread;
    ASSERT_EQ(start_background_thread(&thread, link_scan_thread, nullptr), 0);
    EXPECT_TRUE(stop_background_threads());
    EXPECT_EQ(pthread_cancel(thread), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
}

} // namespace
