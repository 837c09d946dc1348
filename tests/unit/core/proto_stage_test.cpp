// SPDX-License-Identifier: MIT
#include "core/proto_stage.h"

#include <filesystem>
#include <sys/mount.h>

#include "core/candidates.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/lists.h"
#include "model/tables.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *NO_DHCP_RECORD = "Couldn't find proto_dhcp! Skip detect!";

class one_shot : public t_engine_test {
protected:
    // Sends a request and collects to its end; the number of times that answers were collected.
    int run_request(t_device *dev = nullptr, t_protocol *protocol = nullptr, int timeout_ms = 2000)
    {
        t_proto_detect_request request = {timeout_ms, dev, protocol};
        EXPECT_EQ(start_proto_detect(&request), OK);
        fire(engine.proto_detect_start);
        int collected = 0;
        for (; engine.proto_detect_end.pending; collected++)
            fire(engine.proto_detect_end);
        return collected;
    }
};

// holds: one-shot-dhcp, collection-lines
TEST_F(one_shot, a_port_whose_dhcp_server_answers_gives_dhcp_without_a_newline)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    EXPECT_EQ(run_request(dev("eth1"), protocol("dhcp")), 1);
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "dhcp");
    EXPECT_TRUE(log->has("Info", "uloop_proto_detect_end", "dhcp discovery packet all received offer"));
    EXPECT_TRUE(log->has("Info", "uloop_proto_detect_end", "Detection over!"));
    EXPECT_FALSE(port_model.proto_detect_running);
    EXPECT_EQ(engine.proto_detect_elapsed_ms, 0u);
}

// holds: request-while-stage-runs
TEST_F(one_shot, a_request_while_a_stage_runs_is_refused_and_changes_nothing)
{
    plug({"eth1", "eth2"});
    t_proto_detect_request first = {3000, dev("eth1"), protocol("dhcp")};
    ASSERT_EQ(start_proto_detect(&first), OK);
    write_file(PROTO_RESULT_FILE, "x");
    dev("eth2")->proto = protocol("dhcp");
    engine.proto_detect_elapsed_ms = 500;
    uloop_timeout_set(&engine.proto_detect_start, 700);
    t_proto_detect_request second = {1000, dev("eth2"), protocol("pppoe")};
    EXPECT_EQ(start_proto_detect(&second), ERR_BUSY);
    EXPECT_EQ(ERR_BUSY, -85);
    EXPECT_TRUE(log->has("Error", "start_proto_detect",
                         "A instace is running protocol detection! Not allowed detect protocol now!"));
    EXPECT_EQ(engine.proto_detect_dev, dev("eth1"));
    EXPECT_EQ(engine.proto_detect_target, protocol("dhcp"));
    EXPECT_EQ(engine.proto_detect_timeout_ms, 3000u);
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "x");
    EXPECT_EQ(dev("eth2")->proto, protocol("dhcp"));
    EXPECT_EQ(engine.proto_detect_elapsed_ms, 500u);
    EXPECT_EQ(armed(engine.proto_detect_start), 700);
}

// holds: probe-stage-times, one-shot-timeout
TEST_F(one_shot, without_answers_the_default_time_is_over_at_the_fifth_look_and_the_file_says_static)
{
    plug({"eth1"});
    EXPECT_EQ(run_request(dev("eth1")), 5);
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "static");
    EXPECT_EQ(log->count("Debug", "uloop_proto_detect_end", "dhcp/pppoe discovery packet not fully received"), 4);
}

TEST_F(one_shot, a_request_lifts_bans_that_ran_out)
{
    add_ban_that_is_over("eth2");
    t_proto_detect_request request = {2000, dev("eth1"), protocol("dhcp")};
    ASSERT_EQ(start_proto_detect(&request), OK);
    EXPECT_EQ(port_model.banned_list.count, 0);
}

// holds: collecting-interval
TEST_F(one_shot, answers_are_collected_every_500_ms)
{
    plug({"eth1"});
    t_proto_detect_request request = {1000, nullptr, nullptr};
    start_proto_detect(&request);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    fire(engine.proto_detect_start);
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
    fire(engine.proto_detect_end);
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
    fire(engine.proto_detect_end);
    fire(engine.proto_detect_end);
    EXPECT_EQ(armed(engine.proto_detect_end), NOT_ARMED) << "1500 ms is the first figure above 1000 ms";
}

