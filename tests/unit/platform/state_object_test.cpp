// SPDX-License-Identifier: MIT
// What the methods "status" and "history" of the state object answer, field by field.
#include <algorithm>

#include <arpa/inet.h>

#include "model/banned.h"
#include "model/tables.h"
#include "platform/tallies.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/platform/failing_messages.h"
#include "tests/unit/platform/state_fixture.h"

namespace {

constexpr size_t LARGEST_REPLY = 128 * 1024; // what every bus passes on, with room
const uint8_t SERVER[MAC_SIZE] = {2, 0, 0, 0, 0, 1};

class state_object_answers : public t_state_test {
protected:
    state_object_answers() : eth0(add_port("eth0", 0)), eth1(add_port("eth1", 1)) {}

    // The part of a status that tells of the second port.
    static std::string second_port()
    {
        const std::string text = status();
        const size_t begin = text.find(R"({"name":"eth1")");
        return begin == std::string::npos ? "" : text.substr(begin, text.find("\"counters\"") - begin);
    }
    static void answer(t_device *dev, const char *protocol, const char *address)
    {
        std::copy(SERVER, SERVER + MAC_SIZE, dev->result.server_mac);
        inet_pton(AF_INET, address, &dev->result.address.ipv4_be);
        inet_pton(AF_INET, "192.0.2.1", &dev->result.gateway.ipv4_be);
        inet_pton(AF_INET, "192.0.2.53", &dev->result.dns_server.ipv4_be);
        note_answer(dev, protocol, dev->result);
    }
    void fill_to_the_brim();

    t_device *eth0, *eth1;
};

// As much as fits into the chronicle and the tables.
void state_object_answers::fill_to_the_brim()
{
    for (size_t i = 2; i < MAX_DEVICES; i++)
        add_port("eth" + std::to_string(i) + std::string(NAME_SIZE, 'x'), 9);
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        copy_name(dev->label, std::string(NAME_SIZE, 'l').c_str());
        dev->is_combo = dev->priority = dev->link_active = 1;
        dev->notes.lan_hosts = UINT16_MAX;
        dev->notes.lan_seen_s = 1;
        note_question(dev);
        answer(dev, "192.0.2.200", "192.0.2.200");
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, dev->name, 2000);
        keep_device(&port_model.gaming, create_new_device(dev->name));
    }
    for (int i = 0; i < 2 * REMEMBERED_CYCLES; i++) {
        t_cycle_note &cycle = add_cycle(t_decision::role_is_foreign, eth0);
        cycle.asked = UINT16_MAX;
        cycle.swap = t_swap::failed;
        cycle.confirmation = t_confirmation::disagreed;
        for (t_fate &fate : cycle.fates)
            fate = t_fate::not_listed_yet;
    }
    chronicle.hints = UINT8_MAX;
}

} // namespace

// holds: state-status
TEST_F(state_object_answers, status_before_anything_is_known_has_only_what_has_a_value)
{
    release_port_model(&port_model);
    engine_handlers.tell_progress = nullptr;
    EXPECT_EQ(status(),
              R"({"version":"1.0.0","uptime":10000,"starting":false,"enabled":false,"router_mode":false,"cycle":{},)"
              R"("retry_pause":0,"swap_pause":0,"ports":[],"counters":{"cycles":0,"questions":0,"answers":0,)"
              R"("verdicts":0,"swaps":0,"swaps_confirmed":0,"swaps_failed_in_a_row":0,"commits":0,)"
              R"("commands_out_of_time":0,"bus_reconnects":0},"hints":[]})");
    EXPECT_EQ(history(), R"({"cycles":[]})");
}

// holds: state-status
TEST_F(state_object_answers, status_tells_where_the_engine_is)
{
    port_model.enable = port_model.router_mode = 1;
    port_model.wan_dev = eth1;
    port_model.wan_proto = add_proto("pppoe");
    chronicle.started_s = NOW_S - 4711;
    progress = {"looking", "pass", 950, 60, 42, true};
    add_cycle(t_decision::none);
    add_cycle(t_decision::none);
    expect_has(status(), R"("uptime":4711,"starting":true,"enabled":true,"router_mode":true,)"
                         R"("cycle":{"state":"looking","number":2,"next":"pass","next_ms":950},"wan":"eth1",)"
                         R"("connection":"pppoe","retry_pause":60,"swap_pause":42,"ports":)");
    progress = {"resting", nullptr, 950, 60, 42, false};
    expect_has(status(), R"("starting":false,)");
    expect_has(status(), R"("cycle":{"state":"resting","number":2},)");
}

