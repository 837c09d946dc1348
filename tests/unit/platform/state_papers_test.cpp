// SPDX-License-Identifier: MIT
// The examples of docs/bus.md are what the state object says in the scene that is built here.
#include <algorithm>
#include <regex>

#include <arpa/inet.h>

#include "adapters/state_events.h"
#include "adapters/state_object.h"
#include "model/banned.h"
#include "platform/tallies.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/platform/state_fixture.h"

namespace {

// The example below that marker.
std::string example(const std::string &of)
{
    const std::string paper = read_file(WAN_DETECT_TEST_DATA "/../docs/bus.md");
    const std::string begin = "<!-- told by " + of + " -->\n```json\n";
    const size_t at = paper.find(begin);
    if (at == std::string::npos)
        return "no example of " + of;
    const size_t from = at + begin.size();
    return paper.substr(from, paper.find("```", from) - from);
}

class state_papers : public t_state_test {
protected:
    state_papers()
        : eth0(add_labelled_port("eth0", "P1", 1)), eth1(add_labelled_port("eth1", "P2", 2)),
          eth2(add_labelled_port("eth2", "P3", 3))
    {
        port_model.enable = port_model.router_mode = 1;
        port_model.wan_dev = eth0;
        port_model.wan_proto = add_proto("dhcp");
        chronicle.started_s = NOW_S - 4711;
        progress = {"looking", "look", 27'000, 30, 21, false};
        play_first_cycle();
        play_second_cycle();
        play_third_cycle();
    }
    static t_device *add_labelled_port(const char *name, const char *label, int8_t priority)
    {
        t_device *dev = add_port(name, priority);
        copy_name(dev->label, label);
        dev->priority = priority;
        dev->link_active = 1;
        add_to_pool(dev);
        return dev;
    }
    static void ask(t_device *dev, const char *address)
    {
        note_fate(dev, t_fate::asked);
        for (int i = 0; i < 3; i++)
            note_question(dev);
        dev->result.server_mac[0] = 2;
        dev->result.server_mac[MAC_SIZE - 1] = 1;
        inet_pton(AF_INET, address, &dev->result.address.ipv4_be);
        inet_pton(AF_INET, "192.0.2.1", &dev->result.gateway.ipv4_be);
        inet_pton(AF_INET, "192.0.2.53", &dev->result.dns_server.ipv4_be);
        note_answer(dev, "dhcp", dev->result);
    }
    // Two lines answer, and the first one's name server is faster.
    void play_first_cycle()
    {
        fake_clock.set(NOW_S - 52);
        note_cycle_begins();
        note_fate(eth2, t_fate::no_link);
        ask(eth0, "192.0.2.8");
        ask(eth1, "192.0.2.7");
        note_answer(eth0, nullptr);
        note_fate(eth0, t_fate::won);
        note_fate(eth1, t_fate::no_name_server);
        fake_clock.advance_ms(2800);
        note_decision(t_decision::name_server);
        note_swap(0);
        note_cycle_ends(eth0);
        chronicle.hints = HINT_SEVERAL;
        tallies.commits = 2;
    }
    // The test of the swap.
    void play_second_cycle()
    {
        fake_clock.set(NOW_S - 28);
        note_opener(t_opener::after_swap);
        note_cycle_over_all();
        note_cycle_begins();
        note_fate(eth0, t_fate::works);
        note_confirmation(true);
        note_decision(t_decision::wan_works);
        fake_clock.advance_ms(30);
        note_cycle_ends(eth0);
    }
    // The WAN port loses its link, and nobody is left.
    void play_third_cycle()
    {
        fake_clock.set(NOW_S - 3);
        eth0->link_active = 0;
        eth0->notes.link_changes = 1;
        eth0->notes.answer = nullptr;
        eth1->notes.link_changes = 3;
        eth1->is_combo = 1;
        eth1->sub_port = SUB_PORT_PHY;
        eth2->notes.link_changes = 1;
        note_cycle_begins();
        note_fate(eth0, t_fate::no_link);
        note_fate(eth1, t_fate::lan_hosts);
        eth1->notes.lan_hosts = 2;
        eth1->notes.lan_seen_s = NOW_S - 4;
        note_fate(eth2, t_fate::banned);
        fake_clock.set(NOW_S);
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth2", 60);
    }
    // As subscribers heard it.
    static void go_back_to_first_verdict()
    {
        chronicle.counters.cycles = 1;
        newest_cycle()->confirmation = t_confirmation::unknown;
        fake_clock.set(NOW_S - 52);
        fake_clock.advance_ms(2800);
    }

    t_device *eth0, *eth1, *eth2;
};

} // namespace

// holds: state-papers
TEST_F(state_papers, show_what_status_and_history_tell)
{
    EXPECT_EQ(plain_json(example("status")), status());
    EXPECT_EQ(plain_json(example("history")), history());
}

// holds: state-papers
TEST_F(state_papers, show_what_explain_tells)
{
    EXPECT_EQ(plain_json(example("explain")), call("explain", R"({"device":"eth1"})").json);
}

// holds: state-papers
TEST_F(state_papers, show_what_subscribers_hear)
{
    const std::string lines = example("notifications");
    std::string heard;
    const auto hear = [&heard](const std::string &told) { heard += told + "\n"; };
    hear(told([this] { announce_link(eth1); }));
    hear(told([] { announce_cycle(true); }));
    go_back_to_first_verdict();
    hear(told([this] { announce_swap(eth0, 0, 21); }));
    hear(told([] { announce_verdict(); }));
    hear(told([] { announce_cycle(false); }));
    hear(told([this] { announce_ban(eth2, 60); }));
    const std::string joined = std::regex_replace(lines, std::regex("\n +"), " ");
    EXPECT_EQ(std::regex_replace(joined, std::regex("([{:,\\[]) | (?=[\\]}])"), "$1"), heard);
}