TEST_F(one_shot, the_old_result_is_gone_as_soon_as_a_request_is_taken)
{
    write_file(PROTO_RESULT_FILE, "pppoe");
    t_proto_detect_request request = {2000, nullptr, nullptr};
    start_proto_detect(&request);
    EXPECT_FALSE(file_exists(PROTO_RESULT_FILE));
}

TEST_F(one_shot, a_request_for_one_port_clears_that_port_only)
{
    for (const char *name : {"eth1", "eth2"})
        set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, dev(name), nullptr,
                                     nullptr, "dhcp");
    t_proto_detect_request request = {2000, dev("eth1"), nullptr};
    start_proto_detect(&request);
    EXPECT_EQ(dev("eth1")->proto, nullptr);
    EXPECT_EQ(dev("eth2")->proto, protocol("dhcp"));
}

TEST_F(one_shot, a_request_for_all_ports_clears_all)
{
    set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, dev("eth2"), nullptr,
                                 nullptr, "dhcp");
    t_proto_detect_request request = {2000, nullptr, nullptr};
    start_proto_detect(&request);
    EXPECT_EQ(dev("eth2")->proto, nullptr);
}

TEST_F(one_shot, without_a_target_both_protocols_are_asked)
{
    plug({"eth1"});
    run_request();
    EXPECT_EQ(fake_probes.count("dhcp all"), 1);
    EXPECT_EQ(fake_probes.count("pppoe all"), 1);
}

// holds: collection-lines
TEST_F(one_shot, a_dhcp_target_asks_dhcp_only)
{
    plug({"eth1"});
    run_request(nullptr, protocol("dhcp"));
    EXPECT_EQ(fake_probes.calls, (std::vector<std::string>{"dhcp all"}));
    EXPECT_EQ(log->count("Debug", "uloop_proto_detect_end", "dhcp discovery packet not fully received"), 4);
    EXPECT_TRUE(log->has("Debug", "uloop_proto_detect_end", "dhcp discovery packet timeout!"));
}

// holds: collection-lines
TEST_F(one_shot, any_other_target_asks_pppoe_only)
{
    plug({"eth1"});
    run_request(nullptr, protocol("l2tp"));
    EXPECT_EQ(fake_probes.calls, (std::vector<std::string>{"pppoe all"}));
    EXPECT_EQ(log->count("Debug", "uloop_proto_detect_end", "pppoe discovery packet not fully received"), 4);
    EXPECT_TRUE(log->has("Debug", "uloop_proto_detect_end", "pppoe discovery packet timeout!"));
}

// holds: collection-lines
TEST_F(one_shot, pppoe_answers_of_every_port_are_told_as_a_timeout)
{
    plug({"eth1"});
    fake_probes.pppoe_ports = {"eth1"};
    EXPECT_EQ(run_request(nullptr, protocol("pppoe")), 1);
    EXPECT_TRUE(log->has("Debug", "uloop_proto_detect_end", "pppoe discovery packet timeout!"));
    EXPECT_FALSE(log->has("Info", "uloop_proto_detect_end", "pppoe discovery packet all received PADO"));
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "pppoe");
}

// holds: collection-lines
TEST_F(one_shot, the_line_for_all_pados_needs_a_result_of_1)
{
    plug({"eth1"});
    fake_probes.pppoe_result = 1;
    run_request(nullptr, protocol("pppoe"));
    EXPECT_TRUE(log->has("Info", "uloop_proto_detect_end", "pppoe discovery packet all received PADO"));
}

// holds: collection-lines
TEST_F(one_shot, a_failed_collection_ends_the_stage)
{
    plug({"eth1"});
    fake_probes.dhcp_result = -99;
    EXPECT_EQ(run_request(nullptr, protocol("dhcp")), 1);
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_end", "Error receiving dhcp discovery packet"));
    fake_probes.pppoe_result = -99;
    EXPECT_EQ(run_request(nullptr, protocol("pppoe")), 1);
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_end", "Error receiving pppoe discovery packet"));
}

