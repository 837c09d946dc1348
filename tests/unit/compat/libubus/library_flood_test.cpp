// SPDX-License-Identifier: MIT
// The library and a bus that never falls silent, asks more than can wait, or breaks its word in the middle of a call.
#include "frames.h"
#include "library_fixture.h"

#include <future>

namespace {

constexpr uint32_t OBJECT_ID = 0xa0000002;
constexpr uint32_t STRANGER = 0xa0000003;
// So many frames, each of them slowly dealt with, keep a client busy for two seconds.
constexpr int FLOOD_FRAMES = 1000;
constexpr useconds_t SLOW_US = 2000;
constexpr int64_t SOON_MS = 1000;

using t_behaviour = std::function<void(t_connection &, const t_bytes &first_frame)>;

// A library client in the loop, and the bus's end of its connection in a thread, which behaves in a way of its own from
// the client's first frame on.
class unruly_bus : public testing::Test {
protected:
    void start(const t_behaviour &behave)
    {
        const t_conversation greeting = {.name = "greeting",
                                         .steps = {{t_step::from_daemon, frame(TYPE_HELLO, 0, STRANGER, "")}}};
        thread_ = std::thread([this, greeting, behave] {
            daemon_.play(greeting, [&](t_connection &connection) {
                if (std::optional<t_bytes> first = connection.receive()) {
                    behave(connection, *first);
                }
                while (connection.receive()) {
                }
            });
        });
        ctx_ = ubus_connect(socket_.c_str());
        ASSERT_NE(ctx_, nullptr);
        lost_count = 0;
        ctx_->connection_lost = [](ubus_context *) { lost_count++; };
        ubus_add_uloop(ctx_);
    }

    void TearDown() override
    {
        ubus_free(ctx_);
        uloop_done();
        thread_.join();
    }

    int call(int timeout_ms) { return ubus_invoke(ctx_, OBJECT_ID, "m", nullptr, nullptr, nullptr, timeout_ms); }

    void run_for(int ms)
    {
        uloop_timeout end = {};
        end.cb = [](uloop_timeout *) { uloop_end(); };
        uloop_timeout_set(&end, ms);
        uloop_run();
        uloop_timeout_cancel(&end);
    }

    void expect_one_loss()
    {
        run_for(SHORT_MS);
        EXPECT_EQ(lost_count, 1);
        EXPECT_FALSE(ctx_->sock.registered);
        EXPECT_TRUE(ctx_->sock.eof);
        EXPECT_GE(ctx_->sock.fd, 0);
    }

    static inline int lost_count;
    ubus_context *ctx_ = nullptr;

private:
    t_private_folder folder_;
    std::string socket_ = folder_.path("bus");
    t_scripted_daemon daemon_{socket_};
    std::thread thread_;
};

// A frame that cannot be, on a connection that stays.
void break_word(t_connection &connection, const t_bytes &)
{
    connection.send(from_hex("010200010000000000000004") + t_bytes(100, 'x'));
}

t_bytes repeated(const t_bytes &bytes)
{
    t_bytes all;
    for (int i = 0; i < FLOOD_FRAMES; i++) {
        all += bytes;
    }
    return all;
}

TEST_F(unruly_bus, a_call_times_out_while_answers_keep_coming)
{
    start([](t_connection &connection, const t_bytes &first) {
        connection.send(repeated(frame(TYPE_DATA, frame_seq(first), OBJECT_ID, attribute(7, ""))));
    });
    auto look_slowly = [](ubus_request *, int, blob_attr *) { usleep(SLOW_US); };
    auto begin = t_clock::now();
    EXPECT_EQ(ubus_invoke(ctx_, OBJECT_ID, "m", nullptr, look_slowly, nullptr, SHORT_MS), UBUS_STATUS_TIMEOUT);
    EXPECT_LT(elapsed_ms(begin), SOON_MS);
}

TEST_F(unruly_bus, timers_run_while_calls_keep_coming)
{
    start([](t_connection &connection, const t_bytes &first) {
        connection.send(frame(TYPE_DATA, frame_seq(first), 0, attribute(3, word(OBJECT_ID))) +
                        frame(TYPE_STATUS, frame_seq(first), 0, attribute(1, word(0))) +
                        repeated(call_of(OBJECT_ID, 1)));
    });
    static int served;
    served = 0;
    ubus_method method =
        UBUS_METHOD_NOARG(nullptr, ([](ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
                              usleep(SLOW_US);
                              served++;
                              return 0;
                          }));
    ubus_object own = {};
    own.methods = &method;
    own.n_methods = 1;
    ASSERT_EQ(ubus_add_object(ctx_, &own), 0);
    auto begin = t_clock::now();
    run_for(SHORT_MS);
    EXPECT_LT(elapsed_ms(begin), SOON_MS);
    EXPECT_GT(served, 0);
}

TEST_F(unruly_bus, a_broken_frame_during_a_call_is_a_loss_told_once)
{
    start(break_word);
    EXPECT_EQ(call(0), UBUS_STATUS_CONNECTION_FAILED);
    expect_one_loss();
}

TEST_F(unruly_bus, a_broken_frame_in_the_loop_is_a_loss_told_once)
{
    start(break_word);
    EXPECT_EQ(call(-1), UBUS_STATUS_TIMEOUT);
    expect_one_loss();
}

// Calls of an object that is not there: those that waited are told so afterwards, the others had no room.
TEST_F(unruly_bus, calls_that_find_no_room_to_wait_are_refused_at_once)
{
    constexpr size_t ROOM_BYTES = 8 << 20;
    constexpr size_t CALL_BYTES = 1000000;
    constexpr int CALLS = 20;
    std::promise<std::vector<int>> answers;
    start([&](t_connection &connection, const t_bytes &first) {
        std::vector<int> statuses;
        for (uint16_t i = 0; i < CALLS; i++) {
            connection.send(call_of(OBJECT_ID, i, t_bytes(CALL_BYTES, 'x')));
        }
        connection.send(frame(TYPE_STATUS, frame_seq(first), OBJECT_ID, attribute(1, word(0))));
        for (int i = 0; i < CALLS; i++) {
            statuses.push_back(receive_status(connection));
        }
        // There is room again.
        connection.send(call_of(OBJECT_ID, CALLS, t_bytes(CALL_BYTES, 'x')));
        statuses.push_back(receive_status(connection));
        answers.set_value(statuses);
    });
    EXPECT_EQ(call(0), 0);
    std::future<std::vector<int>> all = answers.get_future();
    auto begin = t_clock::now();
    while (all.wait_for(milliseconds(0)) != std::future_status::ready && t_clock::now() - begin < PATIENCE) {
        run_for(SHORT_MS);
    }
    ASSERT_EQ(all.wait_for(milliseconds(0)), std::future_status::ready);
    std::vector<int> expected(CALLS + 1, UBUS_STATUS_NOT_FOUND);
    std::fill_n(expected.begin(), CALLS - ROOM_BYTES / CALL_BYTES, UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(all.get(), expected);
}

} // namespace
