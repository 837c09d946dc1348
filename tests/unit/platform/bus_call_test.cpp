// SPDX-License-Identifier: MIT
// Calls to other services over a real bus; the network manager is a process of its own.
#include <chrono>
#include <csignal>
#include <memory>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "adapters/network_status.h"
#include "platform/result_codes.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

using clock_type = std::chrono::steady_clock;

// What the network manager does when asked for the state of one interface.
int answer_status(ubus_context *context, ubus_object *, ubus_request_data *request, const char *, blob_attr *message)
{
    const blobmsg_policy policy[] = {{"interface", BLOBMSG_TYPE_STRING}};
    blob_attr *fields[1];
    blobmsg_parse(policy, 1, fields, blob_data(message), static_cast<unsigned>(blob_len(message)));
    std::string interface = fields[0] ? blobmsg_get_string(fields[0]) : "";
    static ubus_request_data never_answered;
    if (interface == "hanging") {
        ubus_defer_request(context, request, &never_answered);
        return 0;
    }
    if (interface == "silent")
        return 0;
    if (interface == "internet") {
        t_message reply(R"({"up":true,"state":"connected"})");
        return ubus_send_reply(context, request, reply.buffer.head);
    }
    return UBUS_STATUS_NOT_FOUND;
}

[[noreturn]] void run_network_manager()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    uloop_init();
    ubus_context *context = ubus_connect(BUS_SOCKET_PATH);
    ubus_method method = {"status", answer_status, 0, 0, nullptr, 0};
    ubus_object_type type = {"network.interface", 0, &method, 1};
    ubus_object object = {};
    object.name = "network.interface";
    object.type = &type;
    object.methods = &method;
    object.n_methods = 1;
    if (!context || ubus_add_object(context, &object) != 0)
        _exit(1);
    ubus_add_uloop(context);
    uloop_run();
    _exit(0);
}

class bus_call : public t_adapter_test {
protected:
    bus_call()
    {
        // Before this process has a loop of its own, which the other one would share.
        manager_ = fork();
        if (manager_ == 0)
            run_network_manager();
        uloop_handle_sigchld = false;
        uloop_init();
        forget_network_manager();
        EXPECT_EQ(wan_detect_ubus_init(wan_detect_bus_exports()), 0);
        t_bus_client client(BUS_SOCKET_PATH);
        EXPECT_TRUE(loop_until([&client] { return client.knows("network.interface"); }));
    }
    ~bus_call() override
    {
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
        end_manager();
    }
    void end_manager()
    {
        if (manager_ < 0)
            return;
        kill(manager_, SIGKILL);
        waitpid(manager_, nullptr, 0);
        manager_ = -1;
    }

    int ask(const std::string &interface, int *answer)
    {
        t_message message(R"({"interface":")" + interface + "\"}");
        *answer = NETWORK_UNKNOWN;
        return ubus_call_method("network.interface", "status", &message.buffer, ubus_call_network_interface_cb, answer);
    }

    t_bus_daemon bus{BUS_SOCKET_PATH};
    t_log_capture log;
    int state = 77;

private:
    pid_t manager_;
};

} // namespace

// holds: bus-call-codes
TEST_F(bus_call, hands_the_reply_to_the_handler)
{
    EXPECT_EQ(ask("internet", &state), 0);
    EXPECT_EQ(state, NETWORK_CONNECTED);
}

// holds: status-codes
TEST_F(bus_call, without_a_reply_leaves_the_value_alone)
{
    EXPECT_EQ(ask("silent", &state), 0);
    EXPECT_EQ(state, NETWORK_UNKNOWN);
}

// holds: bus-call-codes
TEST_F(bus_call, returns_the_status_of_the_other_side)
{
    EXPECT_EQ(ask("nothing", &state), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_call_method("network.interface", "nothing", nullptr, nullptr, nullptr),
              UBUS_STATUS_METHOD_NOT_FOUND);
}

// holds: bus-call-time
TEST_F(bus_call, waits_one_second_at_most)
{
    auto start = clock_type::now();
    EXPECT_EQ(ask("hanging", &state), UBUS_STATUS_TIMEOUT);
    auto waited = clock_type::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(BUS_CALL_TIMEOUT_MS - 10));
    EXPECT_LT(waited, std::chrono::milliseconds(BUS_CALL_TIMEOUT_MS + 500));
}

TEST_F(bus_call, does_not_wait_for_ever_for_a_bus_that_hangs)
{
    bus.stop();
    auto start = clock_type::now();
    EXPECT_EQ(ask("internet", &state), ERR_BUS_OBJECT);
    EXPECT_LT(clock_type::now() - start, std::chrono::milliseconds(BUS_CALL_TIMEOUT_MS + 500));
    EXPECT_TRUE(log.has("Error", "ubus_call_method", "Can't find network.interface"));
    EXPECT_EQ(state, NETWORK_UNKNOWN);
    bus.go_on();
    EXPECT_EQ(ask("internet", &state), 0);
    EXPECT_EQ(state, NETWORK_CONNECTED);
}

// holds: bus-call-codes
TEST_F(bus_call, of_an_object_that_nobody_offers_fails)
{
    EXPECT_EQ(ubus_call_method("nobody", "status", nullptr, nullptr, nullptr), ERR_BUS_OBJECT);
    EXPECT_TRUE(log.has("Error", "ubus_call_method", "Can't find nobody"));
    end_manager();
    EXPECT_TRUE(loop_until([this] { return ask("internet", &state) == ERR_BUS_OBJECT; }));
    EXPECT_TRUE(log.has("Error", "ubus_call_method", "Can't find network.interface"));
}

// holds: bus-call-codes
TEST_F(bus_call, without_a_name_is_invalid)
{
    EXPECT_EQ(ubus_call_method(nullptr, "status", nullptr, nullptr, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(ubus_call_method("", "status", nullptr, nullptr, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(log.count("Error", "ubus_call_method", "Invalid input ubus name!"), 2);
    EXPECT_EQ(ubus_call_method("network.interface", nullptr, nullptr, nullptr, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(ubus_call_method("network.interface", "", nullptr, nullptr, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(log.count("Error", "ubus_call_method", "Invalid input ubus method!"), 2);
}

TEST_F(bus_call, before_the_set_up_finds_nothing)
{
    wan_detect_ubus_done();
    EXPECT_EQ(ask("internet", &state), ERR_BUS_OBJECT);
}

TEST_F(bus_call, tells_the_network_status)
{
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_EQ(get_network_status(1, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(log.has("Info", "get_network_status",
                        R"(Failed to run ubus call network.interface status '{"interface":"wanv6"}')"));
}

// holds: manager-away
TEST_F(bus_call, finds_the_network_manager_away_when_it_ended_after_an_answer)
{
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_FALSE(network_manager_is_away());
    end_manager();
    EXPECT_TRUE(loop_until([] { return get_network_status(0, 0) == NETWORK_DISCONNECTED; }));
    EXPECT_TRUE(network_manager_is_away());
    forget_network_manager();
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(bus_call, finds_the_network_manager_away_before_the_loop_notices_that_the_bus_is_gone)
{
    bus.kill();
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
    EXPECT_TRUE(loop_until([] { return wan_detect_ubus_context() == nullptr; }));
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
}
