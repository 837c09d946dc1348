// SPDX-License-Identifier: MIT
// What a cycle leaves in the chronicle: who opened it, what became of each port, what decided.
#include "model/chronicle.h"

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include <arpa/inet.h>

#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/link_change.h"
#include "core/proto_stage.h"
#include "core/wan_role.h"
#include "model/banned.h"
#include "model/chronicle_words.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr const char *STATIC_OPTIONS =
    "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n"
    "\toption pri_dns '9.9.9.9'\n";
constexpr const char *STATIC_TUNNEL = "config proto 'pptp'\n\toption snd_conn 'static'\n\toption static_ip '10.0.0.2'\n"
                                      "\toption static_gateway '10.0.0.1'\n";

class chronicle_of_cycles : public t_engine_test {
protected:
    // A cycle over all ports, up to and including its first pass.
    static void open()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    // The one that is open goes on to its end.
    static void finish()
    {
        run_until_end();
        fire(engine.end);
    }
    static void run_cycle()
    {
        open();
        finish();
    }
    // The stage that is open, and its judgement.
    static void run_stage()
    {
        fire(engine.proto_detect_start);
        while (engine.proto_detect_end.pending)
            fire(engine.proto_detect_end);
        fire(engine.using_proto_detect);
    }
    static void run_stages(int count)
    {
        for (int i = 0; i < count; i++) {
            run_stage();
            fire(engine.start_wan_detect);
        }
    }
    static void lose(const char *port)
    {
        fake_router.links[port] = false;
        wan_detect_process_link_change(dev(port), false);
    }
    static void ban(const char *port)
    {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port, 100);
    }
    static std::string fate(const char *port)
    {
        const char *word = fate_word(noted_fate(dev(port)));
        return word ? word : "";
    }
    static t_cycle_note last() { return newest_cycle() ? *newest_cycle() : t_cycle_note{}; }
    static std::string winner()
    {
        for (int i = 0; i < 5; i++) {
            const std::string name = "eth" + std::to_string(i);
            if (port_place(dev(name)) == last().winner)
                return name;
        }
        return "none";
    }
    static std::string asked()
    {
        std::string names;
        for (int i = 0; i < 5; i++) {
            const std::string name = "eth" + std::to_string(i);
            if (last().asked >> port_place(dev(name)) & 1)
                names += (names.empty() ? "" : " ") + name;
        }
        return names;
    }
};

} // namespace

// --- openers

// holds: chronicle-openers
TEST_F(chronicle_of_cycles, a_call_over_the_bus_opens_a_cycle)
{
    open();
    EXPECT_EQ(last().opener, t_opener::bus_call);
    EXPECT_EQ(last().number, 1u);
    EXPECT_EQ(last().decision, t_decision::none);
}

// holds: chronicle-openers
TEST_F(chronicle_of_cycles, a_loss_opens_a_cycle_also_when_one_over_all_ports_was_asked_for)
{
    plug({"eth0"});
    start_wan_detect_all(21000);
    lose("eth0");
    fire(engine.start_wan_detect);
    EXPECT_EQ(last().opener, t_opener::wan_loss);
    fire(engine.init_wan_detect_all); // the one that runs gives up
    fire(engine.start_wan_detect);
    fire(engine.end);
    EXPECT_EQ(last().decision, t_decision::gave_up);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(last().opener, t_opener::bus_call);
    EXPECT_EQ(last().number, 2u);
}

// holds: chronicle-openers
TEST_F(chronicle_of_cycles, a_cycle_over_all_ports_that_overtakes_a_loss_is_the_one_that_was_asked_for)
{
    plug({"eth0"});
    lose("eth0");
    open();
    EXPECT_EQ(last().opener, t_opener::bus_call);
}

// holds: chronicle-openers
TEST_F(chronicle_of_cycles, a_swap_opens_the_cycle_that_tests_it)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(last().opener, t_opener::after_swap);
}

// holds: chronicle-openers
TEST_F(chronicle_of_cycles, a_look_in_a_cycle_of_its_own_opens_it)
{
    set_connection("ocn");
    plug({"eth1"});
    run_cycle();
    EXPECT_EQ(last().decision, t_decision::not_detectable);
    fire(engine.look_again);
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(last().opener, t_opener::look_again);
}

