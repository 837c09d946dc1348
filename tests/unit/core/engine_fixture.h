// SPDX-License-Identifier: MIT
// A daemon at rest: a router with five ports, eth0 the WAN port, every timer bound, nothing armed.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "core/engine.h"
#include "model/port_model.h"
#include "tests/support/engine_timers.h"
#include "tests/unit/core/fake_probes.h"
#include "tests/unit/core/fake_router.h"
#include "tests/unit/support/sandbox.h"

constexpr int NOT_ARMED = -1;

class t_engine_test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The configuration of the router, detection switched on.
    static void write_router_config(const std::string &wan_type = "dhcp", const std::string &priority = "0 1 2 3 4",
                                    const std::string &pool = "0 1 2 3 4");
    // Writes it and builds the model anew, as start-up does.
    void load(const std::string &wan_type = "dhcp", const std::string &priority = "0 1 2 3 4",
              const std::string &pool = "0 1 2 3 4");
    // Another connection type, with more sections for the package "protocol".
    void set_connection(const std::string &type, const std::string &protocol_options = "");

    static t_device *dev(const std::string &name);
    static t_protocol *protocol(const std::string &name);
    static void plug(std::initializer_list<const char *> ports);
    static void unplug(std::initializer_list<const char *> ports);
    // Listed still, though its time has run out.
    static void add_ban_that_is_over(const char *port);

    // Milliseconds until a timer fires, in tenths of a second, when no time passes but by fire_after_its_time;
    // NOT_ARMED.
    static int armed(uloop_timeout &timer);
    // The timer's callback runs now; fails the test when it is not armed.
    static void fire(uloop_timeout &timer);
    // The one that is due first; null when none is armed.
    static uloop_timeout *next_timer();
    // What has passed by fire_after_its_time.
    static int passed_ms();
    // Its callback runs once the time until then has passed.
    static void fire_after_its_time(uloop_timeout &next);
    // Called with these milliseconds, where a test has a clock of its own.
    static inline void (*while_time_passes)(int ms) = nullptr;
    // Fires the engine's earliest timer again and again, until the end of the cycle is next or nothing is armed.
    static void run_until_end();

    static std::string candidates();

    // A cycle that is open, and one that runs, without the steps that lead there.
    static void be_waiting() { be_in(t_cycle_state::waiting); }
    static void be_running() { be_in(t_cycle_state::looking); }
    static void be_in(t_cycle_state state);

    std::unique_ptr<t_log_capture> log;
};
