// SPDX-License-Identifier: MIT
// The library against the real daemon: waiting, losing the connection, and callbacks that pull the rug away.
#include "library_clients.h"
#include "scripted_daemon.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int c_user_calls_itself(ubus_context *ctx);

namespace {

using t_clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uid_t NOBODY = 65534;
constexpr int SHORT_MS = 50;

int64_t elapsed_ms(t_clock::time_point start)
{
    return std::chrono::duration_cast<milliseconds>(t_clock::now() - start).count();
}

// A service in a process of its own, which reports at its end.
class t_service {
public:
    t_service(const std::string &socket, void (*publish)(t_library_client &))
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        process_.emplace([&] {
            t_library_client client(socket);
            publish(client);
            EXPECT_EQ(write(ready[1], "r", 1), 1);
            close(ready[1]);
            close(ready[0]);
            client.run();
            for (const std::string &line : client.report) {
                printf("%s\n", line.c_str());
            }
            return 0;
        });
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }

    std::string stop()
    {
        process_->signal(SIGTERM);
        EXPECT_EQ(process_->wait(), 0);
        EXPECT_EQ(process_->errors(), "");
        return process_->output();
    }

    void kill() { process_.reset(); }

private:
    std::optional<t_process> process_;
};

class library : public t_bus_test {
protected:
    void TearDown() override
    {
        client_.reset();
        t_bus_test::TearDown();
    }

    ubus_context *ctx()
    {
        if (!client_) {
            client_ = std::make_unique<t_library_client>(socket_);
        }
        return client_->ctx();
    }

    uint32_t id_of(const std::string &path)
    {
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(ctx(), path.c_str(), &id), 0) << path;
        return id;
    }

    int call(uint32_t id, const char *method, int timeout_ms = 0)
    {
        return ubus_invoke(ctx(), id, method, nullptr, nullptr, nullptr, timeout_ms);
    }

    void run_for(int ms)
    {
        uloop_timeout end = {};
        end.cb = [](uloop_timeout *) { uloop_end(); };
        uloop_timeout_set(&end, ms);
        uloop_run();
        uloop_timeout_cancel(&end);
    }

    std::unique_ptr<t_library_client> client_;
};

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
    EXPECT_EQ(call(id, "defer"), 0); // the first answer comes before the second
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

// Losing the connection

TEST_F(library, a_connection_lost_while_waiting_is_told)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    std::thread killer([this] {
        usleep(SHORT_MS * 1000);
        daemon_->kill();
    });
    EXPECT_EQ(call(id, "hang"), UBUS_STATUS_CONNECTION_FAILED);
    killer.join();
    signal(SIGPIPE, SIG_DFL); // nothing may rely on it being ignored
    ubus_object own = {};
    ubus_request_data nobody = {};
    EXPECT_EQ(call(id, "empty"), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_lookup_id(ctx(), "x", &id), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_add_object(ctx(), &own), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(ctx(), "e", nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_reply(ctx(), &nobody, nullptr), UBUS_STATUS_NO_DATA);
    daemon_.reset();
}

TEST_F(library, an_unnoticed_loss_does_not_kill_the_next_call)
{
    ctx();
    signal(SIGPIPE, SIG_DFL);
    daemon_->kill();
    EXPECT_EQ(call(12345, "m"), UBUS_STATUS_INVALID_ARGUMENT);
    daemon_.reset();
}

TEST_F(library, asynchronous_calls_time_out_when_the_connection_is_lost)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    static int status;
    status = -1;
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx(), id, "hang", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int result) { status = result; };
    ubus_complete_request_async(ctx(), &req);
    daemon_->kill();
    client_->run();
    EXPECT_EQ(status, UBUS_STATUS_TIMEOUT);
    daemon_.reset();
}

TEST_F(library, the_default_does_not_end_the_loop_on_a_loss)
{
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    ubus_add_uloop(own);
    daemon_->kill();
    auto start = t_clock::now();
    run_for(2 * SHORT_MS);
    EXPECT_GE(elapsed_ms(start), 2 * SHORT_MS - 1);
    EXPECT_FALSE(own->sock.registered);
    EXPECT_TRUE(own->sock.eof);
    ubus_free(own);
    uloop_done();
    daemon_.reset();
}

TEST_F(library, the_default_ends_the_loop_if_errors_are_asked_for)
{
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    uloop_fd_add(&own->sock, ULOOP_BLOCKING | ULOOP_READ | ULOOP_ERROR_CB);
    daemon_->kill();
    auto start = t_clock::now();
    run_for(static_cast<int>(milliseconds(PATIENCE).count()));
    EXPECT_LT(elapsed_ms(start), milliseconds(PATIENCE).count());
    ubus_free(own);
    uloop_done();
    daemon_.reset();
}

