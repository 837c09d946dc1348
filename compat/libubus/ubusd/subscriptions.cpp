// SPDX-License-Identifier: MIT
// Subscriptions: whose object hears the notifications of whose, and who is told that it begins and ends.
#include "bus.h"

#include <cstdlib>

namespace ubusd {
namespace {

using ubus_frame::message;

// A pair of objects has one record however often it is asked for, and a client no more of them than this.
constexpr size_t MOST_SUBSCRIPTIONS_OF_CLIENT = 1024;

object *object_of(const request &req, ubus_msg_attr id)
{
    return find_object(blob_get_u32(req.attributes[id]));
}

void tell_owner(object &target, bool has_subscribers)
{
    message news;
    news.add(UBUS_ATTR_OBJID, target.id.id).add_flag(UBUS_ATTR_ACTIVE, has_subscribers);
    ubus_frame::header head = {.type = UBUS_MSG_NOTIFY, .seq = ++target.notice_count, .peer = 0};
    send_frame(*target.owner, head, news.bytes());
}

void tell_subscriber(object &subscriber, const object &target)
{
    message news;
    news.add(UBUS_ATTR_OBJID, subscriber.id.id).add(UBUS_ATTR_TARGET, target.id.id);
    ubus_frame::header head = {.type = UBUS_MSG_UNSUBSCRIBE, .seq = ++subscriber.notice_count, .peer = 0};
    send_frame(*subscriber.owner, head, news.bytes());
}

subscription *find_subscription(const object &subscriber, const object &target)
{
    subscription *known;
    list_for_each_entry(known, &subscriber.targets, of_subscriber)
    {
        if (known->target == &target) {
            return known;
        }
    }
    return nullptr;
}

int add_subscription(object &subscriber, object &target)
{
    if (find_subscription(subscriber, target)) {
        return UBUS_STATUS_OK;
    }
    bool has_room = subscriber.owner->subscription_count < MOST_SUBSCRIPTIONS_OF_CLIENT;
    auto *added = has_room ? static_cast<subscription *>(calloc(1, sizeof(subscription))) : nullptr;
    if (!added) {
        return UBUS_STATUS_NO_MEMORY;
    }
    bool is_first = list_empty(&target.subscribers);
    added->subscriber = &subscriber;
    added->target = &target;
    list_add_tail(&added->of_subscriber, &subscriber.targets);
    list_add_tail(&added->of_target, &target.subscribers);
    subscriber.owner->subscription_count++;
    if (is_first) {
        tell_owner(target, true);
    }
    return UBUS_STATUS_OK;
}

void end_subscription(subscription *ended)
{
    object &target = *ended->target;
    ended->subscriber->owner->subscription_count--;
    list_del(&ended->of_subscriber);
    list_del(&ended->of_target);
    free(ended);
    if (list_empty(&target.subscribers)) {
        tell_owner(target, false);
    }
}

// The subscriber that the client names, if it is one of its own; otherwise null and why not.
object *own_subscriber(const request &req, int &status)
{
    status = UBUS_STATUS_OK;
    if (!req.attributes[UBUS_ATTR_OBJID] || !req.attributes[UBUS_ATTR_TARGET]) {
        status = UBUS_STATUS_INVALID_ARGUMENT;
        return nullptr;
    }
    object *subscriber = object_of(req, UBUS_ATTR_OBJID);
    if (!subscriber) {
        status = UBUS_STATUS_NOT_FOUND;
    } else if (subscriber->owner != req.from) {
        status = UBUS_STATUS_INVALID_ARGUMENT;
    }
    return status == UBUS_STATUS_OK ? subscriber : nullptr;
}

// Those who are to answer are named before their answers come.
int name_subscribers(const request &req, const object &target)
{
    message answer;
    answer.add(UBUS_ATTR_OBJID, target.id.id);
    blob_buf *ids = answer.open(UBUS_ATTR_SUBSCRIBERS);
    bool is_complete = ids != nullptr;
    const subscription *each;
    list_for_each_entry(each, &target.subscribers, of_target)
    {
        is_complete = is_complete && blob_put_u32(ids, 0, each->subscriber->id.id);
    }
    answer.finish(is_complete).add(UBUS_ATTR_STATUS, uint32_t{UBUS_STATUS_OK});
    if (!answer.bytes()) {
        return UBUS_STATUS_NO_MEMORY;
    }
    ubus_frame::header head = {.type = UBUS_MSG_STATUS, .seq = req.head.seq, .peer = req.head.peer};
    send_frame(*req.from, head, answer.bytes());
    return NO_ANSWER;
}

} // namespace

int subscribe(const request &req)
{
    int status;
    object *subscriber = own_subscriber(req, status);
    if (!subscriber) {
        return status;
    }
    object *target = object_of(req, UBUS_ATTR_TARGET);
    if (!target) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (target->owner == req.from) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!may_subscribe(*req.from, target->path)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return add_subscription(*subscriber, *target);
}

int unsubscribe(const request &req)
{
    int status;
    object *subscriber = own_subscriber(req, status);
    if (!subscriber) {
        return status;
    }
    object *target = object_of(req, UBUS_ATTR_TARGET);
    subscription *known = target ? find_subscription(*subscriber, *target) : nullptr;
    if (!known) {
        return UBUS_STATUS_NOT_FOUND;
    }
    end_subscription(known);
    return UBUS_STATUS_OK;
}

int notify(const request &req)
{
    if (!req.attributes[UBUS_ATTR_OBJID]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    object *target = object_of(req, UBUS_ATTR_OBJID);
    if (!target) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (target->owner != req.from) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    if (!req.attributes[UBUS_ATTR_METHOD]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const blob_attr *no_reply = req.attributes[UBUS_ATTR_NO_REPLY];
    bool is_silent = no_reply && blob_get_u8(no_reply) != 0;
    const subscription *each;
    list_for_each_entry(each, &target->subscribers, of_target)
    {
        if (!forward(req, *each->subscriber, is_silent)) {
            return UBUS_STATUS_INVALID_ARGUMENT;
        }
    }
    return is_silent ? NO_ANSWER : name_subscribers(req, *target);
}

void end_subscriptions(object &obj)
{
    while (!list_empty(&obj.subscribers)) {
        subscription *ended = list_first_entry(&obj.subscribers, subscription, of_target);
        tell_subscriber(*ended->subscriber, obj);
        end_subscription(ended);
    }
    while (!list_empty(&obj.targets)) {
        end_subscription(list_first_entry(&obj.targets, subscription, of_subscriber));
    }
}

} // namespace ubusd
