// SPDX-License-Identifier: MIT
// The sentences of the method "explain".
#include <algorithm>

#include "model/banned.h"
#include "model/tables.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/platform/state_fixture.h"

namespace {

class state_reasons : public t_state_test {
protected:
    state_reasons() : eth0(add_port("eth0", 0)), eth1(add_port("eth1", 1))
    {
        port_model.enable = port_model.router_mode = 1;
        for (t_device *dev : {eth0, eth1}) {
            add_to_pool(dev);
            dev->link_active = 1;
        }
    }
    // The explanation after a cycle of ten seconds ago in which this became of the second port.
    std::string explain_fate(t_fate fate, t_decision decision = t_decision::nobody)
    {
        add_cycle(decision);
        note_fate(eth1, fate);
        fake_clock.advance_ms(10'000);
        return explain("eth1");
    }
    void ban(const t_device *dev, int seconds)
    {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, dev->name, seconds);
    }

    t_device *eth0, *eth1;
};

} // namespace

// holds: state-arguments
TEST_F(state_reasons, need_the_name_of_a_port)
{
    for (const char *arguments : {"{}", R"({"device":1})", R"({"name":"eth1"})", R"({"device":["eth1"]})"})
        EXPECT_EQ(call("explain", arguments).status, UBUS_STATUS_INVALID_ARGUMENT) << arguments;
    EXPECT_EQ(call("explain", nullptr).status, UBUS_STATUS_INVALID_ARGUMENT);
    t_message malformed;
    blobmsg_add_field(&malformed.buffer, BLOBMSG_TYPE_STRING, "device", "eth1", 4); // without an end
    EXPECT_EQ(call("explain", malformed.buffer.head).status, UBUS_STATUS_INVALID_ARGUMENT);
    t_log_capture log;
    for (const std::string &name : {std::string("eth2"), std::string(), std::string("eth11"), std::string(5000, 'e')})
        EXPECT_EQ(call("explain", R"({"device":")" + name + "\"}").status, UBUS_STATUS_NOT_FOUND) << name;
    release_port_model(&port_model);
    EXPECT_EQ(call("explain", R"({"device":"eth1"})").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(log.text(), "") << "any caller could fill the log";
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_with_lan_hosts_count_them)
{
    eth1->notes.lan_hosts = 2;
    eth1->notes.lan_seen_s = NOW_S + 6;
    EXPECT_EQ(explain_fate(t_fate::lan_hosts),
              "eth1 is not asked: 2 hosts of the LAN are behind it (last seen 4 s ago).\n"
              "A modem that has an address of the LAN's network looks like one.");
    eth1->notes.lan_hosts = 1;
    expect_has(explain("eth1"), "eth1 is not asked: 1 host of the LAN is behind it (last seen 4 s ago).\n");
    eth1->notes.lan_hosts = 0;
    const std::string past = "Cycle 1, begun 10 s ago: eth1 was not asked, for hosts of the LAN were behind it.\n"
                             "A modem that has an address of the LAN's network looks like one.";
    EXPECT_EQ(explain("eth1"), past);
    eth1->notes.lan_hosts = 1;
    add_cycle(t_decision::only_answer);
    EXPECT_EQ(explain("eth1"), "Cycle 2, begun 0 s ago: eth1 was not looked at, for there was no need of it.\n" + past);
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_without_a_link_are_those_of_now)
{
    const std::string no_link = "eth1 is not asked: it has no link.\n"
                                "A cable is missing, or the device at its other end is off.";
    eth1->link_active = 0;
    EXPECT_EQ(explain("eth1"), no_link + "\nNo cycle has begun so far.");
    EXPECT_EQ(explain_fate(t_fate::no_link), no_link);
    EXPECT_EQ(explain_fate(t_fate::works), no_link);
    eth1->link_active = 1;
    EXPECT_EQ(explain_fate(t_fate::no_link), "Cycle 3, begun 10 s ago: eth1 had no link. It has one now.");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_that_may_not_be_wan_name_the_setting)
{
    release_any_device(&port_model.wan_port_pool);
    EXPECT_EQ(explain_fate(t_fate::not_in_pool),
              "eth1 may not be WAN: it is not in the pool (network.auto_wan_detect.wan_port_pool).");
    keep_device(&port_model.lan_agg[0], create_new_device("eth1"));
    EXPECT_EQ(explain_fate(t_fate::reserved),
              "eth1 may not be WAN: it is reserved for a link aggregation (switch.lan_agg.lacpports).");
    keep_device(&port_model.gaming, create_new_device("eth1"));
    EXPECT_EQ(explain_fate(t_fate::reserved),
              "eth1 may not be WAN: it is the gaming port (switch.gaming.switch_port).");
    release_any_device(&port_model.gaming);
    release_any_device(&port_model.lan_agg[0]);
    add_to_pool(eth1);
    EXPECT_EQ(explain_fate(t_fate::reserved), "Cycle 4, begun 10 s ago: eth1 was reserved. It is free now.");
    EXPECT_EQ(explain_fate(t_fate::not_in_pool), "Cycle 5, begun 10 s ago: eth1 was not in the pool. It is now.");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_banned_port_tell_the_seconds_that_are_left)
{
    const std::string help = "The ban ends, too, when its link goes and comes back.";
    ban(eth1, 60);
    EXPECT_EQ(explain_fate(t_fate::banned), "eth1 may not be WAN: it is banned for another 50 s.\n" + help);
    ban(eth1, BAN_FOREVER);
    EXPECT_EQ(explain("eth1"), "eth1 may not be WAN: it is banned.\n" + help);
    ban(eth1, 0);
    EXPECT_EQ(explain("eth1"), "Cycle 1, begun 10 s ago: eth1 was banned. It is free now.");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_that_was_asked_tell_what_came_of_it)
{
    const std::string cycle = ", begun 10 s ago: eth1 ";
    EXPECT_EQ(explain_fate(t_fate::silent), "Cycle 1" + cycle + "was asked and stayed silent.");
    EXPECT_EQ(explain_fate(t_fate::other_answered),
              "Cycle 2" + cycle + "was asked and stayed silent, while another port answered.");
    EXPECT_EQ(explain_fate(t_fate::no_gateway),
              "Cycle 3" + cycle + "was not chosen, for the gateway did not answer behind it.");
    EXPECT_EQ(explain_fate(t_fate::no_name_server),
              "Cycle 4" + cycle + "was not chosen, for the name server behind another port answered first.");
    EXPECT_EQ(explain_fate(t_fate::lower_priority),
              "Cycle 5" + cycle +
                  "was not chosen, for another port was as good, and comes first in "
                  "network.auto_wan_detect.wan_port_priority.");
    EXPECT_EQ(explain_fate(t_fate::asked, t_decision::switched_off),
              "Cycle 6" + cycle + "was asked, and the end came before an answer.");
    EXPECT_EQ(explain_fate(t_fate::asked, t_decision::none),
              "Cycle 7" + cycle + "is asked, and has not answered so far.");
    EXPECT_EQ(explain_fate(t_fate::not_listed_yet),
              "Cycle 8" + cycle +
                  "was no candidate, for its link came too late, or was there before the loss that opened it.");
}

