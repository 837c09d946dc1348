// SPDX-License-Identifier: MIT
// Whatever happens to the engine, in whatever order: a cycle that is open has a next step, no role is moved against
// anybody's will, and a WAN port that is down is not left alone. Every history follows from its number.
#include <random>
#include <set>
#include <utility>

#include "core/background.h"
#include "core/combo_switch.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/cycle_ways.h"
#include "core/link_change.h"
#include "core/proto_stage.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"

namespace {

constexpr unsigned HISTORIES = 150;
constexpr int STEPS = 150;
constexpr int FOREIGN_PORT = 7;

std::set<std::pair<t_cycle_state, t_cycle_state>> ways_taken;

std::string name_of(t_cycle_state from, t_cycle_state to)
{
    constexpr const char *STATES[] = {"resting", "waiting",    "looking",    "probing",
                                      "judging", "asking_arp", "asking_dns", "ending"};
    return std::string(STATES[static_cast<int>(from)]) + " -> " + STATES[static_cast<int>(to)];
}

class random_histories : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        random.seed(++number);
        history = std::to_string(number) + ":";
        choose_connection();
        change_answers();
        for (int i = 0; i < 5; i++)
            if (any(2) == 0)
                plug({port(i).c_str()});
        fake_router.on_command = [this](const std::string &command) {
            if (command.rfind("network_lanwan_swap", 0) == 0)
                look_at_swap();
        };
        start_wan_detect_all(0);
    }
    void TearDown() override
    {
        fake_router.on_command = nullptr;
        t_engine_test::TearDown();
    }

    int any(int choices) { return static_cast<int>(random() % static_cast<unsigned>(choices)); }
    static std::string port(int index) { return "eth" + std::to_string(index); }
    void note(const std::string &what) { history += " " + what; }

    void choose_connection()
    {
        constexpr const char *TYPES[] = {"dhcp", "pppoe", "static", "ocn"};
        const std::string type = TYPES[any(4)];
        set_connection(type, "config static 'static'\n\toption gateway '10.0.0.1'\n\toption ipaddr '10.0.0.9'\n");
        note(type);
    }

    void look_at_swap()
    {
        swaps++;
        EXPECT_TRUE(port_model.enable) << "a role is moved though detection is off:" << history;
        EXPECT_EQ(look_at_role(&port_model), t_role::unmoved) << "a role is taken from somebody:" << history;
        EXPECT_FALSE(port_model.role_is_away) << "a role is taken from a port that is none of ours:" << history;
    }

    // The earliest timer fires, and its time has passed for all.
    void let_time_pass()
    {
        uloop_timeout *next = next_timer();
        if (!next)
            return;
        note("+" + std::to_string(armed(*next)));
        fire_after_its_time(*next);
    }

    void change_a_link()
    {
        const std::string name = port(any(5));
        const bool up = !dev(name)->link_active;
        fake_router.links[name] = up;
        note((up ? "up:" : "down:") + name);
        if (any(2) == 0)
            wan_detect_process_link_change(dev(name), up); // else the next look sees it
    }

    void change_answers()
    {
        const std::string name = port(1 + any(3));
        fake_probes.dhcp_ports = fake_probes.pppoe_ports = fake_probes.gateway_ports = {name};
        if (any(2) == 0) {
            fake_probes.dhcp_ports.insert("eth4"), fake_probes.gateway_ports.insert("eth4");
            fake_router.links[name] = fake_router.links["eth4"] = true; // the next look sees it
        }
        note("answers:" + name);
    }

    void move_the_role()
    {
        const int choice = any(8);
        if (choice < 5)
            write_switch_config(5, choice);
        else if (choice == 5)
            write_switch_config(8, FOREIGN_PORT);
        else if (choice == 6)
            write_config("switch", ""); // as while somebody keeps it locked
        note("role:" + std::to_string(choice));
    }

    void ask_over_the_bus()
    {
        const t_proto_detect_request request = {.timeout_ms = 2000, .dev = dev("eth2"), .protocol = nullptr};
        switch (any(4)) {
        case 0:
            note("request:" + std::to_string(start_proto_detect(&request)));
            break;
        case 1:
            note("detect");
            start_wan_detect_all(any(2) * 60000);
            break;
        case 2:
            note("ban");
            add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, port(any(5)).c_str(),
                                             any(2) * 30);
            break;
        default:
            switch_detection(any(3) != 0);
        }
    }

    void switch_detection(bool on)
    {
        note(on ? "on" : "off");
        if (on && !port_model.enable)
            start_wan_detect_all(0);
        port_model.enable = on;
    }

    void happen()
    {
        const int what = any(32);
        if (what < 22)
            return let_time_pass();
        if (what < 25)
            return change_a_link();
        if (what < 26)
            return change_answers();
        if (what < 27)
            return move_the_role();
        if (what < 30)
            return ask_over_the_bus();
        if (what < 31) {
            t_combo_state state = {};
            note("combo");
            wan_combo_auto_switch(&state);
            return;
        }
        fake_router.network_state = any(2) - 1;
        fake_router.bus_result = any(3) == 0 ? ERR_BUS_OBJECT : 0;
        note("network:" + std::to_string(fake_router.network_state) + "/" + std::to_string(fake_router.bus_result));
    }

    void check()
    {
        const t_cycle_state state = engine.state;
        const bool has_step = engine.start_wan_detect.pending || engine.using_proto_detect.pending ||
                              engine.using_arp.pending || engine.using_dns.pending || engine.end.pending;
        ASSERT_EQ(state != t_cycle_state::resting, has_step) << history;
        ASSERT_TRUE(!engine.put_off || engine.start_wan_detect.pending || engine.init_wan_detect_all.pending)
            << history;
        ASSERT_EQ(static_cast<bool>(port_model.proto_detect_running), engine.stage_owner != t_stage_owner::nobody);
        ASSERT_EQ(state == t_cycle_state::probing,
                  engine.stage_owner == t_stage_owner::cycle && state != t_cycle_state::ending)
            << history;
        ASSERT_EQ(state == t_cycle_state::asking_arp, static_cast<bool>(engine.using_arp.pending)) << history;
        ASSERT_EQ(state == t_cycle_state::asking_dns, static_cast<bool>(engine.using_dns.pending)) << history;
        ASSERT_EQ(state == t_cycle_state::ending, static_cast<bool>(engine.end.pending)) << history;
        if (port_model
                .role_is_away) { // within two seconds the thread of the combo ports has looked whether it still is
            t_combo_state pass = {};
            wan_combo_auto_switch(&pass);
        }
        const t_device *now_wan = port_model.wan_dev;
        const bool is_left_alone =
            engine.state == t_cycle_state::resting && !engine.init_wan_detect_all.pending && !engine.look_again.pending;
        ASSERT_TRUE(!is_left_alone || !port_model.enable || !now_wan || port_model.role_is_away || now_wan->link_active)
            << "the WAN port is down, and nobody looks:" << history;
    }

    std::mt19937 random;
    static unsigned number;
    std::string history;
    int swaps = 0;
};

unsigned random_histories::number;

} // namespace

// What cycle.cpp calls as is_cycle_way, here in every build.
decltype(is_cycle_way) note_cycle_way;

bool note_cycle_way(t_cycle_state from, t_cycle_state to)
{
    ways_taken.insert({from, to});
    EXPECT_TRUE(is_cycle_way(from, to)) << name_of(from, to);
    return true;
}

namespace {

// holds: never-stuck
TEST_F(random_histories, leave_the_engine_neither_stuck_nor_against_anybody)
{
    int all_swaps = 0;
    while (number < HISTORIES && !HasFailure()) {
        for (int step = 0; step < STEPS && !HasFailure(); step++) {
            happen();
            check();
        }
        all_swaps += swaps;
        swaps = 0;
        TearDown();
        SetUp();
    }
    EXPECT_GT(all_swaps, 50) << "hardly anything happened";
    for (const t_cycle_way &way : cycle_ways()) {
        if (way.from == t_cycle_state::asking_dns && way.to == t_cycle_state::looking)
            continue; // only from a list that holds no device
        EXPECT_TRUE(ways_taken.contains({way.from, way.to})) << name_of(way.from, way.to) << " was never taken";
    }
}

} // namespace
