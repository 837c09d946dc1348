// SPDX-License-Identifier: MIT
#include "core/candidates.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/proto_stage.h"
#include "model/banned.h"
#include "model/reserved_ports.h"
#include "model/tables.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *BUSY_CYCLE =
    "Aleady has a instace is running wan detect! Multi instance not allowed, auto retry in 500ms!";
constexpr const char *BUSY_PROBE =
    "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!";
constexpr const char *NOBODY = "Zero device need to detect after filter! waiting for other devices plug in trigger!";

class cycle_start : public t_engine_test {
protected:
    // A cycle over all ports, up to and including its first pass.
    void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
};

// holds: request-arms-cycle
TEST_F(cycle_start, a_request_tells_its_delay_and_the_last_one_wins)
{
    start_wan_detect_all(21000);
    start_wan_detect_all(3000);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 3000);
    EXPECT_TRUE(log->has("Notice", "start_wan_detect_all", "Will begin to detect all device after 21000ms!"));
    EXPECT_TRUE(log->has("Notice", "start_wan_detect_all", "Will begin to detect all device after 3000ms!"));
}

// holds: candidates
TEST_F(cycle_start, every_linked_port_of_the_pool_is_a_candidate_in_the_order_of_priority)
{
    load("dhcp", "4 2 1 0 3", "0 1 2 3");
    plug({"eth1", "eth2", "eth4"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(candidates(), "eth2 eth1");
    EXPECT_EQ(engine.possible_wan_dev_list.count, 2);
    EXPECT_TRUE(engine.detecting);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_EQ(armed(engine.start_wan_detect), 0);
    EXPECT_TRUE(log->has("Debug", "generate_possible_wan_dev_list", "Add device eth1 to possible wan list!"));
}

// holds: candidates
TEST_F(cycle_start, reserved_and_banned_ports_are_no_candidates)
{
    write_switch_config(5, 0,
                        "config gaming 'gaming'\n\toption switch_port 'port1'\n"
                        "config lan_agg 'lan_agg'\n\toption enable_agg '1'\n\toption lanport 'LAN1 LAN2 LAN3'\n"
                        "\toption lacpports '2'\n");
    plug({"eth1", "eth2", "eth3", "eth4"});
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth4", 100);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(candidates(), "eth3");
}

// holds: candidates
TEST_F(cycle_start, a_ban_that_has_run_out_by_then_keeps_no_candidate_away)
{
    plug({"eth1"});
    engine.possible_wan_dev_list.add(dev("eth1"));
    add_ban_that_is_over("eth1");
    filter_candidates();
    EXPECT_EQ(candidates(), "eth1");
}

// holds: candidates
TEST_F(cycle_start, the_list_is_made_anew_and_without_bans_that_are_over)
{
    plug({"eth1"});
    add_ban_that_is_over("eth1");
    engine.possible_wan_dev_list.add(dev("eth3"));
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(candidates(), "eth1");
}

// holds: candidates
TEST_F(cycle_start, a_candidate_that_cannot_be_added_is_told)
{
    plug({"eth1", "eth2"});
    engine.possible_wan_dev_list.add(dev("eth1"));
    generate_possible_wan_dev_list();
    EXPECT_TRUE(log->has("Info", "generate_possible_wan_dev_list", "Failed to add device eth1 to possible wan list!"));
    EXPECT_EQ(candidates(), "eth1 eth2");
    EXPECT_EQ(engine.possible_wan_dev_list.count, 2);
}

TEST_F(cycle_start, an_empty_reserved_table_is_not_searched)
{
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_FALSE(log->has("Info", "find_device", "Invalid dev_hashmap_head input!"));
}

// holds: candidates
TEST_F(cycle_start, without_a_pool_nobody_is_a_candidate)
{
    load("dhcp", "0 1 2 3 4", "");
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(candidates(), "");
}

// holds: request-while-cycle-runs
TEST_F(cycle_start, a_request_while_a_cycle_runs_makes_that_one_give_up_and_starts_500_ms_after_its_end)
{
    plug({"eth1"});
    open_cycle();
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_TRUE(log->has("Info", "uloop_init_wan_detect_all", BUSY_CYCLE));
    EXPECT_TRUE(engine.restart_requested);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 500);

    engine.result_dev = dev("eth1");
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "exiting this cycle of detecting, waiting for detect all!"));
    EXPECT_EQ(engine.result_dev, nullptr);
    fire(engine.end);
    EXPECT_FALSE(file_exists(WAN_RESULT_FILE));
    EXPECT_FALSE(engine.restart_requested);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 500) << "the end of a cycle leaves the next one alone";
    fire(engine.init_wan_detect_all);
    EXPECT_EQ(candidates(), "eth1");
}