// holds: collection-lines
TEST_F(one_shot, a_batch_that_is_gone_counts_as_a_timeout)
{
    plug({"eth1"});
    fake_probes.dhcp_result = fake_probes.pppoe_result = PROBE_NO_BATCH;
    EXPECT_EQ(run_request(nullptr, protocol("dhcp")), 1);
    EXPECT_TRUE(log->has("Debug", "uloop_proto_detect_end", "dhcp discovery packet timeout!"));
    EXPECT_EQ(run_request(nullptr, protocol("pppoe")), 1);
    EXPECT_TRUE(log->has("Debug", "uloop_proto_detect_end", "pppoe discovery packet timeout!"));
    EXPECT_EQ(run_request(), 1);
}

// holds: request-without-link
TEST_F(one_shot, a_port_without_link_ends_the_stage_at_once_and_the_file_is_written)
{
    struct {
        t_protocol *target;
        const char *line;
    } cases[] = {
        {nullptr, "Error sending dhcp discovery & pppoe discovery packet via dev:eth1"},
        {protocol("dhcp"), "Error sending dhcp discovery packet via dev:eth1"},
        {protocol("pppoe"), "Error sending pppoe discovery packet via dev:eth1"},
    };
    for (const auto &wanted : cases) {
        t_proto_detect_request request = {2000, dev("eth1"), wanted.target};
        ASSERT_EQ(start_proto_detect(&request), OK);
        fire(engine.proto_detect_start);
        EXPECT_EQ(armed(engine.proto_detect_end), 0);
        EXPECT_TRUE(log->has("Error", "uloop_proto_detect_start", wanted.line)) << wanted.line;
        while (engine.proto_detect_end.pending)
            fire(engine.proto_detect_end);
        EXPECT_EQ(read_file(PROTO_RESULT_FILE), "static");
    }
}

// holds: collecting-interval
TEST_F(one_shot, a_sending_that_failed_on_every_port_is_told_and_the_answers_are_awaited_all_the_same)
{
    fake_probes.send_result = -98;
    t_proto_detect_request request = {2000, nullptr, nullptr};
    ASSERT_EQ(start_proto_detect(&request), OK);
    fire(engine.proto_detect_start);
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_start", "Error sending dhcp discovery packet"));
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_start", "Error sending pppoe discovery packet"));
    EXPECT_EQ(armed(engine.proto_detect_end), 500);
}

// holds: no-dhcp-record
TEST_F(one_shot, without_a_dhcp_record_the_stage_never_starts_and_stays_taken)
{
    release_port_model(&port_model);
    t_proto_detect_request request = {2000, nullptr, nullptr};
    start_proto_detect(&request);
    fire(engine.proto_detect_start);
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_start", NO_DHCP_RECORD));
    EXPECT_EQ(armed(engine.proto_detect_end), NOT_ARMED);
    EXPECT_TRUE(port_model.proto_detect_running);
}

// holds: no-dhcp-record
TEST_F(one_shot, a_dhcp_record_lost_in_the_middle_finishes_the_stage)
{
    plug({"eth1"});
    t_proto_detect_request request = {2000, nullptr, nullptr};
    start_proto_detect(&request);
    fire(engine.proto_detect_start);
    release_port_model(&port_model);
    memset(static_cast<void *>(&port_model.priority_order), 0, sizeof port_model.priority_order);
    fire(engine.proto_detect_end);
    EXPECT_TRUE(log->has("Error", "uloop_proto_detect_end", NO_DHCP_RECORD));
    EXPECT_TRUE(log->has("Info", "uloop_proto_detect_end", "Detection over!"));
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "static");
}

TEST_F(one_shot, for_all_ports_the_file_names_the_first_protocol_in_the_order_of_priority)
{
    load("dhcp", "3 1 0 2 4");
    plug({"eth1", "eth3"});
    fake_probes.dhcp_ports = {"eth1"};
    fake_probes.pppoe_ports = {"eth3"};
    run_request();
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "pppoe");
}

TEST_F(one_shot, ports_outside_the_order_of_priority_do_not_reach_the_file)
{
    load("dhcp", "3", "0 1 2 3 4");
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_request();
    EXPECT_EQ(read_file(PROTO_RESULT_FILE), "static");
}