TEST_F(library, the_context_may_be_freed_when_the_connection_is_lost)
{
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    own->connection_lost = [](ubus_context *lost) {
        ubus_free(lost);
        uloop_end();
    };
    ubus_add_uloop(own);
    daemon_->kill();
    uloop_run();
    uloop_done();
    daemon_.reset();
}

TEST_F(library, reconnecting_publishes_every_object_once_the_daemon_is_back)
{
    t_connection keeps_descriptors_apart = connect();
    ctx();
    publish_demo(*client_);
    publish_types(*client_);
    register_patterns(*client_, {"foo"});
    daemon_->kill();
    client_->run();
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(ctx()->sock.fd, -1);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(call(12345, "m"), UBUS_STATUS_INVALID_ARGUMENT);
    daemon_.emplace(socket_);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), 0);
    EXPECT_FALSE(ctx()->sock.registered);
    for (const char *path : {"demo", "types", "none"}) {
        EXPECT_GE(id_of(path), 1024U);
    }
    ubus_add_uloop(ctx());
    t_process caller("ubus", {"-s", socket_, "-S", "call", "demo", "echo", "{\"msg\":\"hi\"}"});
    run_for(4 * SHORT_MS);
    EXPECT_EQ(caller.wait(), 0);
    EXPECT_EQ(caller.output(), "{\"msg\":\"hi\"}\n");
}

TEST_F(library, reconnecting_tells_of_a_name_that_is_taken_and_tries_again_later)
{
    ctx();
    publish_demo(*client_);
    daemon_->kill();
    daemon_.emplace(socket_);
    auto usurper = std::make_unique<t_service>(socket_, publish_demo);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), UBUS_STATUS_INVALID_ARGUMENT);
    usurper.reset();
    expect_alive();
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), 0);
    EXPECT_GE(id_of("demo"), 1024U);
}

TEST_F(library, an_object_removed_after_a_loss_is_not_published_again)
{
    ctx();
    publish_types(*client_);
    auto own = std::make_unique<ubus_object>();
    ASSERT_EQ(ubus_add_object(ctx(), own.get()), 0);
    daemon_->kill();
    client_->run();
    EXPECT_EQ(ubus_remove_object(ctx(), own.get()), UBUS_STATUS_INVALID_ARGUMENT);
    own.reset();
    daemon_.emplace(socket_);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), 0);
    EXPECT_GE(id_of("types"), 1024U);
}

// Callbacks that pull the rug away

TEST_F(library, a_request_may_be_freed_by_its_completion)
{
    t_service service(socket_, publish_x);
    auto *req = new ubus_request;
    ASSERT_EQ(ubus_invoke_async(ctx(), id_of("x"), "two", nullptr, req), 0);
    req->complete_cb = [](ubus_request *done, int status) {
        EXPECT_EQ(status, 0);
        delete done;
        uloop_end();
    };
    ubus_complete_request_async(ctx(), req);
    client_->run();
}

TEST_F(library, an_aborted_request_is_never_completed)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx(), id, "empty", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int) { ADD_FAILURE(); };
    ubus_complete_request_async(ctx(), &req);
    ubus_abort_request(ctx(), &req);
    ubus_abort_request(ctx(), &req);
    EXPECT_EQ(call(id, "empty"), 0); // answered after the other
}

TEST_F(library, a_request_may_be_aborted_and_freed_by_its_own_data)
{
    t_service service(socket_, publish_x);
    uint32_t id = id_of("x");
    auto *req = new ubus_request;
    ASSERT_EQ(ubus_invoke_async(ctx(), id, "two", nullptr, req), 0);
    static int parts;
    parts = 0;
    req->data_cb = [](ubus_request *aborted, int, blob_attr *) {
        parts++;
        ubus_abort_request(aborted->ctx, aborted);
        delete aborted;
    };
    ubus_complete_request_async(ctx(), req);
    EXPECT_EQ(call(id, "empty"), 0);
    EXPECT_EQ(parts, 1);
}

// Other calls are made, and larger answers received, while the data of one is still in use.
TEST_F(library, data_stay_valid_while_their_callback_calls)
{
    t_service service(socket_, publish_x), other(socket_, publish_demo);
    struct t_nested {
        uint32_t demo;
        t_report report;
    } nested = {.demo = id_of("demo"), .report = {}};
    auto call_and_look = [](ubus_request *req, int, blob_attr *data) {
        auto *state = static_cast<t_nested *>(req->priv);
        state->report.push_back(to_json(data));
        EXPECT_EQ(ubus_invoke(req->ctx, state->demo, "status", nullptr, nullptr, nullptr, 0), 0);
        state->report.push_back(to_json(data));
    };
    EXPECT_EQ(ubus_invoke(ctx(), id_of("x"), "two", nullptr, call_and_look, &nested, 0), 0);
    EXPECT_EQ(nested.report, (t_report{"{\"part\":1}", "{\"part\":1}", "{\"part\":2}", "{\"part\":2}"}));
}

