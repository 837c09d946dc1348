// SPDX-License-Identifier: MIT
// The whole engine on a router that only exists here: five ports, peers that answer or not, commands that work or not,
// and a clock that moves when it is told to. Background threads are started by nobody: what they would do is done by
// hand, or, for a port that settles, when its time has come.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "core/combo_switch.h"
#include "core/engine.h"
#include "model/port_model.h"
#include "tests/fuzz/support/fuzz.h"

constexpr size_t ENGINE_PORTS = 5;
constexpr int COMBO_PORT = 2;

// What the router is configured to; free text.
enum t_setting : uint8_t {
    CONNECTION,
    GATEWAY,
    SECONDARY,
    WAN_PORT,
    AGGREGATION,
    AGGREGATED,
    GAMING,
    PREFERRED_SIDE,
    SETTINGS
};

struct t_engine_scene {
    t_engine_scene(const std::string &priority, const std::string &fake_wan);
    ~t_engine_scene();
    t_engine_scene(const t_engine_scene &) = delete;
    t_engine_scene &operator=(const t_engine_scene &) = delete;

    // False for a configuration that the daemon does not start with.
    bool started() const { return started_; }

    static std::string port(int index) { return "eth" + std::to_string(index % static_cast<int>(ENGINE_PORTS)); }

    void configure(t_setting setting, const std::string &value);

    // Lets time pass for the loop and for the ports that settle.
    void pass_ms(int64_t milliseconds);

    // One step of the engine, so that something may happen before the next.
    void fire_next_timer();

    // What the two background threads do once a second.
    void scan_links();
    void look_at_combo_port();

    // Calls a method of the daemon's object, or, from their number on, sends it the event.
    void call(int handler, t_octets arguments, bool is_json);

    // Everything is plugged, connected and at peace.
    void mend_router();

    // Links between records, counts and flags that must hold between any two steps.
    void check() const;
    static bool at_rest();

    std::array<bool, ENGINE_PORTS> links = {};
    std::string port_states; // what the script prints instead, unless empty
    std::string combo_state; // what the combo script prints
    int network_state = -1;
    int bus_result = 0;
    int online_test = 0; // wait status
    bool swap_works = true;

private:
    std::string addresses() const;
    void write_configuration() const;
    std::string print(const std::string &command) const;
    int end(const std::string &command);

    std::array<std::string, SETTINGS> settings_ = {"dhcp", "192.0.2.1", "dynamic", "port0", "off", "", "", "phy"};
    bool started_ = false;
    std::string priority_;
    std::string fake_wan_;
    t_combo_state combo_ = {};
};

void prepare_engine_scene();
