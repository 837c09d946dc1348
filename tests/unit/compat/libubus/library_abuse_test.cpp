// SPDX-License-Identifier: MIT
// The library among users whose callbacks free what it works on, and a daemon that has gone mad.
#include "library_fixture.h"

#include <random>
#include <sys/socket.h>
#include <thread>

namespace {

class library_callbacks : public library_test {};

TEST_F(library_callbacks, a_request_may_be_freed_by_its_completion)
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

TEST_F(library_callbacks, an_aborted_request_is_never_completed)
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

TEST_F(library_callbacks, a_request_may_be_aborted_and_freed_by_its_own_data)
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

TEST_F(library_callbacks, a_request_may_end_and_be_freed_while_its_data_are_looked_at)
{
    t_service service(socket_, publish_x);
    struct t_state {
        t_daemon *daemon;
        int status;
    } state = {.daemon = &*daemon_, .status = -1};
    auto *req = new ubus_request;
    ASSERT_EQ(ubus_invoke_async(ctx(), id_of("x"), "two", nullptr, req), 0);
    req->priv = &state;
    req->data_cb = [](ubus_request *own, int, blob_attr *) {
        static_cast<t_state *>(own->priv)->daemon->kill();
        uloop_run(); // until the loss is noticed, which ends the request
    };
    req->complete_cb = [](ubus_request *own, int status) {
        static_cast<t_state *>(own->priv)->status = status;
        delete own;
    };
    ubus_complete_request_async(ctx(), req);
    client_->run();
    EXPECT_NE(state.status, -1);
    daemon_.reset();
}

// Other calls are made, and larger answers received, while the data of one is still in use.
TEST_F(library_callbacks, data_stay_valid_while_their_callback_calls)
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

TEST_F(library_callbacks, a_lookup_may_call_what_it_finds)
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

TEST_F(library_callbacks, the_context_may_be_freed_by_an_event)
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

TEST_F(library_callbacks, the_context_may_be_freed_by_the_data_of_a_call)
{
    t_service service(socket_, publish_x);
    ubus_context *own = ubus_connect(socket_.c_str());
    uint32_t id = id_of("x");
    auto free_it = [](ubus_request *req, int, blob_attr *) { ubus_free(req->ctx); };
    EXPECT_EQ(ubus_invoke(own, id, "two", nullptr, free_it, nullptr, 0), UBUS_STATUS_CONNECTION_FAILED);
}

// The bus answers in the order in which it was asked, so the call ends before the removal.
TEST_F(library_callbacks, the_context_and_the_object_may_be_freed_while_the_object_is_removed)
{
    ubus_context *own = ubus_connect(socket_.c_str());
    ASSERT_NE(own, nullptr);
    auto *object = new ubus_object();
    ASSERT_EQ(ubus_add_object(own, object), 0);
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(own, UBUS_SYSTEM_OBJECT_EVENT, "none", nullptr, &req), 0);
    req.priv = object;
    req.complete_cb = [](ubus_request *done, int) {
        ubus_free(done->ctx);
        delete static_cast<ubus_object *>(done->priv);
    };
    ubus_complete_request_async(own, &req);
    EXPECT_EQ(ubus_remove_object(own, object), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(library_callbacks, outstanding_requests_are_dropped_with_the_context)
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
    // What demo reports of the frames it is sent until the connection ends.
    t_report serve(const t_bytes &frames)
    {
        t_report report;
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
            report = client.report;
        }
        reader.join();
        return report;
    }

    const t_bytes call_ = load_conversation("04_call_table", "service.1").steps.at(10).frame;
    const std::string served_ = "svc echo {\"msg\":\"hi\",\"id\":7} peer=client seq=2 user=root group=root";
    std::mt19937 random_{815};
};

TEST_F(mad_daemon, a_foreign_version_ends_the_connection)
{
    EXPECT_EQ(serve(call_ + from_hex("010200010000000000000004") + call_), (t_report{"add=0", served_}));
}

TEST_F(mad_daemon, an_impossible_length_ends_the_connection)
{
    EXPECT_EQ(serve(call_ + from_hex("000500010000000000000003") + call_), (t_report{"add=0", served_}));
    EXPECT_EQ(serve(call_ + from_hex("000500010000000000ffffff") + call_), (t_report{"add=0", served_}));
}

TEST_F(mad_daemon, unexpected_answers_and_half_a_frame_are_survived)
{
    t_bytes answers = from_hex("00010063000000000000000400020063a0000003000000040008000000000000"
                               "00000004");
    EXPECT_EQ(serve(answers + call_ + call_.substr(0, 20)), (t_report{"add=0", served_}));
}

TEST_F(mad_daemon, calls_with_damaged_content_are_survived)
{
    for (int round = 0; round < 100; round++) {
        t_bytes frames;
        for (int i = 0; i < 20; i++) {
            t_bytes damaged = call_;
            for (int flips = 0; flips < 3; flips++) {
                damaged[12 + random_() % (damaged.size() - 12)] ^= static_cast<char>(1 << random_() % 8);
            }
            frames += damaged;
        }
        serve(frames);
    }
}

} // namespace
