// SPDX-License-Identifier: MIT
// The state object without a bus: what its methods answer and what is announced, as JSON. Needs state_fixture.cpp and
// fake_clock.cpp among the sources, and the linker options -Wl,--wrap=ubus_send_reply and -Wl,--wrap=ubus_notify.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <libubus.h>

#include "model/chronicle.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/support/fake_clock.h"

constexpr int NOW_S = 10'000;

struct t_answer {
    int status;
    std::string json; // empty without a reply
    size_t size;      // bytes of the message
};

// The same text for the same fields and values, however it was written.
std::string plain_json(const std::string &json);

class t_state_test : public t_adapter_test {
protected:
    t_state_test();
    ~t_state_test() override;

    // What a caller of the method gets.
    static t_answer call(const std::string &method, const std::string &json = "{}");
    static t_answer call(const std::string &method, blob_attr *message);
    // The same with so much memory for the reply: allocations behind that number are refused.
    static t_answer call_short_of_memory(const std::string &method, blob_attr *message, int allocations);
    static std::string status() { return call("status").json; }
    static std::string history() { return call("history").json; }

    // The sentences about a port, one line each.
    static std::string explain(const std::string &device);

    // What a subscriber hears of this: {"what":{fields}}, or nothing.
    static std::string told(const std::function<void()> &happens);

    // A cycle of the chronicle that ended with this; its record, to be changed.
    static t_cycle_note &add_cycle(t_decision decision, const t_device *winner = nullptr);
    static void add_to_pool(const t_device *dev);

    // That the text has this part, or has not.
    static void expect_has(const std::string &text, const std::string &part);
    static void expect_lacks(const std::string &text, const std::string &part);

    static inline t_progress progress;
};
