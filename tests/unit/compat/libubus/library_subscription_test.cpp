// SPDX-License-Identifier: MIT
// Publishers and subscribers of the library: on the real daemon, at the loss of the bus, and against a daemon that is
// mad.
#include "frames.h"
#include "library_fixture.h"

namespace {

constexpr int LONG_MS = 5000;

// What the callbacks saw; they get no pointer of ours.
struct t_seen {
    std::vector<std::string> heard;
    std::vector<uint32_t> removed;
    std::vector<bool> states;
} seen;

int hear(ubus_context *, ubus_object *, ubus_request_data *, const char *type, blob_attr *msg)
{
    seen.heard.push_back(type + to_json(msg));
    return 0;
}

void see_removal(ubus_context *, ubus_subscriber *, uint32_t id)
{
    seen.removed.push_back(id);
}

void see_state(ubus_context *, ubus_object *obj)
{
    seen.states.push_back(obj->has_subscribers);
}

ubus_object publisher_object(const char *name, ubus_object_type *type)
{
    ubus_object object = {};
    object.name = name;
    object.type = type;
    object.subscribe_cb = see_state;
    return object;
}

ubus_subscriber subscriber_of_all()
{
    ubus_subscriber subscriber = {};
    subscriber.cb = hear;
    subscriber.remove_cb = see_removal;
    return subscriber;
}

class library_subscriptions : public library_test {
protected:
    void SetUp() override
    {
        library_test::SetUp();
        seen = {};
        object_ = publisher_object("pub", &type_);
        subscriber_ = subscriber_of_all();
        ASSERT_EQ(ubus_add_object(ctx(), &object_), 0);
        ubus_add_uloop(ctx());
    }

    // Answers calls of the bus until a condition holds, with no time limit but that of the test.
    template <typename t_condition> void run_until(t_condition holds)
    {
        const auto deadline = t_clock::now() + PATIENCE;
        while (!holds() && t_clock::now() < deadline) {
            run_for(2); // a time below two milliseconds may be over before the loop has looked at anything
        }
        EXPECT_TRUE(holds());
    }

    ubus_object_type type_ = {.name = "pub", .id = 0, .methods = nullptr, .n_methods = 0};
    ubus_object object_;
    ubus_subscriber subscriber_;
};

TEST_F(library_subscriptions, a_notification_may_wait_until_it_is_heard)
{
    t_process subscriber("ubus", {"-s", socket_, "subscribe", "pub"});
    run_until([&] { return object_.has_subscribers; });
    blob_buf message = {};
    blob_buf_init(&message, 0);
    blobmsg_add_u32(&message, "n", 7);
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", message.head, LONG_MS), 0);
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, 0), 0);
    blob_buf_free(&message);
    subscriber.signal(SIGTERM);
    EXPECT_EQ(subscriber.wait(), 0);
    EXPECT_EQ(subscriber.output(), "{ \"ev\": {\"n\":7} }\n{ \"ev\": {} }\n");
    run_until([&] { return !object_.has_subscribers; });
    EXPECT_EQ(seen.states, (std::vector<bool>{true, false}));
}

TEST_F(library_subscriptions, a_subscriber_that_does_not_answer_is_waited_for_no_longer_than_wanted)
{
    t_process silent("ubus", {"-s", socket_, "subscribe", "pub"});
    run_until([&] { return object_.has_subscribers; });
    silent.signal(SIGSTOP);
    auto start = t_clock::now();
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, SHORT_MS), UBUS_STATUS_TIMEOUT);
    EXPECT_GE(elapsed_ms(start), SHORT_MS);
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), 0);
    silent.signal(SIGKILL);
    run_until([&] { return !object_.has_subscribers; });
}

TEST_F(library_subscriptions, without_subscribers_a_notification_ends_at_once)
{
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, 0), 0);
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), 0);
    ubus_object unknown = {};
    unknown.id = 0x7fffffff;
    EXPECT_EQ(ubus_notify(ctx(), &unknown, "ev", nullptr, 0), UBUS_STATUS_NOT_FOUND);
}

TEST_F(library_subscriptions, of_ones_own_objects_are_refused)
{
    ASSERT_EQ(ubus_register_subscriber(ctx(), &subscriber_), 0);
    EXPECT_EQ(ubus_subscribe(ctx(), &subscriber_, object_.id), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unsubscribe(ctx(), &subscriber_, object_.id), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_register_subscriber(ctx(), &subscriber_), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unregister_subscriber(ctx(), &subscriber_), 0);
    EXPECT_EQ(subscriber_.obj.id, 0U);
    EXPECT_EQ(ubus_subscribe(ctx(), &subscriber_, object_.id), UBUS_STATUS_NOT_FOUND);
}