TEST_F(one_shot, a_file_that_cannot_be_written_is_told_and_the_stage_ends)
{
    std::filesystem::create_directory(PROTO_RESULT_FILE);
    plug({"eth1"});
    t_proto_detect_request request = {2000, nullptr, nullptr};
    start_proto_detect(&request);
    ASSERT_EQ(mount("tmpfs", PROTO_RESULT_FILE, "tmpfs", 0, nullptr), 0); // or it could be moved aside
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    umount(PROTO_RESULT_FILE);
    EXPECT_TRUE(log->has("Error", "write_proto_detect_result_file", "File:/tmp/protocol_detect_result Open Failed !"));
    EXPECT_FALSE(port_model.proto_detect_running);
    std::filesystem::remove(PROTO_RESULT_FILE);
}

class verdict : public t_engine_test {
protected:
    void open_cycle(std::initializer_list<const char *> ports)
    {
        plug(ports);
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    // Runs the probes of the open stage to their end and judges.
    void run_stage()
    {
        fire(engine.proto_detect_start);
        while (engine.proto_detect_end.pending)
            fire(engine.proto_detect_end);
        fire(engine.using_proto_detect);
    }
};

// holds: one-answer
TEST_F(verdict, one_answering_dhcp_port_wins)
{
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle({"eth1", "eth2"});
    run_stage();
    EXPECT_EQ(engine.result_dev, dev("eth2"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(log->has("Debug", "remove_specific_proto_dev_from_list", "Detect device:eth2 using protocol dhcp!"));
    EXPECT_TRUE(log->has("Debug", "remove_specific_proto_dev_from_list",
                         "Remove eth1 out of possible wan list due to other device detected success!"));
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect",
                         "Only one device:eth2 using protocol dhcp! treat it as wan!"));
}

// holds: two-answers
TEST_F(verdict, two_answering_dhcp_ports_go_on_to_dns)
{
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    open_cycle({"eth1", "eth2", "eth3"});
    run_stage();
    EXPECT_EQ(armed(engine.using_dns), 0);
    EXPECT_EQ(armed(engine.end), NOT_ARMED);
    EXPECT_EQ(candidates(), "eth1 eth2");
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect",
                         "Found 2 devices provide dhcp protocol! Next try dns detect!"));
}

// holds: two-answers
TEST_F(verdict, of_two_answering_pppoe_ports_the_one_of_higher_priority_wins_at_once)
{
    load("pppoe", "0 3 1 2 4");
    fake_probes.pppoe_ports = {"eth1", "eth3"};
    open_cycle({"eth1", "eth3"});
    run_stage();
    EXPECT_EQ(engine.result_dev, dev("eth3"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_EQ(armed(engine.using_dns), NOT_ARMED);
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect",
                         "Overall 2 device using protocol pppoe! Use first priority device:eth3 as wan!"));
}

TEST_F(verdict, a_tunnel_over_a_dynamic_address_wants_dhcp_and_priority_decides)
{
    set_connection("l2tp", "config proto 'l2tp'\n\toption snd_conn 'dynamic'\n");
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    open_cycle({"eth1", "eth2"});
    run_stage();
    EXPECT_EQ(engine.result_dev, dev("eth1"));
    EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect",
                         "Overall 2 device using protocol l2tp! Use first priority device:eth1 as wan!"));
}

// holds: three-stages
TEST_F(verdict, a_silent_port_is_dropped_after_three_stages)
{
    open_cycle({"eth1"});
    for (int stage = 1; stage <= 2; stage++) {
        run_stage();
        EXPECT_TRUE(log->has("Debug", "remove_specific_proto_dev_from_list",
                             "Continue keep it in possible wan list due to no dhcp was detected in eth1, retry! retry "
                             "times:" +
                                 std::to_string(stage) + "/2"));
        EXPECT_TRUE(log->has("Info", "uloop_wan_detect_using_proto_detect",
                             "No device using protocol dhcp! waiting for another device or retry!"));
        EXPECT_EQ(armed(engine.start_wan_detect), 1000);
        fire(engine.start_wan_detect);
        EXPECT_EQ(candidates(), "eth1");
    }
    run_stage();
    EXPECT_EQ(candidates(), "");
    EXPECT_TRUE(log->has("Debug", "remove_specific_proto_dev_from_list",
                         "Remove eth1 out of possible wan list due to no dhcp was detected after 3 times try!"));
    EXPECT_EQ(fake_probes.count("dhcp all"), 3);
    fire(engine.start_wan_detect);
    EXPECT_EQ(fake_probes.count("dhcp all"), 3);
}