TEST_F(library, a_lookup_may_call_what_it_finds)
{
    t_service service(socket_, publish_x), other(socket_, publish_demo);
    struct t_found {
        t_report paths;
        t_report calls;
    } found;
    auto call_it = [](ubus_context *ctx, ubus_object_data *object, void *priv) {
        auto *state = static_cast<t_found *>(priv);
        int status = ubus_invoke(ctx, object->id, "empty", nullptr, nullptr, nullptr, 0);
        state->paths.push_back(object->path);
        state->calls.push_back(std::to_string(status));
    };
    EXPECT_EQ(ubus_lookup(ctx(), nullptr, call_it, &found), 0);
    EXPECT_EQ(found.paths, (t_report{"demo", "x"}));
    EXPECT_EQ(found.calls, (t_report{"3", "0"}));
}

TEST_F(library, the_context_may_be_freed_by_an_event)
{
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *) {
        ubus_free(ctx);
        uloop_end();
    };
    ASSERT_EQ(ubus_register_event_handler(own, &handler, "*"), 0);
    ubus_add_uloop(own);
    EXPECT_EQ(ubus_send_event(ctx(), "first", nullptr), 0);
    EXPECT_EQ(ubus_send_event(ctx(), "second", nullptr), 0);
    uloop_run();
}

TEST_F(library, the_context_may_be_freed_by_the_data_of_a_call)
{
    t_service service(socket_, publish_x);
    ubus_context *own = ubus_connect(socket_.c_str());
    uint32_t id = id_of("x");
    auto free_it = [](ubus_request *req, int, blob_attr *) { ubus_free(req->ctx); };
    EXPECT_EQ(ubus_invoke(own, id, "two", nullptr, free_it, nullptr, 0), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(library, outstanding_requests_are_dropped_with_the_context)
{
    t_service service(socket_, publish_x);
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx(), id_of("x"), "hang", nullptr, &req), 0);
    req.complete_cb = [](ubus_request *, int) { ADD_FAILURE(); };
    ubus_complete_request_async(ctx(), &req);
    client_.reset();
    EXPECT_TRUE(list_empty(&req.list));
    EXPECT_TRUE(req.cancelled);
}

// A daemon that has gone mad

class mad_daemon : public testing::Test {
protected:
    // Connects, publishes demo under the given id, and serves what the daemon sends until it closes.
    void serve(const t_bytes &frames)
    {
        t_private_folder folder;
        std::string socket = folder.path("bus");
        t_conversation script = load_conversation("04_call_table", "service.1");
        script.steps.resize(4); // greeting and publication
        script.steps.push_back({t_step::from_daemon, frames});
        t_scripted_daemon daemon(socket);
        std::thread reader([&] {
            daemon.play(script, [](t_connection &connection) {
                shutdown(connection.fd(), SHUT_WR);
                while (connection.receive(milliseconds(PATIENCE))) {
                }
            });
        });
        {
            t_library_client client(socket);
            publish_demo(client);
            client.run();
            EXPECT_TRUE(client.ctx()->sock.eof);
        }
        reader.join();
    }

    std::mt19937 random_{815};
};

TEST_F(mad_daemon, a_foreign_version_ends_the_connection)
{
    serve(from_hex("010200010000000000000004"));
}

TEST_F(mad_daemon, an_impossible_length_ends_the_connection)
{
    serve(from_hex("000500010000000000000003"));
    serve(from_hex("000500010000000000ffffff"));
}

TEST_F(mad_daemon, unexpected_answers_and_half_a_frame_are_survived)
{
    serve(from_hex("000100630000000000000004"
                   "00020063a000000300000004"
                   "0008000000000000000000ff"));
}

TEST_F(mad_daemon, calls_with_damaged_content_are_survived)
{
    t_bytes call = load_conversation("04_call_table", "service.1").steps.at(10).frame;
    ASSERT_EQ(frame_type(call), 5);
    for (int round = 0; round < 100; round++) {
        t_bytes frames;
        for (int i = 0; i < 20; i++) {
            t_bytes damaged = call;
            for (int flips = 0; flips < 3; flips++) {
                damaged[12 + random_() % (damaged.size() - 12)] ^= static_cast<char>(1 << random_() % 8);
            }
            frames += damaged;
        }
        serve(frames);
    }
}

} // namespace