// The subscriber has a connection of its own in the same loop.
class two_connections : public library_subscriptions {
protected:
    void SetUp() override
    {
        library_subscriptions::SetUp();
        listener_ = ubus_connect(socket_.c_str());
        ASSERT_NE(listener_, nullptr);
        listener_->connection_lost = [](ubus_context *) {};
        ubus_add_uloop(listener_);
        ASSERT_EQ(ubus_register_subscriber(listener_, &subscriber_), 0);
        ASSERT_EQ(ubus_subscribe(listener_, &subscriber_, object_.id), 0);
        run_until([&] { return object_.has_subscribers; });
    }

    void TearDown() override
    {
        ubus_free(listener_);
        library_subscriptions::TearDown();
    }

    ubus_context *listener_ = nullptr;
};

TEST_F(two_connections, the_subscriber_is_told_which_object_went)
{
    uint32_t id = object_.id;
    ASSERT_EQ(ubus_remove_object(ctx(), &object_), 0);
    run_until([&] { return !seen.removed.empty(); });
    EXPECT_EQ(seen.removed, (std::vector<uint32_t>{id}));
    EXPECT_EQ(seen.states, (std::vector<bool>{true})) << "news of an object that is removed are for nobody";
}

TEST_F(two_connections, without_callbacks_nothing_breaks)
{
    subscriber_.cb = nullptr;
    subscriber_.remove_cb = nullptr;
    object_.subscribe_cb = nullptr;
    ASSERT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), 0);
    ASSERT_EQ(ubus_unsubscribe(listener_, &subscriber_, object_.id), 0);
    run_until([&] { return !object_.has_subscribers; });
    ASSERT_EQ(ubus_subscribe(listener_, &subscriber_, object_.id), 0);
    ASSERT_EQ(ubus_remove_object(ctx(), &object_), 0);
    run_for(SHORT_MS);
    EXPECT_TRUE(seen.heard.empty());
}

TEST_F(two_connections, news_that_come_during_a_call_wait_for_its_end)
{
    ASSERT_EQ(ubus_unsubscribe(listener_, &subscriber_, object_.id), 0);
    EXPECT_EQ(call(0x7fffffff, "m"), UBUS_STATUS_NOT_FOUND); // answered after the news
    EXPECT_TRUE(object_.has_subscribers);
    run_until([&] { return !object_.has_subscribers; });
    EXPECT_EQ(seen.states, (std::vector<bool>{true, false}));
}

TEST_F(two_connections, a_subscriber_may_free_its_connection_when_an_object_goes)
{
    static ubus_context *freed;
    freed = listener_;
    subscriber_.remove_cb = [](ubus_context *own, ubus_subscriber *, uint32_t) {
        ubus_free(own);
        freed = nullptr;
    };
    ASSERT_EQ(ubus_remove_object(ctx(), &object_), 0);
    run_until([] { return !freed; });
    listener_ = nullptr;
}

TEST_F(two_connections, reconnecting_loses_subscriptions)
{
    ASSERT_EQ(ubus_reconnect(listener_, socket_.c_str()), 0);
    ubus_add_uloop(listener_);
    EXPECT_NE(subscriber_.obj.id, 0U);
    run_until([&] { return !object_.has_subscribers; });
    ASSERT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), 0);
    run_for(SHORT_MS);
    EXPECT_TRUE(seen.heard.empty());
    ASSERT_EQ(ubus_subscribe(listener_, &subscriber_, object_.id), 0);
    ASSERT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), 0);
    run_until([&] { return !seen.heard.empty(); });
}

TEST_F(two_connections, everything_fails_when_the_bus_is_gone)
{
    daemon_->kill();
    daemon_.reset();
    run_until([&] { return ctx()->sock.eof && listener_->sock.eof; });
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, 0), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(ctx(), &object_, "ev", nullptr, -1), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_subscribe(listener_, &subscriber_, object_.id), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unregister_subscriber(listener_, &subscriber_), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_TRUE(object_.has_subscribers) << "only the bus changes it";
}

// A daemon that answers as it likes

