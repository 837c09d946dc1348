// SPDX-License-Identifier: MIT
// What the tests of the adapters share: a small model with its gate, and an engine that only writes down what it is
// asked for.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mount.h>

#include "adapters/engine_handlers.h"
#include "tests/support/world.h"
#include "tests/unit/support/sandbox.h"

struct t_link_change {
    t_device *dev;
    bool up;
    bool operator==(const t_link_change &) const = default;
};

// What the engine was asked for since the test began.
struct t_recorded_engine {
    std::vector<int> detections; // delays in milliseconds
    std::vector<t_proto_detect_request> proto_detections;
    int proto_detect_result = 0;
    std::vector<t_link_change> link_changes; // stored in the device, as the engine does
};

class t_adapter_test : public testing::Test {
protected:
    t_adapter_test();
    ~t_adapter_test() override;

    static t_device *add_port(const std::string &name, int port_num);
    static t_device *add_combo_port(const std::string &name, int port_num, uint8_t sub_port);
    static t_protocol *add_proto(const std::string &name) { return add_protocol_to(port_model, name); }

    // Makes `name` a program of the router that writes its arguments into a file, one line per call, and then does
    // `then`.
    static void install_program(const std::string &name, const std::string &then = "");
    static std::string calls_of(const std::string &name);

    // The current WAN port as the configuration tells it.
    static void configure_wan(const std::string &name);

    t_bound_gate gate;
    t_recorded_engine engine;
};

// While it lives, no program can be started.
class t_no_shell {
public:
    t_no_shell() : mounted_(mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr) == 0) { EXPECT_TRUE(mounted_); }
    ~t_no_shell()
    {
        if (mounted_)
            umount2("/bin/sh", MNT_DETACH);
    }

private:
    bool mounted_;
};
