// SPDX-License-Identifier: MIT
// The `ubus` program where the recordings say nothing: bounds of its waiting, and a bus that is not there.
#include "bus_fixture.h"
#include "library_clients.h"

#include <atomic>
#include <csignal>
#include <thread>
#include <unistd.h>

namespace {

class command : public t_bus_test {
protected:
    std::vector<std::string> on_bus(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"-s", socket_});
        return arguments;
    }
};

TEST_F(command, listen_without_a_limit_goes_on_until_it_is_told_to_end)
{
    t_process listener("ubus", on_bus({"-t", "0", "listen", "tick"}));
    std::atomic<bool> has_heard = false;
    std::thread sender([&] {
        while (!has_heard) {
            t_process("ubus", on_bus({"send", "tick"})).wait();
        }
    });
    EXPECT_EQ(listener.first_output().substr(0, 15), "{ \"tick\": {} }\n");
    has_heard = true;
    sender.join();
    listener.signal(SIGTERM);
    EXPECT_EQ(listener.wait(), 0);
}

// False when the bus does not say so in time.
bool is_soon_heard(t_library_client &service, const ubus_object &object, bool wanted)
{
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    uloop_timeout turn = {}; // ends the wait for news that never come
    turn.cb = [](uloop_timeout *) { uloop_end(); };
    while (object.has_subscribers != wanted && std::chrono::steady_clock::now() < deadline) {
        uloop_timeout_set(&turn, 100);
        service.run();
    }
    uloop_timeout_cancel(&turn);
    return object.has_subscribers == wanted;
}

// Whoever waits for answers knows that somebody has heard.
int notify_when_heard(t_library_client &service, ubus_object &object)
{
    constexpr int LIMIT_MS = 5000;
    EXPECT_TRUE(is_soon_heard(service, object, true));
    blob_buf message = {};
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "port", "eth1");
    int status = ubus_notify(service.ctx(), &object, "link", message.head, LIMIT_MS);
    blob_buf_free(&message);
    return status;
}

TEST_F(command, subscribe_prints_notifications_until_its_time_is_over)
{
    t_library_client service(socket_);
    ubus_object_type type = {.name = "ports", .id = 0, .methods = nullptr, .n_methods = 0};
    ubus_object object = {};
    object.name = "ports";
    object.type = &type;
    object.subscribe_cb = [](ubus_context *, ubus_object *) { uloop_end(); };
    ASSERT_EQ(ubus_add_object(service.ctx(), &object), 0);
    t_process limited("ubus", on_bus({"-t", "1", "subscribe", "ports"}));
    EXPECT_EQ(notify_when_heard(service, object), 0);
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(limited.output(), "{ \"link\": {\"port\":\"eth1\"} }\n");
    ASSERT_TRUE(is_soon_heard(service, object, false));
    t_process unlimited("ubus", on_bus({"-t", "0", "subscribe", "ports", "ports"}));
    EXPECT_EQ(notify_when_heard(service, object), 0);
    EXPECT_EQ(unlimited.first_output(), "{ \"link\": {\"port\":\"eth1\"} }\n");
    unlimited.signal(SIGTERM);
    EXPECT_EQ(unlimited.wait(), 0);
}

TEST_F(command, subscribe_names_what_is_not_there)
{
    t_process missing("ubus", on_bus({"subscribe", "nope"}));
    EXPECT_EQ(missing.wait(), 4);
    EXPECT_EQ(missing.errors(), "Command failed: Not found\n");
    t_process nothing("ubus", on_bus({"subscribe"}));
    EXPECT_EQ(nothing.wait(), 254);
    EXPECT_NE(nothing.errors().find("Usage: "), std::string::npos);
}

TEST_F(command, wait_for_without_time_looks_once)
{
    t_process absent("ubus", on_bus({"-t", "0", "wait_for", "nope"}));
    EXPECT_EQ(absent.wait(), 7);
    t_library_client service(socket_);
    publish_demo(service);
    t_process present("ubus", on_bus({"-t", "0", "wait_for", "demo", "demo"}));
    EXPECT_EQ(present.wait(), 0);
}

TEST_F(command, wait_for_ends_when_the_last_object_appears)
{
    t_library_client first(socket_);
    publish_demo(first);
    t_process waiting("ubus", on_bus({"-t", "10", "wait_for", "demo", "types"}));
    usleep(20000); // either way it must end well; most of the time it waits by now
    publish_types(first);
    EXPECT_EQ(waiting.wait(), 0);
}

TEST_F(command, no_bus_is_told)
{
    t_process loud("ubus", {"-s", folder_.path("nobody"), "list"});
    EXPECT_EQ(loud.wait(), 255);
    EXPECT_EQ(loud.errors(), "Failed to connect to ubus\n");
    t_process silent("ubus", {"-S", "-s", folder_.path("nobody"), "list"});
    EXPECT_EQ(silent.wait(), 255);
    EXPECT_EQ(silent.errors(), "");
}

TEST_F(command, an_unknown_option_shows_the_usage)
{
    t_process process("ubus", {"-x", "list"});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_NE(process.errors().find("Usage: "), std::string::npos);
}

} // namespace