// holds: cycle-waits-for-request
TEST_F(cycle_start, a_cycle_waits_in_steps_of_500_ms_while_a_protocol_detection_runs)
{
    plug({"eth1"});
    t_proto_detect_request request = {2000, nullptr, nullptr};
    ASSERT_EQ(start_proto_detect(&request), 0);
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    EXPECT_TRUE(log->has("Info", "uloop_init_wan_detect_all", BUSY_PROBE));
    EXPECT_EQ(armed(engine.init_wan_detect_all), 500);
    EXPECT_FALSE(engine.detecting);
}

// holds: cycle-waits-for-request
TEST_F(cycle_start, a_cycle_that_wants_to_probe_waits_for_a_running_request)
{
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    t_proto_detect_request request = {2000, dev("eth1"), nullptr};
    ASSERT_EQ(start_proto_detect(&request), 0);
    fire(engine.start_wan_detect);
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", BUSY_PROBE));
    EXPECT_EQ(armed(engine.start_wan_detect), 500);
    EXPECT_EQ(engine.proto_detect_dev, dev("eth1")) << "the request keeps its arguments";
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.using_proto_detect), 100);
}

TEST_F(cycle_start, the_first_pass_deletes_the_result_and_takes_the_stage)
{
    write_file(WAN_RESULT_FILE, "eth3");
    plug({"eth1"});
    open_cycle();
    EXPECT_FALSE(file_exists(WAN_RESULT_FILE));
    EXPECT_TRUE(log->has("Debug", "delete_file", "file:/tmp/wan_detect_result deleted!"));
    EXPECT_TRUE(port_model.wan_detect_running);
}

TEST_F(cycle_start, later_passes_keep_the_current_port_but_read_the_connection_type_anew)
{
    plug({"eth1"});
    open_cycle();
    log.reset();
    log = std::make_unique<t_log_capture>();
    write_router_config("static");
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(log->count("Debug", "update_wan_device", "Entering function: update_wan_device!"), 0);
    EXPECT_EQ(armed(engine.using_arp), 0);
}

// holds: cycle-without-result
TEST_F(cycle_start, a_cycle_gives_up_when_detection_is_switched_off)
{
    plug({"eth1"});
    port_model.enable = 0;
    open_cycle();
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "exiting detecting due to switch off!"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_EQ(engine.result_dev, nullptr);
}

// holds: cycle-without-result
TEST_F(cycle_start, without_a_connection_type_a_cycle_ends_without_a_result)
{
    plug({"eth1"});
    port_model.wan_proto = nullptr;
    write_config("network", "config interface 'wan'\n");
    open_cycle();
    EXPECT_TRUE(log->has("Error", "uloop_start_wan_detect", "Failed to get now protocol! Should not happen!"));
    EXPECT_EQ(armed(engine.end), 0);
}

TEST_F(cycle_start, without_a_current_port_the_others_are_looked_at)
{
    plug({"eth1"});
    remove_config("switch");
    port_model.wan_dev = nullptr;
    open_cycle();
    EXPECT_TRUE(log->has("Error", "uloop_start_wan_detect", "Can't find the device:null in hash list!"));
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 1 device(s):eth1、"));
    EXPECT_EQ(armed(engine.using_proto_detect), 100);
}

// holds: working-wan-ends-cycle
TEST_F(cycle_start, a_working_current_port_ends_the_cycle_at_once_and_no_probe_is_sent)
{
    plug({"eth0", "eth1"});
    fake_router.network_state = 0;
    open_cycle();
    EXPECT_EQ(engine.result_dev, dev("eth0"));
    EXPECT_EQ(armed(engine.end), 0);
    EXPECT_TRUE(fake_probes.calls.empty());
    EXPECT_FALSE(engine.proto_detect_start.pending);
    EXPECT_FALSE(engine.using_proto_detect.pending);
    EXPECT_FALSE(engine.using_arp.pending);
    EXPECT_FALSE(port_model.proto_detect_running);
}

// holds: working-wan-ends-cycle
TEST_F(cycle_start, a_static_connection_is_good_only_when_the_online_test_says_so)
{
    set_connection("static");
    plug({"eth0", "eth1"});
    fake_router.network_state = 0;
    fake_router.online_test_status = 1;
    open_cycle();
    EXPECT_EQ(fake_router.count("online-test"), 1);
    EXPECT_EQ(armed(engine.end), NOT_ARMED);
    EXPECT_EQ(armed(engine.using_arp), 0);
}

