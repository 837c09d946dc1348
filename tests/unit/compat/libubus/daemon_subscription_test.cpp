// SPDX-License-Identifier: MIT
// The daemon between objects and those who are subscribed to them: statuses, who is told what, and the death of either.
#include "frames.h"
#include "tests/unit/support/own_place.h"

namespace {

constexpr uid_t NOBODY = 65534;
constexpr uint32_t BOGUS = 0x7fffffff;
constexpr uint32_t LARGEST_BLOB = 1048576;
constexpr uint8_t OBJID = 3, METHOD = 4, DATA = 7, TARGET = 8, ACTIVE = 9, NO_REPLY = 10, SUBSCRIBERS = 11;

t_bytes subscription(uint32_t subscriber, uint32_t target)
{
    return attribute(OBJID, word(subscriber)) + attribute(TARGET, word(target));
}

t_bytes byte(uint8_t id, char value)
{
    return attribute(id, t_bytes(1, value));
}

int ask(t_connection &connection, uint8_t type, const t_bytes &attributes)
{
    connection.send(frame(type, 5, 0, attributes));
    return receive_status(connection);
}

void expect_frame(t_connection &connection, const t_bytes &expected)
{
    EXPECT_EQ(to_hex(connection.receive().value_or("")), to_hex(expected));
}

void expect_nothing_more(t_connection &connection)
{
    connection.send(PING);
    expect_pong(connection);
}

// Two clients with an object each: "target" belongs to the first.
class subscriptions : public t_bus_test {
protected:
    void SetUp() override
    {
        t_bus_test::SetUp();
        publisher_.emplace(connect());
        listener_.emplace(connect());
        target_ = add_object(*publisher_, "target");
        subscriber_ = add_object(*listener_, "subscriber");
    }

    void subscribe()
    {
        EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(subscriber_, target_)), 0);
        expect_told(1, true);
    }

    // The publisher's count of such news goes up by one each.
    void expect_told(uint16_t count, bool is_active)
    {
        expect_frame(*publisher_,
                     frame(TYPE_NOTIFY, count, 0, attribute(OBJID, word(target_)) + byte(ACTIVE, is_active ? 1 : 0)));
    }

    t_bytes notification(const t_bytes &more = "")
    {
        return frame(TYPE_NOTIFY, 6, target_, attribute(OBJID, word(target_)) + text(METHOD, "ev") + more);
    }

    // What answers a notification that these subscribers are to answer.
    t_bytes names(const t_bytes &ids)
    {
        return frame(TYPE_STATUS, 6, target_,
                     attribute(OBJID, word(target_)) + attribute(SUBSCRIBERS, ids) + attribute(1, word(0)));
    }

    std::optional<t_connection> publisher_, listener_;
    uint32_t target_ = 0, subscriber_ = 0;
};

// Statuses

enum t_object { NONE, MINE, ALSO_MINE, THEIRS, UNKNOWN, TOO_SHORT };

struct t_request_case {
    const char *name;
    t_object subscriber;
    t_object target;
    int subscribe_status;
    int unsubscribe_status;
};

class subscription_requests : public subscriptions, public testing::WithParamInterface<t_request_case> {
protected:
    t_bytes value(t_object which)
    {
        if (which == TOO_SHORT) {
            return "xx";
        }
        return word(which == MINE ? subscriber_ : which == ALSO_MINE ? also_mine_ : which == THEIRS ? target_ : BOGUS);
    }

    t_bytes attributes()
    {
        const t_request_case &which = GetParam();
        t_bytes result;
        result += which.subscriber == NONE ? "" : attribute(OBJID, value(which.subscriber));
        result += which.target == NONE ? "" : attribute(TARGET, value(which.target));
        return result;
    }

    uint32_t also_mine_ = 0;
};

TEST_P(subscription_requests, have_their_status)
{
    also_mine_ = add_object(*listener_, "also");
    EXPECT_EQ(ask(*listener_, TYPE_UNSUBSCRIBE, attributes()), GetParam().unsubscribe_status) << "before";
    EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, attributes()), GetParam().subscribe_status);
    bool is_subscribed = GetParam().subscribe_status == 0;
    EXPECT_EQ(ask(*listener_, TYPE_UNSUBSCRIBE, attributes()), is_subscribed ? 0 : GetParam().unsubscribe_status);
}