// --- fates

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, what_keeps_a_port_from_being_wan_is_told_whether_it_was_listed_or_not)
{
    load("dhcp", "0 1 2 3 4", "0 1 3 4");
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port3'\n");
    plug({"eth2", "eth3", "eth4"});
    ban("eth4");
    open();
    EXPECT_EQ(fate("eth0"), "no_link");
    EXPECT_EQ(fate("eth1"), "no_link");
    EXPECT_EQ(fate("eth2"), "not_in_pool");
    EXPECT_EQ(fate("eth3"), "reserved");
    EXPECT_EQ(fate("eth4"), "banned");
    EXPECT_EQ(asked(), "");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, the_wan_port_works_and_the_others_are_told_as_far_as_they_were_looked_at)
{
    plug({"eth0", "eth2"});
    fake_router.network_state = 0;
    run_cycle();
    EXPECT_EQ(fate("eth0"), "works");
    EXPECT_EQ(fate("eth1"), "no_link");
    EXPECT_EQ(fate("eth2"), "");
    EXPECT_EQ(last().decision, t_decision::wan_works);
    EXPECT_EQ(winner(), "eth0");
    EXPECT_EQ(last().swap, t_swap::not_needed);
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_port_that_was_asked_says_so_also_when_the_wan_port_works_by_then)
{
    plug({"eth0", "eth2"});
    open();
    run_stage();
    fake_router.network_state = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth0"), "works");
    EXPECT_EQ(fate("eth2"), "asked");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_wan_port_that_is_not_connected_or_banned_says_so)
{
    plug({"eth0"});
    open();
    EXPECT_EQ(fate("eth0"), "not_connected");
    ban("eth0");
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth0"), "banned");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_port_with_hosts_of_the_lan_behind_it_is_not_asked)
{
    plug({"eth1", "eth2"});
    fake_probes.lan_ports = {"eth1"};
    open();
    EXPECT_EQ(fate("eth1"), "lan_hosts");
    EXPECT_EQ(fate("eth2"), "asked");
    EXPECT_EQ(asked(), "eth2");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_port_that_had_a_link_before_the_loss_is_not_listed_yet_until_the_look)
{
    plug({"eth0", "eth2"});
    lose("eth0");
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth0"), "no_link");
    EXPECT_EQ(fate("eth2"), "not_listed_yet");
    fire(engine.look_again);
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth2"), "asked");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, three_silent_stages_are_remembered_while_nobody_is_left_and_end_with_the_link)
{
    plug({"eth1"});
    open();
    run_stages(2);
    EXPECT_EQ(fate("eth1"), "asked");
    run_stages(1);
    EXPECT_EQ(fate("eth1"), "silent");
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth1"), "silent");
    unplug({"eth1"});
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth1"), "no_link");
    plug({"eth1"});
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth1"), "not_listed_yet");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, hosts_that_appear_behind_a_silent_port_are_why_it_is_not_asked_again)
{
    plug({"eth1"});
    open();
    run_stages(3);
    fake_probes.lan_ports = {"eth1"};
    fire(engine.look_again);
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth1"), "lan_hosts");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_silent_port_falls_out_when_another_one_answers)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    run_cycle();
    EXPECT_EQ(fate("eth1"), "other_answered");
    EXPECT_EQ(fate("eth2"), "won");
}

// holds: chronicle-fates
TEST_F(chronicle_of_cycles, a_port_that_loses_its_link_while_it_is_asked_says_so)
{
    plug({"eth1"});
    open();
    fire(engine.proto_detect_start);
    while (engine.proto_detect_end.pending)
        fire(engine.proto_detect_end);
    dev("eth1")->link_active = 0;
    fire(engine.using_proto_detect);
    EXPECT_EQ(fate("eth1"), "no_link");
}

// holds: chronicle-fates, chronicle-decisions
TEST_F(chronicle_of_cycles, a_gateway_behind_one_port_decides)
{
    set_connection("static", STATIC_OPTIONS);
    plug({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth2"};
    run_cycle();
    EXPECT_EQ(fate("eth1"), "no_gateway");
    EXPECT_EQ(fate("eth2"), "won");
    EXPECT_EQ(last().decision, t_decision::only_gateway);
    EXPECT_EQ(asked(), "eth1 eth2");
}

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, the_server_of_a_tunnel_behind_one_port_decides)
{
    set_connection("pptp", STATIC_TUNNEL);
    plug({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth2"};
    run_cycle();
    EXPECT_EQ(fate("eth2"), "won");
    EXPECT_EQ(last().decision, t_decision::only_gateway);
}

// holds: chronicle-fates, chronicle-decisions
TEST_F(chronicle_of_cycles, a_name_server_decides_between_two)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    fake_probes.dns_ports = {"eth2"};
    run_cycle();
    EXPECT_EQ(fate("eth1"), "no_name_server");
    EXPECT_EQ(fate("eth2"), "won");
    EXPECT_EQ(last().decision, t_decision::name_server);
    EXPECT_EQ(winner(), "eth2");
}

// holds: chronicle-fates, chronicle-decisions
TEST_F(chronicle_of_cycles, priority_decides_between_equals)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    run_cycle();
    EXPECT_EQ(fate("eth1"), "won");
    EXPECT_EQ(fate("eth2"), "lower_priority");
    EXPECT_EQ(last().decision, t_decision::priority);

    load("pppoe");
    plug({"eth1", "eth2"});
    fake_probes.pppoe_ports = {"eth1", "eth2"};
    run_cycle();
    EXPECT_EQ(last().decision, t_decision::priority);
    EXPECT_EQ(fate("eth2"), "lower_priority");

    load();
    set_connection("pptp", STATIC_TUNNEL);
    plug({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth1", "eth2"};
    run_cycle();
    EXPECT_EQ(last().decision, t_decision::priority);
    EXPECT_EQ(fate("eth2"), "lower_priority");
}

// --- decisions

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, the_only_answer_decides)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    EXPECT_EQ(last().decision, t_decision::only_answer);
    EXPECT_EQ(chronicle.counters.verdicts, 1u);
    EXPECT_EQ(chronicle.counters.cycles, 1u);
}

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, detection_that_is_switched_off_ends_a_cycle_and_takes_a_verdict_back)
{
    plug({"eth1"});
    open();
    port_model.enable = 0;
    finish();
    EXPECT_EQ(last().decision, t_decision::switched_off);
    EXPECT_EQ(fate("eth1"), "asked");
    EXPECT_EQ(winner(), "none");

    port_model.enable = 1;
    fake_probes.dhcp_ports = {"eth1"};
    open();
    run_until_end();
    EXPECT_EQ(last().decision, t_decision::only_answer);
    port_model.enable = 0;
    fire(engine.end);
    EXPECT_EQ(last().decision, t_decision::switched_off);
}

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, a_role_at_a_port_that_is_none_of_the_table_ends_a_cycle)
{
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    write_switch_config(6, 5);
    fire(engine.start_wan_detect);
    finish();
    EXPECT_EQ(last().decision, t_decision::role_is_foreign);
}

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, a_search_that_fails_leaves_nobody)
{
    set_connection("static", STATIC_OPTIONS);
    plug({"eth1"});
    fake_probes.bridge_readable = false;
    run_cycle();
    EXPECT_EQ(last().decision, t_decision::nobody);
    EXPECT_EQ(winner(), "none");
}

// holds: chronicle-decisions
TEST_F(chronicle_of_cycles, a_void_verdict_is_forgotten)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    open();
    run_until_end();
    ban("eth1");
    fire(engine.end);
    EXPECT_EQ(last().decision, t_decision::none);
    fire(engine.start_wan_detect);
    EXPECT_EQ(fate("eth1"), "banned");
    EXPECT_EQ(last().number, 1u);
    EXPECT_EQ(chronicle.counters.verdicts, 0u);
}