// holds: state-reasons
TEST_F(state_reasons, promise_the_next_look_only_when_there_is_one)
{
    const std::string promise = "\nThe next look at all ports takes it along.";
    expect_lacks(explain_fate(t_fate::not_listed_yet), promise);
    progress.retry_pause_s = 30;
    expect_has(explain("eth1"), promise);
    add_cycle(t_decision::wan_works);
    expect_lacks(explain("eth1"), promise);
}

// holds: state-reasons
TEST_F(state_reasons, of_a_question_without_an_end_are_told_as_past_in_the_next_cycle)
{
    expect_has(explain_fate(t_fate::asked, t_decision::none), "eth1 is asked, and has not answered so far.");
    add_cycle(t_decision::wan_works);
    expect_has(explain("eth1"), "eth1 was asked, and the end came before an answer.");
}

// holds: state-reasons
TEST_F(state_reasons, name_the_foreign_port_that_has_the_role)
{
    port_model.wan_dev = eth1;
    port_model.role_is_away = 1;
    copy_name(port_model.wan_role, "eth9");
    EXPECT_EQ(explain("eth1"), "The WAN role is at eth9, which is none of the daemon's ports: nobody is asked.\n"
                               "No cycle has begun so far.");
    expect_lacks(status(), R"("wan":)");
    port_model.role_is_away = 0;
    EXPECT_EQ(explain("eth1"), "eth1 is the WAN port.\nNo cycle has begun so far.");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_that_nobody_looked_at_are_those_of_the_cycle)
{
    const std::string cycle = ", begun 10 s ago: eth1 was not looked at, for ";
    int number = 0;
    const auto expect = [&](t_decision decision, const std::string &reason) {
        EXPECT_EQ(explain_fate(t_fate::not_looked_at, decision),
                  "Cycle " + std::to_string(++number) + cycle + reason + ".");
    };
    expect(t_decision::none, "its turn has not come");
    expect(t_decision::wan_works, "the WAN port works");
    expect(t_decision::gave_up, "another cycle was asked for");
    expect(t_decision::switched_off, "detection was switched off");
    expect(t_decision::role_is_foreign, "the WAN role is at a port that is none of the daemon's");
    expect(t_decision::not_detectable, "there is no connection type, or one that nobody can ask for");
    expect(t_decision::only_answer, "there was no need of it");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_port_that_nobody_looked_at_lately_are_those_of_the_last_look_too)
{
    explain_fate(t_fate::silent);
    explain_fate(t_fate::not_looked_at);
    EXPECT_EQ(explain_fate(t_fate::not_looked_at, t_decision::wan_works),
              "Cycle 3, begun 10 s ago: eth1 was not looked at, for the WAN port works.\n"
              "Cycle 1, begun 30 s ago: eth1 was asked and stayed silent.");
}