INSTANTIATE_TEST_SUITE_P(
    ids, subscription_requests,
    testing::Values(t_request_case{"good", MINE, THEIRS, 0, 4}, t_request_case{"nothing", NONE, NONE, 2, 2},
                    t_request_case{"no_target", MINE, NONE, 2, 2}, t_request_case{"no_subscriber", NONE, THEIRS, 2, 2},
                    t_request_case{"short_target", MINE, TOO_SHORT, 2, 2},
                    t_request_case{"short_subscriber", TOO_SHORT, THEIRS, 2, 2},
                    t_request_case{"unknown_target", MINE, UNKNOWN, 4, 4},
                    t_request_case{"unknown_subscriber", UNKNOWN, THEIRS, 4, 4},
                    t_request_case{"own_target", MINE, ALSO_MINE, 2, 4}, t_request_case{"itself", MINE, MINE, 2, 4},
                    t_request_case{"foreign_subscriber", THEIRS, MINE, 2, 2}),
    [](const auto &which) { return which.param.name; });

TEST_F(subscriptions, others_than_root_have_none)
{
    NEEDS_OTHER_USERS();
    t_connection nobody = connect(NOBODY);
    nobody.send(frame(TYPE_ADD_OBJECT, 1, 0, ""));
    std::optional<t_bytes> ids = nobody.receive();
    ASSERT_TRUE(ids);
    EXPECT_EQ(receive_status(nobody), 0);
    EXPECT_EQ(ask(nobody, TYPE_SUBSCRIBE, subscription(word_at(*ids, 16), target_)), 6);
    expect_nothing_more(*publisher_);
}

TEST_F(subscriptions, notifications_have_their_status)
{
    t_bytes object = attribute(OBJID, word(target_)), method = text(METHOD, "ev");
    EXPECT_EQ(ask(*publisher_, TYPE_NOTIFY, method), 2);
    EXPECT_EQ(ask(*publisher_, TYPE_NOTIFY, attribute(OBJID, "xx") + method), 2);
    EXPECT_EQ(ask(*publisher_, TYPE_NOTIFY, object), 2);
    EXPECT_EQ(ask(*publisher_, TYPE_NOTIFY, attribute(OBJID, word(BOGUS)) + method), 4);
    EXPECT_EQ(ask(*listener_, TYPE_NOTIFY, object + method), 6);
    EXPECT_EQ(ask(*listener_, TYPE_NOTIFY, object + method + byte(NO_REPLY, 1)), 6);
}

// Who is told

TEST_F(subscriptions, the_owner_is_told_of_the_first_and_the_last)
{
    subscribe();
    t_connection another = connect();
    uint32_t also_subscribed = add_object(another, "another");
    EXPECT_EQ(ask(another, TYPE_SUBSCRIBE, subscription(also_subscribed, target_)), 0);
    EXPECT_EQ(ask(*listener_, TYPE_UNSUBSCRIBE, subscription(subscriber_, target_)), 0);
    expect_nothing_more(*publisher_);
    EXPECT_EQ(ask(another, TYPE_UNSUBSCRIBE, subscription(also_subscribed, target_)), 0);
    expect_told(2, false);
    expect_nothing_more(another);
}

TEST_F(subscriptions, asking_twice_makes_one)
{
    subscribe();
    EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(subscriber_, target_)), 0);
    publisher_->send(notification());
    expect_frame(*publisher_, names(attribute(0, word(subscriber_))));
    EXPECT_EQ(ask(*listener_, TYPE_UNSUBSCRIBE, subscription(subscriber_, target_)), 0);
    expect_told(2, false);
}

TEST_F(subscriptions, a_notification_nobody_hears_is_answered_at_once)
{
    publisher_->send(notification(attribute(DATA, "")));
    expect_frame(*publisher_, names(""));
    publisher_->send(notification(attribute(DATA, "") + byte(NO_REPLY, 1)));
    expect_nothing_more(*publisher_);
}

TEST_F(subscriptions, everybody_hears_a_notification_and_is_named)
{
    subscribe();
    uint32_t second = add_object(*listener_, "second");
    EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(second, target_)), 0);
    publisher_->send(notification(byte(NO_REPLY, 0)));
    expect_frame(*publisher_, names(attribute(0, word(subscriber_)) + attribute(0, word(second))));
    for (uint32_t expected : {subscriber_, second}) {
        std::optional<t_bytes> call = listener_->receive();
        ASSERT_TRUE(call);
        EXPECT_EQ(frame_type(*call), TYPE_INVOKE);
        EXPECT_EQ(frame_seq(*call), 6);
        EXPECT_EQ(to_hex(call->substr(12, 8)), to_hex(attribute(OBJID, word(expected))));
    }
    expect_nothing_more(*listener_);
}

TEST_F(subscriptions, a_notification_that_grows_too_long_is_refused_and_the_subscriber_stays)
{
    subscribe();
    size_t rest = LARGEST_BLOB - 4 - 8 - 8 - 4; // OBJID, METHOD, word of DATA
    publisher_->send(notification(attribute(DATA, t_bytes(rest, 'd'))));
    EXPECT_EQ(receive_status(*publisher_), 2);
    expect_nothing_more(*listener_);
}

