// SPDX-License-Identifier: MIT
#include "core/cycle.h"
#include "core/cycle_end.h"

#include <filesystem>
#include <sys/mount.h>

#include "core/cycle_start.h"
#include "core/proto_stage.h"
#include "model/banned.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

class cycle_end : public t_engine_test {
protected:
    // The end of a cycle that was running, with a verdict.
    void end_with(t_device *winner)
    {
        be_running();
        end_cycle_with(winner, t_decision::only_answer);
        fire(engine.end);
    }
};

// holds: no-result
TEST_F(cycle_end, no_result_writes_no_file_and_keeps_the_wan_port_and_the_fake_wan_port)
{
    port_model.fake_wan = dev("eth3");
    end_with(nullptr);
    EXPECT_TRUE(log->has("Warning", "uloop_wan_detect_end", "Detect wan result is null! just keep the original wan"));
    EXPECT_FALSE(file_exists(WAN_RESULT_FILE));
    EXPECT_EQ(port_model.wan_dev, dev("eth0"));
    EXPECT_EQ(port_model.fake_wan, dev("eth3"));
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_TRUE(log->has("Debug", "switch_wan_to_dev", "Same wan device, no need to switch!"));
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_end", "Wan Detection over!"));
}

// holds: no-result
TEST_F(cycle_end, no_result_leaves_the_role_to_a_port_that_somebody_else_gave_it_meanwhile)
{
    write_switch_config(5, 3);
    end_with(nullptr);
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_EQ(port_model.wan_dev, dev("eth3"));
    write_switch_config(6, 5);
    end_with(nullptr);
    EXPECT_TRUE(fake_router.commands.empty());
}

// holds: confirming-cycle
TEST_F(cycle_end, the_winner_becomes_the_wan_port_and_a_new_cycle_follows_in_21_s)
{
    end_with(dev("eth2"));
    EXPECT_EQ(fake_router.commands, (std::vector<std::string>{"network_lanwan_swap set port2"}));
    EXPECT_EQ(port_model.wan_dev, dev("eth2"));
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21000);
    EXPECT_TRUE(engine_gate->link_trigger_blocked);
    EXPECT_TRUE(engine_gate->combo_switch_blocked);
}

// holds: result-file
TEST_F(cycle_end, the_file_holds_the_name_of_the_wan_port_after_the_switch_without_a_newline)
{
    end_with(dev("eth2"));
    EXPECT_EQ(read_file(WAN_RESULT_FILE), "eth2");
}

// holds: result-file
TEST_F(cycle_end, after_a_swap_that_failed_the_file_names_the_old_port)
{
    fake_router.swap_works = false;
    end_with(dev("eth2"));
    EXPECT_EQ(read_file(WAN_RESULT_FILE), "eth0");
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21000) << "detecting again is the recovery";
}

TEST_F(cycle_end, the_current_port_as_the_winner_needs_no_swap_and_loses_the_fake_wan_port)
{
    port_model.fake_wan = dev("eth3");
    end_with(dev("eth0"));
    EXPECT_EQ(fake_router.commands, (std::vector<std::string>{"/sbin/wanlan_port_reload"}));
    EXPECT_EQ(read_file(WAN_RESULT_FILE), "eth0");
    EXPECT_EQ(armed(engine.init_wan_detect_all), NOT_ARMED);
    EXPECT_FALSE(engine_gate->link_trigger_blocked);
}