TEST_F(verdict, a_port_that_lost_its_link_leaves)
{
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle({"eth1", "eth2"});
    dev("eth1")->link_active = 0;
    run_stage();
    EXPECT_TRUE(log->has("Debug", "remove_specific_proto_dev_from_list",
                         "Remove eth1 out of possible wan list due to eth1 down!"));
}

TEST_F(verdict, a_port_that_answered_and_lost_its_link_does_not_win)
{
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle({"eth1"});
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    dev("eth1")->link_active = 0;
    fire(engine.using_proto_detect);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(candidates(), "");
}

TEST_F(verdict, a_fake_wan_port_is_forgotten_also_when_it_leaves_without_a_link_or_beside_nobody)
{
    for (bool has_link : {false, true}) {
        open_cycle({"eth1"});
        port_model.fake_wan = dev("eth1");
        dev("eth1")->link_active = has_link;
        for (int i = 0; i < 3 && candidates() == "eth1"; i++) {
            run_stage();
            if (engine.start_wan_detect.pending && candidates() == "eth1")
                fire(engine.start_wan_detect);
        }
        EXPECT_EQ(candidates(), "");
        EXPECT_EQ(port_model.fake_wan, nullptr) << has_link;
        end_cycle_with(nullptr, t_decision::nobody);
        fire(engine.end);
    }
}

TEST_F(verdict, a_dropped_fake_wan_port_is_forgotten_without_a_lock_held)
{
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle({"eth1", "eth2"});
    port_model.fake_wan = dev("eth1");
    int reloads = 0;
    fake_router.on_command = [&](const std::string &) {
        EXPECT_EQ(pthread_rwlock_trywrlock(&engine.gate.locks.device_lock), 0);
        pthread_rwlock_unlock(&engine.gate.locks.device_lock);
        reloads++;
    };
    run_stage();
    EXPECT_EQ(reloads, 1);
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

// holds: probe-stage-times, verdict-waits
TEST_F(verdict, waits_100_ms_at_a_time_while_the_stage_runs)
{
    open_cycle({"eth1"});
    fire(engine.using_proto_detect);
    EXPECT_EQ(armed(engine.using_proto_detect), 100);
    EXPECT_TRUE(log->has("Debug", "uloop_wan_detect_using_proto_detect",
                         "Protocol dhcp detect is still in progress, Waiting..."));
}

// holds: verdict-waits
TEST_F(verdict, tells_of_pppoe_without_a_blank)
{
    load("pppoe");
    open_cycle({"eth1"});
    fire(engine.using_proto_detect);
    EXPECT_TRUE(log->has("Debug", "uloop_wan_detect_using_proto_detect",
                         "Protocolpppoe detect is still in progress, Waiting..."));
}

TEST_F(verdict, refuses_a_connection_type_that_probes_cannot_find)
{
    set_connection("static");
    be_in(t_cycle_state::judging);
    uloop_timeout_set(&engine.using_proto_detect, 0);
    fire(engine.using_proto_detect);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_proto_detect",
                         "wan protocol detect only support dhcp/pppoe/xxtp+dhcp!"));
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_EQ(armed(engine.end), 0);
}

TEST_F(verdict, a_first_candidate_without_a_device_means_no_result)
{
    fake_probes.dhcp_ports = {"eth2"};
    open_cycle({"eth1", "eth2"});
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    engine.possible_wan_dev_list.head.next->dev = nullptr;
    fire(engine.using_proto_detect);
    EXPECT_EQ(engine.result_dev, nullptr);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_using_proto_detect",
                         "That's impossible! device is lost? treat it as null!"));
}

// holds: request-while-stage-runs
TEST_F(verdict, a_request_cannot_wipe_answers_that_are_not_judged_yet)
{
    fake_probes.dhcp_ports = {"eth1"};
    open_cycle({"eth1"});
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    t_proto_detect_request request = {2000, nullptr, nullptr};
    EXPECT_EQ(start_proto_detect(&request), ERR_BUSY);
    fire(engine.using_proto_detect);
    EXPECT_EQ(engine.result_dev, dev("eth1"));
}

} // namespace