// holds: working-wan-ends-cycle
TEST_F(cycle_start, a_connection_that_works_ends_the_cycle_although_its_link_goes_meanwhile)
{
    set_connection("static");
    plug({"eth0", "eth1"});
    fake_router.network_state = 0;
    fake_router.on_command = [](const std::string &command) {
        if (command == "online-test")
            dev("eth0")->link_active = 0;
    };
    open_cycle();
    EXPECT_EQ(engine.result_dev, dev("eth0"));
    EXPECT_EQ(armed(engine.end), 0);
}

// holds: working-wan-ends-cycle
TEST_F(cycle_start, the_network_is_not_asked_when_the_current_port_has_no_link)
{
    plug({"eth1"});
    fake_router.network_state = 0;
    open_cycle();
    EXPECT_TRUE(fake_router.bus_calls.empty());
    EXPECT_EQ(armed(engine.using_proto_detect), 100);
}

TEST_F(cycle_start, the_current_port_is_listed_first_and_then_taken_out)
{
    plug({"eth0", "eth1"});
    open_cycle();
    EXPECT_TRUE(log->has("Debug", "uloop_start_wan_detect", "now wan:eth0 already in detect list!"));
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 2 device(s):eth0、eth1、"));
    EXPECT_EQ(candidates(), "eth1");
    EXPECT_EQ(engine.possible_wan_dev_list.count, 1);
}

TEST_F(cycle_start, an_unlinked_current_port_is_added_for_the_listing)
{
    plug({"eth1"});
    open_cycle();
    EXPECT_TRUE(log->has("Debug", "uloop_start_wan_detect", "Always add now wan:eth0 to detect list!"));
    EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 2 device(s):eth0、eth1、"));
}

// holds: joined-names
TEST_F(cycle_start, joined_names_end_with_the_ideographic_comma_after_the_last_one_too)
{
    engine.possible_wan_dev_list.add(dev("eth1"));
    engine.possible_wan_dev_list.add(dev("eth3"));
    char names[JOINED_NAMES_SIZE];
    EXPECT_EQ(join_candidate_names(names), 2);
    EXPECT_STREQ(names, "eth1\xE3\x80\x81"
                        "eth3\xE3\x80\x81");
}

// holds: joined-names
TEST_F(cycle_start, joined_names_that_do_not_fit_are_left_out_whole)
{
    t_device ports[20] = {};
    for (t_device &port : ports) {
        memset(port.name, 'x', NAME_SIZE - 1);
        engine.possible_wan_dev_list.add(&port);
    }
    char names[JOINED_NAMES_SIZE];
    EXPECT_EQ(join_candidate_names(names), 20);
    EXPECT_EQ(strlen(names) % (NAME_SIZE - 1 + 3), 0u);
    EXPECT_LT(strlen(names), sizeof names);
    engine.possible_wan_dev_list.clear();
}