// The end of a subscription is told to subscribers only, for other objects have no room for its callback.
TEST(subscription_ends, of_other_objects_mean_nothing)
{
    seen = {};
    t_private_folder folder;
    std::string socket = folder.path("bus");
    t_conversation script = load_conversation("15_notify", "subscriber.1");
    script.steps.resize(4); // until its object has its id
    script.steps.push_back(
        {t_step::from_daemon,
         frame(TYPE_UNSUBSCRIBE, 1, 0, attribute(3, word(0xa0000005)) + attribute(8, word(0xa0000003)))});
    script.steps.push_back(
        {t_step::from_daemon, frame(TYPE_NOTIFY, 2, 0, attribute(3, word(0xa0000005)) + attribute(9, "\1"))});
    t_scripted_daemon daemon(socket);
    daemon.play_in_background({script});
    {
        t_library_client client(socket);
        ubus_subscriber unregistered = subscriber_of_all();
        unregistered.obj.subscribe_cb = see_state;
        ASSERT_EQ(ubus_add_object(client.ctx(), &unregistered.obj), 0);
        client.run();
        EXPECT_TRUE(seen.removed.empty());
        EXPECT_EQ(seen.states, (std::vector<bool>{true})) << "but what came after it is heard";
    }
    daemon.finish();
}

constexpr uint32_t OBJECT = 0xa0000005, SUBSCRIBER = 0xa0000007;

t_step from_daemon(const t_bytes &bytes)
{
    return {t_step::from_daemon, bytes};
}

t_bytes status_of(int status)
{
    return attribute(1, word(static_cast<uint32_t>(status)));
}

struct t_answer_case {
    const char *name;
    std::vector<t_bytes> answers;
    int status;
};

class notification_answers : public testing::TestWithParam<t_answer_case> {};

TEST_P(notification_answers, end_it_as_they_should)
{
    t_private_folder folder;
    std::string socket = folder.path("bus");
    t_conversation script = {.name = "answers", .steps = {from_daemon(from_hex("00000000a000000100000004"))}};
    script.steps.push_back({t_step::from_client, frame(TYPE_NOTIFY, 1, OBJECT,
                                                       attribute(3, word(OBJECT)) + text(4, "ev") + attribute(7, ""))});
    for (const t_bytes &answer : GetParam().answers) {
        script.steps.push_back(from_daemon(answer));
    }
    script.steps.push_back({t_step::client_closes, {}});
    t_scripted_daemon daemon(socket);
    daemon.play_in_background({script});
    {
        t_library_client client(socket);
        ubus_object object = {};
        object.id = OBJECT;
        EXPECT_EQ(ubus_notify(client.ctx(), &object, "ev", nullptr, SHORT_MS), GetParam().status);
    }
    daemon.finish();
}

t_bytes names(const t_bytes &ids)
{
    return frame(TYPE_STATUS, 1, OBJECT, attribute(3, word(OBJECT)) + attribute(11, ids) + status_of(0));
}

t_bytes answer_of(uint32_t subscriber, int status = 0)
{
    return frame(TYPE_STATUS, 1, subscriber, status_of(status) + attribute(3, word(subscriber)));
}

const t_bytes NAMES_ONE = names(attribute(0, word(SUBSCRIBER)));
const t_bytes NAMES_TWO = names(attribute(0, word(SUBSCRIBER)) + attribute(0, word(SUBSCRIBER + 1)));

INSTANTIATE_TEST_SUITE_P(
    of, notification_answers,
    testing::Values(t_answer_case{"one", {NAMES_ONE, answer_of(SUBSCRIBER)}, 0},
                    t_answer_case{"two", {NAMES_TWO, answer_of(SUBSCRIBER + 1, 9), answer_of(SUBSCRIBER)}, 0},
                    t_answer_case{"one_of_two", {NAMES_TWO, answer_of(SUBSCRIBER), answer_of(SUBSCRIBER)}, 7},
                    t_answer_case{"a_stranger", {NAMES_ONE, answer_of(SUBSCRIBER + 2)}, 7},
                    t_answer_case{"one_not_named_yet", {answer_of(SUBSCRIBER)}, 7},
                    t_answer_case{"data_only", {frame(TYPE_DATA, 1, OBJECT, attribute(7, ""))}, 7},
                    t_answer_case{"nobody", {names("")}, 0},
                    t_answer_case{"nobody_but_odd_bytes", {names(attribute(0, "x"))}, 0},
                    t_answer_case{"a_refusal", {frame(TYPE_STATUS, 1, OBJECT, status_of(6))}, 6},
                    t_answer_case{"no_names", {frame(TYPE_STATUS, 1, OBJECT, status_of(0))}, 2},
                    t_answer_case{"no_status", {frame(TYPE_STATUS, 1, OBJECT, attribute(11, ""))}, 2}),
    [](const auto &which) { return which.param.name; });

} // namespace