// --- swaps

// holds: chronicle-swaps
TEST_F(chronicle_of_cycles, a_swap_is_asked_for_and_the_next_cycle_agrees)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    EXPECT_EQ(last().swap, t_swap::done);
    EXPECT_EQ(last().swap_status, 0);
    EXPECT_EQ(last().confirmation, t_confirmation::unknown);
    EXPECT_EQ(chronicle.counters.swaps_asked, 1u);
    fake_router.network_state = 0;
    fire(engine.init_wan_detect_all);
    finish();
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::agreed);
    EXPECT_EQ(last().confirmation, t_confirmation::unknown);
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 1u);
}

// holds: chronicle-swaps
TEST_F(chronicle_of_cycles, a_role_that_did_not_move_is_a_swap_that_failed)
{
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    fake_router.swap_works = false;
    run_cycle();
    EXPECT_EQ(last().swap, t_swap::failed);
    EXPECT_EQ(winner(), "eth1");
    fire(engine.init_wan_detect_all);
    fire(engine.start_wan_detect);
    EXPECT_EQ(remembered_cycle(1)->confirmation, t_confirmation::disagreed);
    EXPECT_EQ(chronicle.counters.swaps_failed_in_a_row, 1u);
}

// --- the line

// How often it was said, however long the cycle took.
static int verdicts_of(t_log_capture *log, const std::string &verdict)
{
    const std::regex line("Verdict: " + verdict + ", [0-9]+\\.[0-9] s");
    const std::vector<t_log_line> lines = log->lines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&line](const t_log_line &one) {
        return one.level == "Notice" && one.function == "tell_verdict" && std::regex_match(one.body, line);
    }));
}

// holds: verdict-line
TEST_F(chronicle_of_cycles, each_verdict_is_one_line)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    EXPECT_EQ(verdicts_of(log.get(), "eth1 by only_answer, 2 asked"), 1);
    port_model.enable = 0;
    fire(engine.init_wan_detect_all);
    finish();
    EXPECT_EQ(verdicts_of(log.get(), "none by switched_off, 0 asked"), 1);
}
