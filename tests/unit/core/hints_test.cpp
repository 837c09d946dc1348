// SPDX-License-Identifier: MIT
#include "core/hints.h"

#include "core/cycle.h"
#include "core/link_change.h"
#include "model/banned.h"
#include "model/chronicle.h"
#include "model/port_config.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

class hints : public t_engine_test {
protected:
    static void run_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
        run_until_end();
        if (engine.end.pending)
            fire(engine.end);
    }
    // A cycle whose stages find nobody, until nobody is left.
    static void run_silent_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
        while (engine.proto_detect_start.pending) {
            fire(engine.proto_detect_start);
            while (engine.proto_detect_end.pending)
                fire(engine.proto_detect_end);
            fire(engine.using_proto_detect);
            fire(engine.start_wan_detect);
        }
    }
    // A cycle over all ports, up to and including its first pass.
    static void open_cycle()
    {
        start_wan_detect_all(0);
        fire(engine.init_wan_detect_all);
        fire(engine.start_wan_detect);
    }
    static void ban(const char *port)
    {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port, 1000);
    }
    static void configure_wan(const std::string &more)
    {
        write_config("network", read_file("/etc/config/network") + more);
    }
    int warnings() { return static_cast<int>(lines().size()); }
    std::vector<std::string> lines()
    {
        std::vector<std::string> found;
        for (const t_log_line &line : log->lines())
            if (line.level == "Warning" && line.function == "tell_verdict")
                found.push_back(line.body);
        return found;
    }
};

} // namespace

// holds: hint-vlan
TEST_F(hints, a_wan_interface_on_a_vlan_is_told_by_a_cycle_that_asked)
{
    configure_wan("\toption device 'eth0.35'\n");
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_VLAN);
    EXPECT_EQ(lines(), (std::vector<std::string>{
                           "The WAN interface is configured on a VLAN, and ports are asked without a tag!"}));
}

// holds: hint-vlan
TEST_F(hints, a_vlan_is_known_by_the_digit_behind_the_dot)
{
    configure_wan("\toption device 'eth0.7'\n");
    plug({"eth1"});
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, HINT_VLAN);
}

// holds: hint-vlan
TEST_F(hints, a_dot_in_a_name_is_no_vlan)
{
    configure_wan("\toption device 'eth0.x7'\n");
    plug({"eth1"});
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-vlan
TEST_F(hints, a_vlan_is_not_told_where_nobody_is_asked)
{
    configure_wan("\toption device 'eth0.35'\n");
    open_cycle();
    EXPECT_EQ(chronicle.hints, 0);
    EXPECT_EQ(warnings(), 0);
}

// holds: hint-vlan
TEST_F(hints, a_device_section_of_that_kind_tells_it_as_well)
{
    configure_wan("\toption ifname 'wan0'\nconfig device\n\toption type '8021q'\n\toption name 'wan0'\n");
    plug({"eth1"});
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, HINT_VLAN);
}

// holds: hint-vlan
TEST_F(hints, a_plain_port_is_no_vlan)
{
    configure_wan("\toption device 'eth0'\nconfig device\n\toption type 'bridge'\n\toption name 'eth0'\n");
    plug({"eth1"});
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, 0);
    EXPECT_EQ(warnings(), 0);
}

// holds: hint-ban
TEST_F(hints, only_a_banned_port_answers)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth2"};
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 1000);
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, HINT_ONLY_BANNED);
    EXPECT_EQ(lines(), (std::vector<std::string>{"Only a banned port answers!"}));
}

// holds: hint-ban
TEST_F(hints, a_banned_port_that_answers_beside_another_is_one_of_several)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 1000);
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_SEVERAL);
}

// holds: hint-reserved
TEST_F(hints, a_reserved_port_that_answered_before_is_told_when_nobody_answers)
{
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port3'\n");
    plug({"eth1", "eth3"});
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, 0);
    note_answer(dev("eth3"), "dhcp"); // of a request
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all); // the cycle that is open gives up
    fire(engine.start_wan_detect);
    fire(engine.end);
    run_silent_cycle();
    EXPECT_EQ(chronicle.hints, HINT_ONLY_RESERVED);
    EXPECT_EQ(lines(), (std::vector<std::string>{"Nobody answers, but a reserved port did when it was asked last!"}));
}