// holds: state-status
TEST_F(state_object_answers, a_port_of_which_nothing_is_known_has_the_fields_that_always_have_a_value)
{
    EXPECT_EQ(second_port(), R"({"name":"eth1","link":false,"link_changes":0,"pool":false,"asked_last_hour":0}],)");
    eth1->link_active = 1;
    expect_has(second_port(), R"("link":true,"link_changes":0,"pool":false,"lan_hosts":0,"asked_last_hour":0}],)");
}

// holds: state-status
TEST_F(state_object_answers, a_port_without_a_link_tells_of_no_lan_hosts)
{
    eth1->notes.lan_hosts = 2;
    eth1->notes.lan_seen_s = NOW_S - 4;
    expect_lacks(second_port(), "lan_");
    eth1->link_active = 1;
    expect_has(second_port(), R"("lan_hosts":2,"lan_seen":4,)");
}

// holds: state-status
TEST_F(state_object_answers, status_names_no_wan_port_while_the_role_is_at_a_foreign_one)
{
    port_model.wan_dev = eth1;
    expect_has(status(), R"("wan":"eth1")");
    port_model.role_is_away = 1;
    expect_lacks(status(), R"("wan":)");
}

// holds: state-status
TEST_F(state_object_answers, a_port_tells_what_it_is)
{
    copy_name(eth1->label, "P2");
    eth1->link_active = 1;
    eth1->notes.link_changes = 3;
    eth1->is_combo = 1;
    eth1->sub_port = SUB_PORT_PHY;
    eth1->priority = 2;
    add_to_pool(eth1);
    expect_has(second_port(), R"({"name":"eth1","label":"P2","link":true,"link_changes":3,"side":"phy","priority":2,)"
                              R"("pool":true,"lan_hosts")");
    eth1->sub_port = SUB_PORT_SFP;
    expect_has(second_port(), R"("side":"sfp")");
}

// holds: state-status
TEST_F(state_object_answers, a_reserved_port_tells_as_what)
{
    keep_device(&port_model.lan_agg[0], create_new_device("eth1"));
    expect_has(second_port(), R"("pool":false,"reserved":"aggregation","asked_last_hour")");
    keep_device(&port_model.gaming, create_new_device("eth1"));
    expect_has(second_port(), R"("reserved":"gaming")");
}

// holds: state-status
TEST_F(state_object_answers, a_banned_port_tells_for_how_long)
{
    const auto ban = [this](int seconds) {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, eth1->name, seconds);
    };
    ban(60);
    fake_clock.advance_ms(2500);
    expect_has(second_port(), R"("banned":58,)");
    fake_clock.advance_ms(58'000);
    expect_lacks(second_port(), "banned");
    ban(BAN_FOREVER);
    expect_has(second_port(), R"("banned":-1,)");
}