TEST_F(subscriptions, a_subscriber_that_does_not_read_holds_nobody_up)
{
    subscribe();
    constexpr int NOTIFICATIONS = 40;
    for (int i = 0; i < NOTIFICATIONS; i++) {
        publisher_->send(notification(attribute(DATA, t_bytes(100000, 'x')) + byte(NO_REPLY, 1)));
    }
    expect_nothing_more(*publisher_);
    listener_->send(PING);
    int heard = 0;
    while (std::optional<t_bytes> frame = listener_->receive()) {
        if (frame_type(*frame) == TYPE_DATA) {
            break;
        }
        heard += frame_type(*frame) == TYPE_INVOKE;
    }
    EXPECT_GE(heard, 10); // a megabyte is queued in any case
    EXPECT_LT(heard, NOTIFICATIONS);
}

// Death of either

TEST_F(subscriptions, a_subscriber_is_told_when_the_target_goes)
{
    subscribe();
    EXPECT_EQ(ask(*publisher_, TYPE_REMOVE_OBJECT, attribute(OBJID, word(target_))), 0);
    expect_frame(*listener_, frame(TYPE_UNSUBSCRIBE, 1, 0, subscription(subscriber_, target_)));
    EXPECT_EQ(ask(*listener_, TYPE_UNSUBSCRIBE, subscription(subscriber_, target_)), 4);
}

TEST_F(subscriptions, a_subscriber_is_told_when_the_owner_dies)
{
    subscribe();
    publisher_->close();
    expect_frame(*listener_, frame(TYPE_UNSUBSCRIBE, 1, 0, subscription(subscriber_, target_)));
    publisher_.emplace(connect());
    target_ = add_object(*publisher_, "target");
    subscribe();
}

TEST_F(subscriptions, the_owner_is_told_when_the_subscriber_goes)
{
    subscribe();
    EXPECT_EQ(ask(*listener_, TYPE_REMOVE_OBJECT, attribute(OBJID, word(subscriber_))), 0);
    expect_told(2, false);
    publisher_->send(notification());
    expect_frame(*publisher_, names(""));
    expect_nothing_more(*listener_);
}

TEST_F(subscriptions, the_owner_is_told_when_the_subscriber_dies)
{
    subscribe();
    listener_->close();
    expect_told(2, false);
    publisher_->send(notification());
    expect_frame(*publisher_, names(""));
}

TEST_F(subscriptions, of_each_other_end_with_both)
{
    subscribe();
    EXPECT_EQ(ask(*publisher_, TYPE_SUBSCRIBE, subscription(target_, subscriber_)), 0);
    publisher_->close();
    listener_->close();
    expect_alive();
}

// An answer that never comes is left to the notifier's own patience, as that of a call is.
TEST_F(subscriptions, a_subscriber_that_died_answers_no_more)
{
    subscribe();
    publisher_->send(notification());
    expect_frame(*publisher_, names(attribute(0, word(subscriber_))));
    ASSERT_TRUE(listener_->receive());
    listener_->close();
    expect_told(2, false);
    expect_nothing_more(*publisher_);
}

// Without end

TEST_F(subscriptions, of_one_client_have_a_limit)
{
    constexpr int MOST = 1024;
    t_bytes many;
    for (int i = 0; i < MOST; i++) {
        many += frame(TYPE_ADD_OBJECT, 1, 0, "");
    }
    publisher_->send(many);
    std::vector<uint32_t> targets;
    for (int i = 0; i < MOST; i++) {
        std::optional<t_bytes> ids = publisher_->receive();
        ASSERT_TRUE(ids);
        targets.push_back(word_at(*ids, 16));
        ASSERT_EQ(receive_status(*publisher_), 0);
    }
    uint32_t second = add_object(*listener_, "second");
    for (int i = 0; i < MOST; i++) {
        uint32_t subscriber = i % 2 ? subscriber_ : second;
        ASSERT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(subscriber, targets[i])), 0) << i;
    }
    EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(subscriber_, target_)), 11);
    t_connection another = connect();
    EXPECT_EQ(ask(another, TYPE_SUBSCRIBE, subscription(add_object(another, "another"), target_)), 0);
    EXPECT_EQ(ask(*listener_, TYPE_REMOVE_OBJECT, attribute(OBJID, word(second))), 0);
    EXPECT_EQ(ask(*listener_, TYPE_SUBSCRIBE, subscription(subscriber_, target_)), 0);
}

} // namespace
