// SPDX-License-Identifier: MIT
// The library against recorded conversations: its frames and what its users see are those recorded.
#include "library_clients.h"
#include "scripted_daemon.h"

#include <arpa/inet.h>

namespace {

using t_action = std::function<void(t_library_client &)>;

class library_replay : public testing::Test {
protected:
    // What a client reports while the recorded daemon talks to it.
    t_report play(const std::string &scenario, const std::string &name, const t_action &action)
    {
        daemon_.play_in_background({load_conversation(scenario, name)});
        t_report report;
        {
            t_library_client client(socket_);
            action(client);
            report = client.report;
        }
        daemon_.finish();
        return report;
    }

    static t_report recorded(const std::string &scenario, const std::string &label)
    {
        t_report lines = load_reports(scenario).at(label);
        for (std::string &line : lines) {
            line = line.substr(0, line.find(" elapsed~"));
        }
        return lines;
    }

    t_private_folder folder_;
    std::string socket_ = folder_.path("bus");
    t_scripted_daemon daemon_{socket_};
};

t_action serve(void (*publish)(t_library_client &))
{
    return [publish](t_library_client &client) {
        publish(client);
        client.run();
    };
}

t_action listen(const std::vector<std::string> &patterns)
{
    return [patterns](t_library_client &client) {
        register_patterns(client, patterns);
        client.run();
    };
}

TEST_F(library_replay, connecting_takes_the_client_id_as_it_came)
{
    play("01_hello", "client.1", [](t_library_client &client) {
        EXPECT_EQ(client.ctx()->local_id, htonl(0xa0000001));
        EXPECT_FALSE(client.ctx()->sock.registered);
    });
}

TEST_F(library_replay, objects_come_and_go)
{
    EXPECT_EQ(play("02_objects", "service.1", call_objects), recorded("02_objects", "service"));
}

TEST_F(library_replay, a_signature_has_every_argument_and_type)
{
    EXPECT_EQ(play("27_signature_types", "types.1", serve(publish_types)), recorded("27_signature_types", "types"));
}

TEST_F(library_replay, a_service_answers_with_tables)
{
    EXPECT_EQ(play("04_call_table", "service.1", serve(publish_demo)), recorded("04_call_table", "service"));
}

TEST_F(library_replay, an_unknown_method_is_refused)
{
    EXPECT_EQ(play("06_call_missing_method", "service.1", serve(publish_demo)), t_report{"add=0"});
}

TEST_F(library_replay, every_return_value_of_a_handler_reaches_the_caller)
{
    EXPECT_EQ(play("07_call_errors", "x.1", serve(publish_x)), t_report{"add=0"});
}

TEST_F(library_replay, a_call_without_data_is_refused)
{
    EXPECT_EQ(play("23_raw", "service.1", serve(publish_demo)), recorded("23_raw", "service"));
}

TEST_F(library_replay, a_listener_hears_its_events)
{
    EXPECT_EQ(play("08_events", "listener.1", listen({"foo.*", "bar", "baz*"})), recorded("08_events", "listener"));
}

TEST_F(library_replay, a_listener_hears_of_objects)
{
    EXPECT_EQ(play("10_object_events", "listener.1", listen({"ubus.object.*"})),
              recorded("10_object_events", "listener"));
}

TEST_F(library_replay, registration_errors_reach_the_caller)
{
    EXPECT_EQ(play("19_register_errors", "client.1", call_register_errors), recorded("19_register_errors", "client"));
}

TEST_F(library_replay, a_call_that_is_never_answered_times_out)
{
    constexpr int TIMEOUT_MS = 300;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(play("11_invoke_timeout", "caller.1",
                   [](t_library_client &client) { call_method(client, "x", "hang", TIMEOUT_MS); }),
              recorded("11_invoke_timeout", "caller"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(TIMEOUT_MS));
}

TEST_F(library_replay, a_service_may_leave_calls_unanswered)
{
    EXPECT_EQ(play("11_invoke_timeout", "service.1", serve(publish_x)), recorded("11_invoke_timeout", "service"));
}

TEST_F(library_replay, a_handler_may_free_the_connection)
{
    EXPECT_EQ(play("12_service_dies", "service.1", serve(publish_x)), recorded("12_service_dies", "service"));
}

TEST_F(library_replay, a_reply_to_a_caller_that_is_gone_is_no_error)
{
    EXPECT_EQ(play("13_caller_dies", "service.1", serve(publish_x)), recorded("13_caller_dies", "service"));
}

TEST_F(library_replay, deferred_calls_are_answered_later)
{
    EXPECT_EQ(play("14_deferred", "service.1", serve(publish_x)), recorded("14_deferred", "service"));
}

TEST_F(library_replay, a_publisher_knows_of_subscribers_and_notifies_them)
{
    EXPECT_EQ(play("15_notify", "service.1", notify_and_leave), recorded("15_notify", "service"));
}

TEST_F(library_replay, a_subscriber_hears_notifications_until_the_object_goes)
{
    EXPECT_EQ(play("15_notify", "subscriber.1", subscribe_and_hear), recorded("15_notify", "subscriber"));
}

TEST_F(library_replay, an_asynchronous_call_completes_in_the_loop)
{
    EXPECT_EQ(play("14_deferred", "caller.1", call_asynchronously), recorded("14_deferred", "caller"));
}

TEST_F(library_replay, a_call_of_a_dead_object_fails_at_once)
{
    t_report report = play("18_dead_object", "caller.1", [](t_library_client &client) {
        call_method(client, "x", "empty", 0);
        uint32_t id = 0;
        client.report.push_back("lookup=" + std::to_string(ubus_lookup_id(client.ctx(), "x", &id)));
    });
    EXPECT_EQ(report, (t_report{"lookup=0", "invoke=4 (Not found)", "lookup=4"}));
}

TEST_F(library_replay, a_call_of_an_id_that_never_was_fails_at_once)
{
    EXPECT_EQ(play("18_dead_object", "caller.2",
                   [](t_library_client &client) { call_method(client, "gone", "status", 500, 0xa1234567); }),
              (t_report{"lookup=4", "invoke=4 (Not found)"}));
}

TEST_F(library_replay, refused_objects_get_no_id)
{
    EXPECT_EQ(play("20_nonroot", "svc2.1", call_objects), recorded("20_nonroot", "svc2"));
}

TEST_F(library_replay, no_message_is_an_empty_message)
{
    EXPECT_EQ(play("25_null_data", "caller.1", call_without_message), recorded("25_null_data", "caller"));
}

// The daemon of the recording gave the same ids again after its restart.
TEST_F(library_replay, reconnecting_publishes_again_but_registers_no_pattern)
{
    daemon_.play_in_background(
        {load_conversation("26_reconnect", "service.1"), load_conversation("26_reconnect", "service.2")});
    {
        t_library_client client(socket_);
        publish_demo(client);
        register_patterns(client, {"foo"});
        client.run();
        EXPECT_TRUE(client.ctx()->sock.eof);
        EXPECT_FALSE(client.ctx()->sock.registered);
        EXPECT_GE(client.ctx()->sock.fd, 0);
        EXPECT_EQ(ubus_reconnect(client.ctx(), socket_.c_str()), 0);
        EXPECT_FALSE(client.ctx()->sock.registered);
        register_pattern_again(client, "foo");
        EXPECT_EQ(client.report.back(), recorded("26_reconnect", "service").back());
    }
    daemon_.finish();
}

} // namespace