// holds: state-reasons
TEST_F(state_reasons, of_the_wan_port_tell_whether_it_worked)
{
    port_model.wan_dev = eth1;
    EXPECT_EQ(explain("eth1"), "eth1 is the WAN port.\nNo cycle has begun so far.");
    EXPECT_EQ(explain_fate(t_fate::works), "eth1 is the WAN port.\n"
                                           "Cycle 1, begun 10 s ago: eth1 worked as the WAN port.");
    EXPECT_EQ(explain_fate(t_fate::not_connected), "eth1 is the WAN port.\n"
                                                   "Cycle 2, begun 10 s ago: eth1 did not work as the WAN port.");
    ban(eth1, BAN_FOREVER);
    expect_has(explain("eth1"), "eth1 may not be WAN: it is banned.\n");
    expect_has(explain("eth1"), "eth1 did not work as the WAN port.");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_winner_tell_how_it_won)
{
    int number = 0;
    port_model.wan_dev = eth1;
    const auto expect = [&](t_decision decision, const std::string &reason) {
        add_cycle(decision, eth1);
        note_fate(eth1, t_fate::won);
        EXPECT_EQ(explain("eth1"), "eth1 is the WAN port.\nCycle " + std::to_string(++number) +
                                       ", begun 0 s ago: eth1 won, for " + reason + ".");
    };
    expect(t_decision::only_answer, "it was the only port that answered");
    expect(t_decision::only_gateway, "the gateway answered behind it alone");
    expect(t_decision::name_server, "the name server behind it answered first");
    expect(t_decision::priority, "of several that were as good it comes first in the order of the ports");
    expect(t_decision::nobody, "nobody else was left");
}

// holds: state-reasons
TEST_F(state_reasons, of_a_winner_tell_that_its_swap_was_called_off)
{
    port_model.wan_dev = eth0;
    add_cycle(t_decision::only_answer, eth1);
    note_fate(eth1, t_fate::won);
    EXPECT_EQ(explain("eth1"), "Cycle 1, begun 0 s ago: eth1 won, for it was the only port that answered.\n"
                               "The swap was called off: the WAN role was moved meanwhile, or it could not be read.\n"
                               "It did not get the WAN role.");
    EXPECT_EQ(newest_cycle()->swap, t_swap::called_off);
}

