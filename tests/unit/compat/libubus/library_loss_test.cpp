// SPDX-License-Identifier: MIT
// The library when the bus goes away, and when it comes back.
#include "library_fixture.h"

namespace {

class library_loss : public library_test {};

// A request that nobody answers; its callback connects anew when the connection is lost.
struct t_reconnecting_request {
    t_reconnecting_request(ubus_context *ctx, uint32_t id, const std::string &path) : path(path)
    {
        EXPECT_EQ(ubus_invoke_async(ctx, id, "hang", nullptr, &request), 0);
        request.priv = this;
        request.complete_cb = [](ubus_request *lost, int) {
            auto *self = static_cast<t_reconnecting_request *>(lost->priv);
            self->status = ubus_reconnect(lost->ctx, self->path.c_str());
            self->socket = lost->ctx->sock.fd;
        };
        ubus_complete_request_async(ctx, &request);
    }
    ubus_request request;
    std::string path;
    int status = -1; // of the connection that it made
    int socket = -1;
};

TEST_F(library_loss, a_connection_lost_while_waiting_is_told)
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

TEST_F(library_loss, an_unnoticed_loss_does_not_kill_the_next_call)
{
    ctx();
    signal(SIGPIPE, SIG_DFL);
    daemon_->kill();
    EXPECT_EQ(call(12345, "m"), UBUS_STATUS_INVALID_ARGUMENT);
    daemon_.reset();
}

TEST_F(library_loss, asynchronous_calls_time_out_when_the_connection_is_lost)
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

TEST_F(library_loss, the_default_does_not_end_the_loop_on_a_loss)
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

TEST_F(library_loss, the_default_ends_the_loop_if_errors_are_asked_for)
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

TEST_F(library_loss, the_context_may_be_freed_when_the_connection_is_lost)
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

TEST_F(library_loss, the_context_and_other_requests_may_be_freed_by_the_first_that_is_completed)
{
    t_service service(socket_, publish_x);
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    static std::vector<std::unique_ptr<ubus_request>> requests;
    for (uint32_t id = id_of("x"); requests.size() < 2;) {
        ubus_request *req = requests.emplace_back(std::make_unique<ubus_request>()).get();
        ASSERT_EQ(ubus_invoke_async(own, id, "hang", nullptr, req), 0);
        req->complete_cb = [](ubus_request *first, int) {
            ubus_free(first->ctx);
            requests.clear();
        };
        ubus_complete_request_async(own, req);
    }
    own->connection_lost = [](ubus_context *) { ADD_FAILURE(); };
    ubus_add_uloop(own);
    daemon_->kill();
    run_for(4 * SHORT_MS);
    EXPECT_TRUE(requests.empty());
    daemon_.reset();
}

TEST_F(library_loss, reconnecting_publishes_every_object_once_the_daemon_is_back)
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

TEST_F(library_loss, a_callback_of_a_lost_request_may_reconnect_first)
{
    t_service service(socket_, publish_x);
    t_reconnecting_request request(ctx(), id_of("x"), socket_);
    publish_demo(*client_);
    daemon_->kill();
    daemon_.emplace(socket_);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), 0);
    EXPECT_EQ(request.status, 0);
    EXPECT_EQ(ctx()->sock.fd, request.socket);
    EXPECT_GE(id_of("demo"), 1024U);
}

TEST_F(library_loss, whoever_reconnects_around_a_callback_that_did_hears_what_became_of_the_objects)
{
    t_service service(socket_, publish_x);
    t_reconnecting_request request(ctx(), id_of("x"), socket_);
    publish_demo(*client_);
    daemon_->kill();
    daemon_.emplace(socket_);
    t_service usurper(socket_, publish_demo);
    EXPECT_EQ(ubus_reconnect(ctx(), socket_.c_str()), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(request.status, UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(library_loss, reconnecting_tells_of_a_name_that_is_taken_and_tries_again_later)
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

TEST_F(library_loss, an_object_removed_after_a_loss_is_not_published_again)
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

} // namespace