// holds: state-status
TEST_F(state_object_answers, a_port_tells_of_lan_hosts_questions_and_its_last_answer)
{
    eth1->link_active = 1;
    eth1->notes.lan_hosts = 2;
    eth1->notes.lan_seen_s = NOW_S - 4;
    note_question(eth1);
    note_question(eth1);
    answer(eth1, "dhcp", "192.0.2.7");
    fake_clock.advance_ms(12'000);
    EXPECT_EQ(second_port(), R"({"name":"eth1","link":true,"link_changes":0,"pool":false,"lan_hosts":2,"lan_seen":16,)"
                             R"("last_asked":12,"asked_last_hour":2,"answer":{"protocol":"dhcp",)"
                             R"("mac":"02-00-00-00-00-01","address":"192.0.2.7","gateway":"192.0.2.1",)"
                             R"("dns":"192.0.2.53","ago":12}}],)");
}

// holds: state-status
TEST_F(state_object_answers, an_answer_without_addresses_has_none)
{
    eth1->notes.answer = "arp";
    expect_has(second_port(), R"("answer":{"protocol":"arp","ago":10000})");
    eth1->notes.learned.server_mac[MAC_SIZE - 1] = 1;
    expect_has(second_port(), R"("answer":{"protocol":"arp","mac":"00-00-00-00-00-01","ago":10000})");
}

// holds: state-status
TEST_F(state_object_answers, a_port_tells_what_became_of_it_in_the_newest_cycle_that_looked_at_it)
{
    add_cycle(t_decision::only_answer);
    expect_lacks(second_port(), "why");
    note_fate(eth1, t_fate::lan_hosts);
    expect_has(second_port(), R"("asked_last_hour":0,"why":"lan_hosts"}])");
    add_cycle(t_decision::wan_works);
    expect_has(second_port(), R"("asked_last_hour":0,"why":"lan_hosts"}])");
    add_cycle(t_decision::nobody);
    note_fate(eth1, t_fate::silent);
    expect_has(second_port(), R"("why":"silent")");
}

// holds: state-status
TEST_F(state_object_answers, a_port_that_lost_the_role_is_not_told_to_have_it)
{
    port_model.wan_dev = eth1;
    for (const t_fate fate : {t_fate::works, t_fate::won}) {
        add_cycle(t_decision::wan_works, eth1);
        note_fate(eth1, fate);
        port_model.wan_dev = eth0;
        expect_has(second_port(), "why");
        add_cycle(t_decision::wan_works, eth0);
        expect_lacks(second_port(), "why");
        port_model.wan_dev = eth1;
        expect_has(second_port(), "why");
    }
}

// holds: state-status
TEST_F(state_object_answers, status_has_all_counters)
{
    chronicle.counters = {12, 30, 9, 11, 2, 1, 3};
    tallies.commits = 4;
    tallies.commands_out_of_time = 5;
    tallies.bus_reconnects = 6;
    expect_has(status(), R"("counters":{"cycles":12,"questions":30,"answers":9,"verdicts":11,"swaps":2,)"
                         R"("swaps_confirmed":1,"swaps_failed_in_a_row":3,"commits":4,"commands_out_of_time":5,)"
                         R"("bus_reconnects":6})");
}

// holds: state-status
TEST_F(state_object_answers, status_has_the_hints_of_the_last_verdict)
{
    chronicle.hints = HINT_VLAN | HINT_SEVERAL;
    expect_has(status(), R"("hints":["vlan","several"])");
    chronicle.hints = HINT_ONLY_BANNED | HINT_ONLY_RESERVED | HINT_POOL;
    expect_has(status(), R"("hints":["only_banned","only_reserved","pool"])");
}

// holds: state-text
TEST_F(state_object_answers, foreign_bytes_become_printable)
{
    copy_name(eth1->label, "a\xff\xc3\n\"\x1b[2J");
    t_device *odd = add_port("eth\xe4", 2);
    expect_has(second_port(), R"("label":"a???\"?[2J")");
    expect_has(status(), R"({"name":"eth?",)");
    add_cycle(t_decision::only_answer, odd);
    note_fate(odd, t_fate::won);
    expect_has(history(), R"("ports":[{"name":"eth?","why":"won"}],"decision":"only_answer","winner":"eth?",)");
}

// holds: state-history
TEST_F(state_object_answers, a_cycle_that_runs_has_no_outcome)
{
    chronicle.next_opener = t_opener::wan_loss;
    add_cycle(t_decision::none);
    note_fate(eth0, t_fate::no_link);
    note_fate(eth1, t_fate::asked);
    fake_clock.advance_ms(3000);
    EXPECT_EQ(history(), R"({"cycles":[{"number":1,"ago":3,"opener":"wan_loss","asked":["eth1"],)"
                         R"("ports":[{"name":"eth0","why":"no_link"},{"name":"eth1","why":"asked"}],)"
                         R"("decision":"open"}]})");
    note_decision(t_decision::only_answer);
    expect_has(history(), R"("ago":3,"opener":)");
    expect_has(history(), R"("decision":"only_answer"}]})");
}

// holds: state-history
TEST_F(state_object_answers, a_cycle_that_is_over_has_its_outcome)
{
    add_cycle(t_decision::wan_works, eth0);
    expect_has(history(), R"("took_ms":1,"opener":"start_up","asked":[],"ports":[],"decision":"wan_works",)"
                          R"("winner":"eth0","swap":"not_needed"}]})");
    t_cycle_note &cycle = add_cycle(t_decision::none);
    fake_clock.advance_ms(2800);
    note_decision(t_decision::priority);
    note_cycle_ends(eth1);
    cycle.swap = t_swap::done;
    expect_has(history(), R"({"cycles":[{"number":2,"ago":2,"took_ms":2800,)");
    expect_has(history(), R"("decision":"priority","winner":"eth1","swap":"done","swap_status":0},{"number":1,)");
    cycle.swap = t_swap::failed;
    cycle.swap_status = 5;
    cycle.confirmation = t_confirmation::agreed;
    expect_has(history(), R"("swap":"failed","swap_status":5,"confirmed":true})");
    cycle.swap_status = -1;
    cycle.confirmation = t_confirmation::disagreed;
    expect_has(history(), R"("swap":"failed","confirmed":false})");
    add_cycle(t_decision::nobody);
    expect_has(history(), R"("decision":"nobody","swap":"not_needed"},{"number":2,)");
}

// holds: state-history
TEST_F(state_object_answers, history_has_32_cycles_and_the_newest_first)
{
    for (int i = 0; i < 40; i++)
        add_cycle(t_decision::nobody);
    const std::string text = history();
    expect_has(text, R"({"cycles":[{"number":40,)");
    expect_has(text, R"({"number":9,)");
    expect_lacks(text, R"("number":8,)");
}

// holds: state-size
TEST_F(state_object_answers, the_largest_replies_are_whole_and_fit_the_bus)
{
    fill_to_the_brim();
    for (const char *method : {"status", "history"}) {
        const t_answer answer = call(method);
        EXPECT_EQ(answer.status, 0);
        EXPECT_GT(answer.size, 8 * 1024u) << method;
        EXPECT_LT(answer.size, LARGEST_REPLY) << method;
        RecordProperty(std::string("bytes_of_") + method, static_cast<int>(answer.size));
    }
    EXPECT_LE(sizeof chronicle + MAX_DEVICES * sizeof(t_port_notes), 24 * 1024u);
}

// holds: state-no-memory
TEST_F(state_object_answers, methods_without_memory_say_so_and_send_nothing)
{
    add_cycle(t_decision::nobody);
    for (const t_refusal what : {t_refusal::of_buffers, t_refusal::of_fields}) {
        const t_message device(R"({"device":"eth1"})");
        t_message_shortage shortage(what);
        for (const char *method : {"status", "history", "explain"}) {
            const t_answer answer = call(method, device.buffer.head);
            EXPECT_EQ(answer.status, UBUS_STATUS_NO_MEMORY) << method;
            EXPECT_EQ(answer.json, "") << method;
        }
    }
}

// holds: state-no-memory
TEST_F(state_object_answers, a_reply_is_whole_or_none_whichever_allocation_is_refused)
{
    fill_to_the_brim();
    const t_message device(R"({"device":"eth1"})");
    for (const char *method : {"status", "history", "explain"}) {
        const std::string whole = call(method, device.buffer.head).json;
        t_answer answer = call_short_of_memory(method, device.buffer.head, 0);
        int allocations = 0;
        for (; answer.status == UBUS_STATUS_NO_MEMORY && answer.json.empty() && allocations < 1000; allocations++)
            answer = call_short_of_memory(method, device.buffer.head, allocations);
        EXPECT_EQ(answer.status, 0) << method;
        EXPECT_GT(allocations, 1) << method;
        EXPECT_EQ(answer.json, whole) << method;
    }
}

// holds: state-arguments
TEST_F(state_object_answers, methods_without_arguments_take_any)
{
    EXPECT_EQ(call("status", R"({"device":"eth1","more":[1,2]})").json, status());
    EXPECT_EQ(call("history", nullptr).json, history());
}