// holds: fake-wan-wins
TEST_F(cycle_end, the_fake_wan_port_itself_is_switched_to_before_it_is_forgotten)
{
    port_model.fake_wan = dev("eth2");
    end_with(dev("eth2"));
    EXPECT_EQ(fake_router.commands,
              (std::vector<std::string>{"network_lanwan_swap set port2", "/sbin/wanlan_port_reload"}));
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

// holds: fake-wan-wins
TEST_F(cycle_end, the_fake_wan_port_that_has_the_role_already_is_only_forgotten)
{
    port_model.fake_wan = dev("eth0");
    end_with(dev("eth0"));
    EXPECT_EQ(fake_router.commands, (std::vector<std::string>{"/sbin/wanlan_port_reload"}));
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

// holds: fake-wan-wins
TEST_F(cycle_end, another_winner_is_switched_to_after_the_fake_wan_port_is_forgotten)
{
    port_model.fake_wan = dev("eth3");
    end_with(dev("eth2"));
    EXPECT_EQ(fake_router.commands,
              (std::vector<std::string>{"/sbin/wanlan_port_reload", "network_lanwan_swap set port2"}));
    EXPECT_EQ(port_model.wan_dev, dev("eth2"));
    EXPECT_FALSE(log->has("Info", "look_at_role", "The wan role was moved from eth0 to eth2!")) << "by nobody else";
}

// holds: winner-banned
TEST_F(cycle_end, a_ban_that_is_over_by_then_keeps_no_winner_away)
{
    add_ban_that_is_over("eth2");
    end_with(dev("eth2"));
    EXPECT_EQ(port_model.wan_dev, dev("eth2"));
}

// holds: winner-banned
TEST_F(cycle_end, a_winner_banned_meanwhile_sends_the_cycle_back_after_a_second)
{
    engine.possible_wan_dev_list.add(dev("eth2"));
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 100);
    end_with(dev("eth2"));
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_TRUE(engine.detecting);
    EXPECT_TRUE(port_model.wan_detect_running);
    EXPECT_EQ(candidates(), "eth2") << "the next pass filters it out";
    EXPECT_TRUE(fake_router.commands.empty());
    EXPECT_FALSE(file_exists(WAN_RESULT_FILE));
    EXPECT_TRUE(log->has("Notice", "uloop_wan_detect_end",
                         "About to change eth2 as wan, however it's banned after detection and before switch wan. So "
                         "treat the detecion as failure! If more than one server is plugged in the same time, it's "
                         "very likely that another server is missed!!"));
    fire(engine.start_wan_detect);
    EXPECT_EQ(candidates(), "");
}

// holds: back-to-rest
TEST_F(cycle_end, returns_the_engine_to_rest)
{
    engine.possible_wan_dev_list.add(dev("eth2"));
    engine.possible_wan_dev_list_cache.add(dev("eth3"));
    engine.restart_requested = 1;
    engine.dns_ctx.count = 3;
    dev("eth4")->is_brlan_dev = 1;
    dev("eth4")->result.address.ipv4_be = 1;
    end_with(dev("eth2"));
    EXPECT_FALSE(engine.detecting);
    EXPECT_FALSE(engine.restart_requested);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_FALSE(port_model.proto_detect_running);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(engine.possible_wan_dev_list.count, 0);
    EXPECT_EQ(engine.possible_wan_dev_list.head.next, nullptr);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.head.next, nullptr);
    EXPECT_EQ(engine.dns_ctx.count, 0);
    EXPECT_FALSE(dev("eth4")->is_brlan_dev);
    EXPECT_EQ(dev("eth4")->result.address.ipv4_be, 0u);
    EXPECT_TRUE(log->has("Debug", "clear_dev_volatile_attribute", "Entering function: clear_dev_volatile_attribute!"));
}

// holds: back-to-rest
TEST_F(cycle_end, leaves_no_timer_that_opens_a_cycle_behind_its_back)
{
    plug({"eth0"});
    uloop_timeout_set(&engine.start_wan_detect, 1000);
    uloop_timeout_set(&engine.using_dns, 1000);
    end_with(nullptr);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
    EXPECT_EQ(armed(engine.using_dns), NOT_ARMED);
}

// holds: back-to-rest
TEST_F(cycle_end, keeps_a_pending_cycle_over_all_ports)
{
    uloop_timeout_set(&engine.init_wan_detect_all, 700);
    end_with(nullptr);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 700);
}

TEST_F(cycle_end, does_not_end_a_request_and_the_file_of_the_request_is_written)
{
    plug({"eth1"});
    t_proto_detect_request request = {2000, dev("eth1"), nullptr};
    ASSERT_EQ(start_proto_detect(&request), OK);
    fire(engine.proto_detect_start);
    end_with(nullptr);
    EXPECT_TRUE(port_model.proto_detect_running);
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "static");
}

// holds: result-file-fails
TEST_F(cycle_end, a_file_that_cannot_be_written_is_told_and_the_cycle_ends)
{
    std::filesystem::create_directory(WAN_RESULT_FILE);
    ASSERT_EQ(mount("tmpfs", WAN_RESULT_FILE, "tmpfs", 0, nullptr), 0); // or it could be moved aside
    end_with(dev("eth2"));
    umount(WAN_RESULT_FILE);
    EXPECT_TRUE(log->has("Error", "write_wan_detect_result_file", "File:/tmp/wan_detect_result Open Failed !"));
    EXPECT_FALSE(engine.detecting);
    std::filesystem::remove(WAN_RESULT_FILE);
}

TEST_F(cycle_end, without_a_current_wan_port_nothing_is_written_and_nothing_crashes)
{
    remove_config("switch");
    port_model.wan_dev = nullptr;
    end_with(dev("eth2"));
    EXPECT_FALSE(file_exists(WAN_RESULT_FILE));
    EXPECT_TRUE(log->has("Error", "write_wan_detect_result_file", "Can't find the device:null in hash list!"));
    end_with(nullptr);
    EXPECT_TRUE(log->has("Error", "switch_wan_to_dev", "Invalid dev!"));
}

TEST_F(cycle_end, dumps_both_tables)
{
    end_with(nullptr);
    EXPECT_NE(log->text().find("Dumping device"), std::string::npos);
    EXPECT_NE(log->text().find("Dumping protocols"), std::string::npos);
}

// holds: confirming-cycle
TEST_F(cycle_end, a_whole_cycle_runs_from_the_request_to_the_confirming_one)
{
    plug({"eth0", "eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    start_wan_detect_all(0);
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(read_file(WAN_RESULT_FILE), "eth2");
    EXPECT_EQ(armed(engine.init_wan_detect_all), 21000);
    fake_router.network_state = 0;
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(read_file(WAN_RESULT_FILE), "eth2");
    EXPECT_EQ(fake_router.count("network_lanwan_swap set port2"), 1);
    EXPECT_EQ(fake_probes.count("dhcp all"), 1) << "a working port is not probed";
}

} // namespace