// holds: parked-ports-join
TEST_F(cycle_start, parked_ports_join_and_a_count_that_went_wrong_is_repaired)
{
    plug({"eth1", "eth2"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    engine.possible_wan_dev_list_cache.add(dev("eth1"));
    fire(engine.start_wan_detect);
    EXPECT_TRUE(log->has("Error", "uloop_start_wan_detect",
                         "Impossible to happen! Check code carefully! traverse found 3 device, But the original "
                         "recorded is 4, Fix recorded!"));
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_EQ(engine.possible_wan_dev_list.count, 2);
}

// holds: parked-ports-join
TEST_F(cycle_start, a_candidate_without_a_device_is_removed)
{
    plug({"eth1", "eth2"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    engine.possible_wan_dev_list.head.next->next->dev = nullptr;
    fire(engine.start_wan_detect);
    EXPECT_TRUE(log->has("Error", "uloop_start_wan_detect",
                         "Impossible to happen! Check code carefully! remove this node manully!"));
    EXPECT_EQ(candidates(), "eth1");
    EXPECT_EQ(engine.possible_wan_dev_list.count, 1);
}

// holds: nobody-left
TEST_F(cycle_start, with_all_candidates_filtered_out_the_pass_repeats_every_second_and_the_cycle_stays_open)
{
    open_cycle();
    EXPECT_TRUE(log->has("Debug", "uloop_start_wan_detect", NOBODY));
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_TRUE(engine.detecting);
    EXPECT_TRUE(port_model.wan_detect_running);
    fire(engine.start_wan_detect);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_EQ(log->count("Debug", "uloop_start_wan_detect", NOBODY), 2);
}

// holds: lan-port-no-candidate
TEST_F(cycle_start, a_port_with_lan_hosts_behind_it_is_never_a_candidate)
{
    plug({"eth1", "eth2"});
    fake_probes.lan_ports = {"eth1"};
    open_cycle();
    EXPECT_EQ(candidates(), "eth2");
    EXPECT_TRUE(log->has("Debug", "remove_brlan_dev_from_list",
                         "Remove eth1 out of pssible wan list due to link down or has br-lan device(s)!"));
}

// holds: lan-port-no-candidate, nobody-left
TEST_F(cycle_start, when_only_ports_with_lan_hosts_are_left_the_pass_repeats)
{
    plug({"eth1"});
    fake_probes.lan_ports = {"eth1"};
    open_cycle();
    EXPECT_TRUE(log->has("Debug", "uloop_start_wan_detect", NOBODY));
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
}

TEST_F(cycle_start, a_parked_port_that_lost_its_link_is_removed)
{
    plug({"eth1", "eth2"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    unplug({"eth2"});
    fire(engine.start_wan_detect);
    EXPECT_EQ(candidates(), "eth1");
    EXPECT_TRUE(log->has("Debug", "remove_impossble_wan_dev_from_list",
                         "Remove eth2 out of pssible wan list due to link down or not allow to use as wan!"));
}

// holds: fake-wan-dropped
TEST_F(cycle_start, a_fake_wan_port_among_the_removed_ones_is_forgotten_when_it_has_a_link)
{
    plug({"eth1", "eth2"});
    port_model.fake_wan = dev("eth2");
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 60);
    fake_router.on_command = [](const std::string &) {
        EXPECT_EQ(pthread_rwlock_trywrlock(&engine.gate.locks.device_lock), 0) << "a command ran under the device lock";
        pthread_rwlock_unlock(&engine.gate.locks.device_lock);
    };
    fire(engine.start_wan_detect);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_EQ(fake_router.count("/sbin/wanlan_port_reload"), 1);
}

// holds: fake-wan-dropped
TEST_F(cycle_start, a_fake_wan_port_without_a_link_stays)
{
    plug({"eth1", "eth2"});
    port_model.fake_wan = dev("eth2");
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    unplug({"eth2"});
    fire(engine.start_wan_detect);
    EXPECT_EQ(port_model.fake_wan, dev("eth2"));
}

// holds: fake-wan-dropped
TEST_F(cycle_start, a_fake_wan_port_with_lan_hosts_is_an_oddity_that_is_told)
{
    plug({"eth1", "eth2"});
    port_model.fake_wan = dev("eth2");
    fake_probes.lan_ports = {"eth2"};
    open_cycle();
    EXPECT_TRUE(log->has("Error", "remove_brlan_dev_from_list", "Impossibe! fake_wan has a br-lan device?"));
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

// holds: fake-wan-dropped
TEST_F(cycle_start, the_fake_wan_port_matches_by_name_only)
{
    t_device twin = {};
    strcpy(twin.name, "eth2");
    port_model.fake_wan = dev("eth2");
    t_leaving_fake_wan leavers;
    leavers.note(dev("eth1"));
    EXPECT_FALSE(leavers.remove(false));
    leavers.note(&twin);
    EXPECT_TRUE(leavers.remove(false));
}

TEST_F(cycle_start, list_members_lose_what_the_cycle_learned)
{
    engine.possible_wan_dev_list.add(dev("eth1"));
    dev("eth1")->is_brlan_dev = 1;
    dev("eth1")->result.gateway.ipv4_be = 7;
    dev("eth2")->is_brlan_dev = 1;
    clear_dev_list_volatile_attribute(&engine.possible_wan_dev_list);
    EXPECT_FALSE(dev("eth1")->is_brlan_dev);
    EXPECT_EQ(dev("eth1")->result.gateway.ipv4_be, 0u);
    EXPECT_TRUE(dev("eth2")->is_brlan_dev);
    EXPECT_TRUE(log->has("Debug", "clear_dev_list_volatile_attribute",
                         "Entering function: clear_dev_list_volatile_attribute!"));
}

struct t_method_case {
    const char *type;
    const char *secondary; // empty: not configured
    const char *method;    // "arp", "dhcp", "pppoe", "none"
};

class confirmation : public cycle_start, public testing::WithParamInterface<t_method_case> {};

// holds: way-of-confirming, probe-stage-times
TEST_P(confirmation, follows_the_connection_type)
{
    const t_method_case &wanted = GetParam();
    std::string options;
    if (*wanted.secondary)
        options = std::string("config proto '") + wanted.type + "'\n\toption snd_conn '" + wanted.secondary + "'\n";
    set_connection(wanted.type, options);
    plug({"eth1"});
    open_cycle();
    std::string method = wanted.method;
    EXPECT_EQ(engine.using_arp.pending, method == "arp");
    EXPECT_EQ(engine.end.pending, method == "none");
    EXPECT_EQ(engine.proto_detect_start.pending, method == "dhcp" || method == "pppoe");
    if (engine.proto_detect_start.pending) {
        EXPECT_EQ(engine.proto_detect_target, protocol(method));
        EXPECT_EQ(engine.proto_detect_dev, nullptr);
        EXPECT_EQ(engine.proto_detect_timeout_ms, 2000u);
        EXPECT_EQ(armed(engine.using_proto_detect), 100);
        EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 1 device(s) using protocol detect"));
    }
    if (method == "arp") {
        EXPECT_TRUE(log->has("Info", "uloop_start_wan_detect", "Start to detect in 1 device(s) using arp"));
    }
    if (method == "none") {
        EXPECT_TRUE(log->has("Warning", "uloop_start_wan_detect",
                             std::string("detecting protocol ") + wanted.type + "(sed_conn:" + wanted.secondary +
                                 ") is not supported!, exit!"));
    }
}

INSTANTIATE_TEST_SUITE_P(types, confirmation,
                         testing::Values(t_method_case{"static", "", "arp"}, t_method_case{"dhcp", "", "dhcp"},
                                         t_method_case{"pppoe", "", "pppoe"}, t_method_case{"pppoe", "static", "pppoe"},
                                         t_method_case{"l2tp", "dynamic", "dhcp"},
                                         t_method_case{"pptp", "dynamic", "dhcp"}, t_method_case{"l2tp", "", "dhcp"},
                                         t_method_case{"l2tp", "static", "arp"}, t_method_case{"pptp", "static", "arp"},
                                         t_method_case{"pptp", "", "dhcp"}, t_method_case{"l2tp", "none", "none"},
                                         t_method_case{"pptp", "none", "none"}, t_method_case{"ocn", "", "none"}));

TEST_F(cycle_start, a_stage_starts_with_no_result_file_and_no_recorded_protocol)
{
    plug({"eth1"});
    write_file(PROTO_RESULT_FILE, "dhcp");
    dev("eth1")->proto = protocol("dhcp");
    open_cycle();
    EXPECT_FALSE(file_exists(PROTO_RESULT_FILE));
    EXPECT_EQ(dev("eth1")->proto, nullptr);
    EXPECT_TRUE(port_model.proto_detect_running);
}

// holds: pass-cuts-stage
TEST_F(cycle_start, a_pass_in_the_middle_of_a_stage_cuts_that_stage)
{
    plug({"eth1"});
    open_cycle();
    fire(engine.proto_detect_start);
    fire(engine.proto_detect_end);
    ASSERT_EQ(engine.proto_detect_elapsed_ms, 500u);
    unplug({"eth1"});
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.proto_detect_elapsed_ms, 0u);
    EXPECT_FALSE(port_model.proto_detect_running);
    EXPECT_FALSE(engine.proto_detect_end.pending);
    EXPECT_FALSE(engine.using_proto_detect.pending);
    EXPECT_EQ(fake_probes.count("release dhcp"), 1);
}

// holds: pass-cuts-stage
TEST_F(cycle_start, a_cut_stage_closes_the_pppoe_batch_too)
{
    load("pppoe");
    plug({"eth1"});
    open_cycle();
    fire(engine.proto_detect_start);
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(fake_probes.count("release pppoe"), 1);
    EXPECT_EQ(fake_probes.count("release dhcp"), 0);
}

// holds: timers-bound
TEST_F(cycle_start, trying_each_port_is_not_supported)
{
    engine.try_each.cb(&engine.try_each);
    EXPECT_TRUE(log->has("Error", "uloop_wan_detect_try_each",
                         "Impossible to get here, try each port as wan is not supported!"));
}

// holds: heartbeat
TEST_F(cycle_start, the_heartbeat_rearms_itself_every_100_ms)
{
    uloop_timeout_set(&engine.heartbeat, 0);
    fire(engine.heartbeat);
    EXPECT_EQ(armed(engine.heartbeat), 100);
    uloop_timeout_cancel(&engine.heartbeat);
}

} // namespace