// holds: state-reasons
TEST_F(state_reasons, of_a_winner_tell_what_became_of_the_swap)
{
    t_cycle_note &cycle = add_cycle(t_decision::only_answer, eth1);
    note_fate(eth1, t_fate::won);
    const std::string won = "Cycle 1, begun 0 s ago: eth1 won, for it was the only port that answered.\n";
    cycle.swap = t_swap::failed;
    cycle.swap_status = 7;
    EXPECT_EQ(explain("eth1"), won + "The swap command ended with status 7.\nIt did not get the WAN role.");
    cycle.swap_status = -1;
    EXPECT_EQ(explain("eth1"), won + "The swap command did not end by itself.\nIt did not get the WAN role.");
    cycle.swap = t_swap::done;
    expect_has(explain("eth1"), won + "The swap command did not end by itself.\nThe WAN role was moved to it; ");
    cycle.swap_status = 7;
    EXPECT_EQ(explain("eth1"), won + "The WAN role was moved to it; the next cycle tests that.");
    port_model.enable = 0;
    expect_has(explain("eth1"), won + "The WAN role was moved to it.");
    port_model.enable = 1;
    cycle.confirmation = t_confirmation::disagreed;
    EXPECT_EQ(explain("eth1"), won + "The WAN role was moved to it, and the next cycle did not agree.");
    cycle.confirmation = t_confirmation::agreed;
    EXPECT_EQ(explain("eth1"), won + "The WAN role was moved to it, and the next cycle agreed.");
    expect_lacks(explain("eth0"), "won");
    cycle.confirmation = t_confirmation::unknown;
    add_cycle(t_decision::gave_up);
    expect_has(explain("eth1"), won + "The WAN role was moved to it.");
    cycle.confirmation = t_confirmation::agreed;
    add_cycle(t_decision::wan_works, eth1);
    note_fate(eth1, t_fate::works);
    EXPECT_EQ(explain("eth1"), "Cycle 3, begun 0 s ago: eth1 worked as the WAN port.\n" + won +
                                   "The WAN role was moved to it, and the next cycle agreed.");
}

// holds: state-reasons
TEST_F(state_reasons, tell_of_questions_and_of_the_last_answer)
{
    eth1->result.server_mac[MAC_SIZE - 1] = 9;
    note_question(eth1);
    note_answer(eth1, "pppoe", eth1->result);
    expect_has(explain_fate(t_fate::silent), "\nIt was asked 1 time within the last hour, the last time 10 s ago.\n"
                                             "Its last answer: pppoe from 00-00-00-00-00-09, 10 s ago.");
    note_question(eth1);
    note_answer(eth1, "dhcp", eth1->result);
    expect_has(explain("eth1"), "\nIt was asked 2 times within the last hour, the last time 0 s ago.\n"
                                "Its last answer: dhcp from 00-00-00-00-00-09, 0 s ago.");
    eth1->notes.learned.server_mac[MAC_SIZE - 1] = 0;
    expect_has(explain("eth1"), "\nIts last answer: dhcp, 0 s ago.");
    fake_clock.advance_ms(3'700'000);
    expect_has(explain("eth1"), "\nIt was asked 0 times within the last hour, the last time 3700 s ago.\n");
}

// holds: state-reasons
TEST_F(state_reasons, tell_what_keeps_the_whole_daemon_from_asking)
{
    progress.starting = true;
    expect_has(explain("eth1"), "The daemon is starting, and asks nobody so far.\n");
    progress.starting = false;
    expect_lacks(explain("eth1"), "starting");
    port_model.wan_dev = eth1;
    expect_has(explain("eth1"), "eth1 is the WAN port.\n");
    port_model.router_mode = 0;
    expect_has(explain("eth1"), "The router is not in router mode: nobody is asked, and nobody looks at the links.\n");
    port_model.enable = 0;
    EXPECT_EQ(explain("eth1"),
              "Detection is off: nobody is asked, and nobody looks at the links.\neth1 is the WAN port.\n"
              "No cycle has begun so far.");
}

// holds: state-reasons
TEST_F(state_reasons, tell_what_comes_next)
{
    progress = {"looking", "look", 20'001, 30, 21, false};
    expect_has(explain("eth1"), "\nAll ports are looked at again in 21 s.");
    progress.next = "cycle";
    expect_has(explain("eth1"), "\nThe next cycle begins in 21 s.");
    progress.next = "pass";
    EXPECT_EQ(explain("eth1"), "No cycle has begun so far.");
}

// holds: state-reasons
TEST_F(state_reasons, of_silence_name_a_vlan_that_nobody_asks_on)
{
    const std::string vlan = "\nIt is asked untagged, and the WAN interface is configured on a VLAN.";
    chronicle.hints = HINT_VLAN;
    expect_has(explain_fate(t_fate::silent), vlan);
    expect_lacks(explain_fate(t_fate::works), vlan);
    chronicle.hints = HINT_SEVERAL;
    expect_lacks(explain_fate(t_fate::silent), vlan);
}

// holds: state-text
TEST_F(state_reasons, are_printable)
{
    add_port("eth\xe4", 2);
    const std::string json = call("explain", "{\"device\":\"eth\xe4\"}").json;
    expect_has(json, R"({"device":"eth?","text":["eth? may not be WAN:)");
    EXPECT_TRUE(std::all_of(json.begin(), json.end(), [](char byte) { return byte >= ' ' && byte <= '~'; }));
}