// holds: hint-pool
TEST_F(hints, a_pool_that_names_ports_which_do_not_exist)
{
    load("dhcp", "0 1 2 3 4", "0 1 2 9");
    plug({"eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_POOL);
    EXPECT_EQ(lines(), (std::vector<std::string>{"The pool of WAN ports names ports that do not exist!"}));
}

// holds: hint-several
TEST_F(hints, lines_that_answer_beside_each_other_are_told_once_and_stay_while_nobody_is_asked)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_SEVERAL);
    fake_router.network_state = 0;
    run_cycle(); // the WAN port works
    EXPECT_EQ(chronicle.hints, HINT_SEVERAL);
    EXPECT_EQ(lines(), (std::vector<std::string>{"More than one line answers!"}));
    fake_router.network_state = -1;
    fake_probes.dhcp_ports = {"eth2"};
    run_cycle();
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-several
TEST_F(hints, a_verdict_without_a_port_leaves_them_as_they_are)
{
    plug({"eth1", "eth2"});
    fake_probes.dhcp_ports = {"eth1", "eth2"};
    run_cycle();
    ASSERT_EQ(chronicle.hints, HINT_SEVERAL);
    open_cycle();
    port_model.enable = 0;
    run_until_end();
    fire(engine.end);
    EXPECT_EQ(newest_cycle()->decision, t_decision::switched_off);
    EXPECT_EQ(chronicle.hints, HINT_SEVERAL);
}

// holds: hint-several
TEST_F(hints, two_gateways_are_several_lines)
{
    set_connection("static", "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n");
    plug({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth1", "eth2"};
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_SEVERAL);
}

// holds: hint-several
TEST_F(hints, a_port_outside_the_pool_is_no_line_to_choose_from)
{
    load("dhcp", "0 1 2 3 4", "0 1 2 3");
    plug({"eth1", "eth4"});
    fake_probes.dhcp_ports = {"eth1", "eth4"};
    run_cycle();
    EXPECT_EQ(dev("eth4")->proto, protocol("dhcp"));
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-vlan
TEST_F(hints, a_vlan_is_told_until_the_setting_is_mended)
{
    const std::string untagged = read_file("/etc/config/network");
    configure_wan("\toption device 'eth0.35'\n");
    plug({"eth0", "eth1"});
    fake_probes.dhcp_ports = {"eth1"};
    run_cycle();
    fake_router.network_state = 0;
    run_cycle();
    EXPECT_EQ(chronicle.hints, HINT_VLAN);
    write_config("network", untagged);
    run_cycle();
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-pool, hint-looks
TEST_F(hints, a_pool_of_strangers_only_is_told_once_in_every_look)
{
    load("dhcp", "0 1 2 3 4", "9");
    plug({"eth1"});
    open_cycle();
    EXPECT_EQ(chronicle.hints, HINT_POOL);
    EXPECT_EQ(warnings(), 1);
    chronicle.hints = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(chronicle.hints, 0) << "only in a look";
    fire(engine.look_again);
    fire(engine.start_wan_detect);
    EXPECT_EQ(chronicle.hints, HINT_POOL);
}

// holds: hint-looks
TEST_F(hints, a_cycle_that_does_not_look_again_looks_for_hints_once)
{
    load("dhcp", "0 1 2 3 4", "9");
    write_config("network", read_file("/etc/config/network") +
                                "config auto_wan_detect 'auto_wan_detect'\n\toption retry_interval '0'\n");
    open_cycle();
    EXPECT_EQ(chronicle.hints, HINT_POOL);
    chronicle.hints = 0;
    fire(engine.start_wan_detect);
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-ban, hint-looks
TEST_F(hints, the_only_linked_port_is_banned_and_answered_before)
{
    plug({"eth1"});
    ban("eth1");
    open_cycle();
    EXPECT_EQ(chronicle.hints, 0);
    note_answer(dev("eth1"), "dhcp");
    fire(engine.look_again);
    fire(engine.start_wan_detect);
    EXPECT_EQ(chronicle.hints, HINT_ONLY_BANNED);
    EXPECT_EQ(newest_cycle()->asked, 0);
}

// holds: hint-reserved, hint-looks
TEST_F(hints, the_only_linked_port_is_reserved_and_answered_before)
{
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port3'\n");
    plug({"eth3"});
    note_answer(dev("eth3"), "dhcp");
    open_cycle();
    EXPECT_EQ(chronicle.hints, HINT_ONLY_RESERVED);
}

// holds: hint-reserved
TEST_F(hints, a_reserved_port_that_was_silent_when_it_was_asked_last_is_not_told)
{
    write_switch_config(5, 0, "config gaming 'gaming'\n\toption switch_port 'port3'\n");
    plug({"eth3"});
    note_answer(dev("eth3"), "dhcp");
    dev("eth3")->notes.asked_s = dev("eth3")->notes.answered_s + 1;
    open_cycle();
    EXPECT_EQ(chronicle.hints, 0);
}

// holds: hint-ban
TEST_F(hints, nothing_is_told_while_another_port_waits_for_the_look)
{
    plug({"eth0", "eth1", "eth2"});
    note_answer(dev("eth1"), "dhcp");
    ban("eth1");
    fake_router.links["eth0"] = false;
    wan_detect_process_link_change(dev("eth0"), false);
    fire(engine.start_wan_detect);
    ASSERT_EQ(noted_fate(dev("eth2")), t_fate::not_listed_yet);
    EXPECT_EQ(chronicle.hints, 0);
    unplug({"eth2"});
    fire(engine.look_again);
    fire(engine.start_wan_detect);
    EXPECT_EQ(chronicle.hints, HINT_ONLY_BANNED);
}

// holds: hint-several
TEST_F(hints, a_banned_port_that_answered_before_and_is_not_asked_is_no_second_line)
{
    set_connection("static", "config proto 'static'\n\toption ipaddr '10.0.0.2'\n\toption gateway '10.0.0.1'\n");
    plug({"eth1", "eth2"});
    fake_probes.gateway_ports = {"eth1", "eth2"};
    note_answer(dev("eth2"), "arp");
    ban("eth2");
    run_cycle();
    EXPECT_EQ(chronicle.hints, 0);
}
