// SPDX-License-Identifier: MIT
// The library against the real daemon: connecting, calls, events.
#include "library_fixture.h"
#include "tests/unit/support/own_place.h"

#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>

extern "C" int c_user_calls_itself(ubus_context *ctx);

namespace {

constexpr uid_t NOBODY = 65534;

class library : public library_test {};

// Connecting

TEST_F(library, connecting_prepares_the_socket_and_the_signals)
{
    ASSERT_NE(ctx(), nullptr);
    EXPECT_TRUE(fcntl(ctx()->sock.fd, F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(ctx()->sock.fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(ctx()->sock.registered);
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(library, connecting_fails_without_a_daemon)
{
    EXPECT_EQ(ubus_connect(folder_.path("nobody").c_str()), nullptr);
    EXPECT_EQ(ubus_connect(folder_.path(std::string(108, 'p')).c_str()), nullptr);
    ubus_context own;
    EXPECT_EQ(ubus_connect_ctx(&own, folder_.path("nobody").c_str()), -1);
    uloop_done();
}

TEST_F(library, a_context_of_ones_own_works_as_well)
{
    ubus_context own;
    ASSERT_EQ(ubus_connect_ctx(&own, socket_.c_str()), 0);
    uint32_t id = 7;
    EXPECT_EQ(ubus_lookup_id(&own, "nothing", &id), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(id, 7U);
    ubus_shutdown(&own);
    EXPECT_EQ(own.sock.fd, -1);
    uloop_done();
}

// The greeting must come whole.
TEST(library_greeting, anything_else_makes_connecting_fail)
{
    const t_bytes good = from_hex("00000000a000000100000004");
    const t_bytes cases[] = {"", good.substr(0, 11), from_hex("00010000a000000100000004"),
                             from_hex("01000000a000000100000004")};
    for (const t_bytes &greeting : cases) {
        t_private_folder folder;
        std::string socket = folder.path("bus");
        t_conversation script = {.name = "greeting", .steps = {{t_step::from_daemon, greeting}}};
        t_scripted_daemon daemon(socket);
        daemon.play_in_background({script});
        EXPECT_EQ(ubus_connect(socket.c_str()), nullptr) << to_hex(greeting);
        daemon.finish();
    }
    uloop_done();
}

TEST(library_texts, every_status_has_its_text)
{
    const char *const texts[] = {"Success",
                                 "Invalid command",
                                 "Invalid argument",
                                 "Method not found",
                                 "Not found",
                                 "No response",
                                 "Permission denied",
                                 "Request timed out",
                                 "Operation not supported",
                                 "Unknown error",
                                 "Connection failed",
                                 "Out of memory",
                                 "Parsing message data failed",
                                 "System error",
                                 "Unknown error: 14"};
    for (int status = 0; status < 15; status++) {
        EXPECT_STREQ(ubus_strerror(status), texts[status]);
    }
    EXPECT_STREQ(ubus_strerror(-5), "Unknown error: -5");
    EXPECT_STREQ(ubus_strerror(INT32_MIN), "Unknown error: -2147483648");
}

TEST_F(library, the_header_serves_c_programs)
{
    EXPECT_EQ(c_user_calls_itself(ctx()), UBUS_STATUS_INVALID_COMMAND);
}

// Calls

TEST_F(library, data_and_status_of_a_service_reach_the_caller)
{
    t_service service(socket_, publish_demo);
    ctx();
    call_method(*client_, "demo", "status", 0);
    EXPECT_EQ(client_->report, (t_report{"lookup=0",
                                         "data type=2 {\"running\":true,\"count\":42,\"state\":\"idle\",\"ports\":"
                                         "[\"eth0\",\"eth1\"],\"nested\":{\"big\":1099511627776,\"ratio\":0.500000}}",
                                         "invoke=0 (Success)"}));
    EXPECT_EQ(service.stop(), "add=0\nsvc status {}\n");
}

struct t_big_case {
    size_t length;
    int status;
};

class big_message : public library, public testing::WithParamInterface<t_big_case> {};

TEST_P(big_message, is_passed_up_to_the_limit)
{
    t_service service(socket_, publish_demo);
    uint32_t id = id_of("demo");
    blob_buf message = {};
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "msg", std::string(GetParam().length, 'x').c_str());
    size_t answered = 0;
    auto measure = [](ubus_request *req, int, blob_attr *data) {
        blob_attr *field = static_cast<blob_attr *>(blob_data(data));
        *static_cast<size_t *>(req->priv) = strlen(blobmsg_get_string(field));
    };
    EXPECT_EQ(ubus_invoke(ctx(), id, "echo", message.head, measure, &answered, 0), GetParam().status);
    EXPECT_EQ(answered, GetParam().status == 0 ? GetParam().length : 0);
    EXPECT_EQ(call(id, "status"), 0) << "the service is not reachable any more";
    blob_buf_free(&message);
}

// From 1048512 to 1048535 the names of user and group make the call too long for its owner.
INSTANTIATE_TEST_SUITE_P(string, big_message,
                         testing::Values(t_big_case{1000, 0}, t_big_case{100000, 0}, t_big_case{1048500, 0},
                                         t_big_case{1048511, 0}, t_big_case{1048512, 2}, t_big_case{1048535, 2},
                                         t_big_case{1048536, 2}, t_big_case{1048548, 2}, t_big_case{1048600, 2}),
                         [](const auto &which) { return std::to_string(which.param.length); });

TEST_F(library, a_message_beyond_every_limit_is_refused)
{
    blob_buf message = {};
    blob_buf_init(&message, 0);
    std::string megabyte(1048576, 'x');
    for (int i = 0; i < 15; i++) {
        ASSERT_EQ(blobmsg_add_string(&message, "m", megabyte.c_str()), 0);
    }
    EXPECT_EQ(ubus_invoke(ctx(), 12345, "m", message.head, nullptr, nullptr, 0), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(ctx(), "e", message.head), UBUS_STATUS_INVALID_ARGUMENT);
    ubus_request_data nobody = {};
    EXPECT_EQ(ubus_send_reply(ctx(), &nobody, message.head), UBUS_STATUS_NO_DATA);
    EXPECT_EQ(call(12345, "m"), UBUS_STATUS_NOT_FOUND) << "the connection is still in order";
    blob_buf_free(&message);
}

TEST_F(library, room_for_a_large_message_is_given_back_when_only_small_ones_follow)
{
    t_service service(socket_, publish_demo);
    uint32_t id = id_of("demo");
    blob_buf message = {};
    blob_buf_init(&message, 0);
    blobmsg_add_string(&message, "msg", std::string(3 * UBUS_MSG_CHUNK_SIZE, 'x').c_str());
    EXPECT_EQ(ubus_invoke(ctx(), id, "echo", message.head, nullptr, nullptr, 0), 0);
    blob_buf_free(&message);
    EXPECT_GT(ctx()->msgbuf_data_len, 3U * UBUS_MSG_CHUNK_SIZE);
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(call(id, "status"), 0);
    }
    EXPECT_EQ(ctx()->msgbuf_data_len, static_cast<uint32_t>(UBUS_MSG_CHUNK_SIZE));
}

TEST_F(library, descriptors_are_not_passed)
{
    EXPECT_EQ(ubus_invoke_fd(ctx(), 12345, "m", nullptr, nullptr, nullptr, 0, STDOUT_FILENO),
              UBUS_STATUS_NOT_SUPPORTED);
}

TEST_F(library, a_negative_timeout_does_not_wait_but_calls)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    EXPECT_EQ(call(id, "hang", -1), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(call(id, "empty"), 0); // served after the other
    EXPECT_EQ(service.stop(), "add=0\nsvc hang\n");
}

TEST_F(library, a_late_answer_is_ignored)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    EXPECT_EQ(call(id, "defer", DEFER_MS / 4), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(call(id, "hang", 4 * DEFER_MS), UBUS_STATUS_TIMEOUT); // the late answer comes meanwhile
}

TEST_F(library, a_termination_signal_does_not_interrupt_a_call)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    auto start = t_clock::now();
    std::thread killer([] {
        usleep(SHORT_MS * 1000);
        kill(getpid(), SIGTERM);
    });
    EXPECT_EQ(call(id, "hang", 3 * SHORT_MS), UBUS_STATUS_TIMEOUT);
    EXPECT_GE(elapsed_ms(start), 3 * SHORT_MS);
    killer.join();
    EXPECT_TRUE(uloop_cancelled);
}

// A call of an object of the same connection waits in vain: its handler runs when the call is over.
struct t_own_object {
    static inline int calls, timers;
    static int count(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
    {
        calls++;
        return 0;
    }
};

TEST_F(library, calls_that_come_in_during_a_call_wait_for_its_end_and_timers_do_not_run)
{
    t_own_object::calls = t_own_object::timers = 0;
    ubus_method method = UBUS_METHOD_NOARG("m", t_own_object::count);
    ubus_object_type type = {.name = "own", .id = 0, .methods = &method, .n_methods = 1};
    ubus_object own = {};
    own.name = "own";
    own.type = &type;
    own.methods = &method;
    own.n_methods = 1;
    ASSERT_EQ(ubus_add_object(ctx(), &own), 0);
    ubus_add_uloop(ctx());
    uloop_timeout timer = {};
    timer.cb = [](uloop_timeout *) { t_own_object::timers++; };
    uloop_timeout_set(&timer, 1);
    EXPECT_EQ(call(own.id, "m", SHORT_MS), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(t_own_object::calls, 0);
    EXPECT_EQ(t_own_object::timers, 0);
    run_for(SHORT_MS);
    EXPECT_EQ(t_own_object::calls, 1);
    EXPECT_EQ(t_own_object::timers, 1);
}

TEST_F(library, an_object_is_added_once)
{
    ubus_object own = {};
    ASSERT_EQ(ubus_add_object(ctx(), &own), 0);
    EXPECT_EQ(ubus_add_object(ctx(), &own), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_remove_object(ctx(), &own), 0);
    EXPECT_EQ(ubus_add_object(ctx(), &own), 0);
}

TEST_F(library, a_hidden_object_is_found_without_an_id)
{
    NEEDS_OTHER_USERS();
    t_service service(socket_, publish_demo);
    ASSERT_EQ(setegid(NOBODY), 0);
    ASSERT_EQ(seteuid(NOBODY), 0);
    ubus_context *nobodys = ubus_connect(socket_.c_str());
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(setegid(0), 0);
    ASSERT_NE(nobodys, nullptr);
    uint32_t id = 7;
    EXPECT_EQ(ubus_lookup_id(nobodys, "demo", &id), 0);
    EXPECT_EQ(id, 7U);
    id = id_of("demo");
    EXPECT_EQ(ubus_invoke(nobodys, id, "status", nullptr, nullptr, nullptr, 0), UBUS_STATUS_PERMISSION_DENIED);
    ubus_event_handler handler = {};
    EXPECT_EQ(ubus_register_event_handler(nobodys, &handler, "e"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_send_event(nobodys, "e", nullptr), UBUS_STATUS_PERMISSION_DENIED);
    ubus_free(nobodys);
}

// Events

TEST_F(library, an_event_is_heard_once_and_never_by_its_sender)
{
    ctx();
    register_patterns(*client_, {"e*", "ev", "*"});
    ubus_context *sender = ubus_connect(socket_.c_str());
    ASSERT_NE(sender, nullptr);
    EXPECT_EQ(ubus_send_event(ctx(), "ev", nullptr), 0);
    EXPECT_EQ(ubus_send_event(sender, "ev", nullptr), 0);
    EXPECT_EQ(ubus_send_event(sender, "f", nullptr), 0);
    ubus_free(sender);
    ubus_add_uloop(ctx());
    run_for(SHORT_MS);
    EXPECT_EQ(client_->report, (t_report{"register=0", "register ev=0", "register *=0", "event ev {}", "event f {}"}));
}

TEST_F(library, an_unregistered_handler_hears_nothing)
{
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) { ADD_FAILURE(); };
    ASSERT_EQ(ubus_register_event_handler(ctx(), &handler, "*"), 0);
    ASSERT_EQ(ubus_unregister_event_handler(ctx(), &handler), 0);
    EXPECT_EQ(handler.obj.id, 0U);
    ubus_context *sender = ubus_connect(socket_.c_str());
    EXPECT_EQ(ubus_send_event(sender, "ev", nullptr), 0);
    ubus_free(sender);
    ubus_add_uloop(ctx());
    run_for(SHORT_MS);
}

// The same sequence number may be under way for another object.
TEST(library_answers, are_told_apart_by_their_peer)
{
    t_private_folder folder;
    std::string socket = folder.path("bus");
    t_conversation script = load_conversation("18_dead_object", "caller.2");
    t_step foreign = script.steps.at(4);
    ASSERT_EQ(frame_peer(foreign.frame), 0xa1234567U);
    set_word_at(foreign.frame, 4, 0xa1234568);
    set_word_at(foreign.frame, 16, UBUS_STATUS_SYSTEM_ERROR);
    script.steps.insert(script.steps.begin() + 4, foreign);
    t_scripted_daemon daemon(socket);
    daemon.play_in_background({script});
    {
        t_library_client client(socket);
        call_method(client, "gone", "status", 0, 0xa1234567);
        EXPECT_EQ(client.report.back(), "invoke=4 (Not found)");
    }
    daemon.finish();
}

} // namespace
