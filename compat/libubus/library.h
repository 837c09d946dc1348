// SPDX-License-Identifier: MIT
// What the parts of the client library share. Everything here belongs to the thread that runs the loop.
#pragma once

#include "message.h"

namespace ubus_library {

using ubus_frame::message;

// Says whether what a callback works on is still there when it returns: user code may free the context or its request.
// Lives on the stack; guards of one context form a chain, innermost first.
class callback_guard {
public:
    callback_guard(ubus_context *ctx, const ubus_request *req = nullptr);
    ~callback_guard();
    callback_guard(const callback_guard &) = delete;
    callback_guard &operator=(const callback_guard &) = delete;

    bool context_is_gone() const { return context_ == nullptr; }
    bool request_is_gone() const { return context_is_gone() || request_gone_; }

    static void context_goes(ubus_context *ctx);
    static void request_goes(ubus_context *ctx, const ubus_request *req);

private:
    ubus_context *context_;
    const ubus_request *request_;
    callback_guard *outer_;
    bool request_gone_ = false;
};

// A frame taken out of the receive buffer, so that a callback may receive others. Owns the bytes.
struct received_frame {
    ubus_frame::header head;
    blob_attr *data = nullptr;
    uint32_t capacity = 0;
};

// So many frames are handled before timers, other descriptors and the end of a wait get their turn.
constexpr int FRAMES_PER_TURN = 32;

enum class receive_result { frame, nothing_yet, connection_lost };

// connection.cpp
// A connected socket, blocking and close-on-exec, or -1.
int open_socket(const char *path);
// Waits until everything is written. False when the connection is lost.
bool send_frame(ubus_context *ctx, const ubus_frame::header &head, const blob_attr *message);
// Never blocks. The caller gives the frame back with recycle_frame, or frees its data.
receive_result receive_frame(ubus_context *ctx, received_frame &frame);
void recycle_frame(ubus_context *ctx, received_frame &frame);
// Marks the connection as lost and hangs up, so that the loop, too, is done with the socket.
void give_up_connection(ubus_context *ctx);
void reset_receiver(ubus_context *ctx);

// context.cpp
// Handles what has arrived until nothing is left, until *enough is set, or until the context is freed. True if it
// stopped before, because others want their turn.
bool handle_arrivals(ubus_context *ctx, const bool *enough);

// pending.cpp
// False if there is no room.
bool put_off_call(ubus_context *ctx, const received_frame &frame);
// Serves what was put off; the callback of the timer that run_pending_soon sets.
void run_pending_calls(uloop_timeout *timer);
// To be called when a synchronous call is over.
void run_pending_soon(ubus_context *ctx);
void drop_pending_calls(ubus_context *ctx);

// request.cpp
// Sends the message as a request. 0 or a status code.
int start_request(ubus_context *ctx, ubus_request *req, const message &body, ubus_msg_type type, uint32_t peer);
// The same, and waits for the answer without a time limit.
int run_request(ubus_context *ctx, const message &body, ubus_msg_type type, uint32_t peer,
                ubus_data_handler_t raw_data_cb, void *priv);
void handle_answer(ubus_context *ctx, const received_frame &frame);
// Completes everything outstanding because the connection is lost.
void fail_requests(ubus_context *ctx);
void forget_requests(ubus_context *ctx);

// object.cpp
void initialise_objects(ubus_context *ctx);
// Puts an object on record under its id; id 0 stands for one the bus does not know at the moment.
void list_object(ubus_context *ctx, ubus_object *obj);
// Asks the bus for ids and puts the object on record. 0 or a status code.
int publish(ubus_context *ctx, ubus_object *obj);

// notification.cpp
// The bus tells whether an object of ours has subscribers.
void take_subscriber_state(ubus_context *ctx, ubus_object *obj, const ubus_frame::attributes &attributes);
// A status that belongs to a notification: who is to answer it, or the answer of one of them. True when that was all,
// and status is what became of the notification.
bool take_notification_answer(ubus_request *req, uint32_t peer, const ubus_frame::attributes &attributes, int &status);

// subscriber.cpp
// The bus tells that what an object of ours is subscribed to is gone.
void end_subscription(ubus_context *ctx, ubus_object *obj, const ubus_frame::attributes &attributes);

// serve.cpp
// A call of a method, an event, a notification, or news of a subscription.
void serve(ubus_context *ctx, const received_frame &frame);
// Answers a call with this status in place of its method; news of a subscription are dropped.
void refuse_call(ubus_context *ctx, const received_frame &frame, int status);

} // namespace ubus_library
