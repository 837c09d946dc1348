// SPDX-License-Identifier: MIT
// Clients that do what the recorded ones did and report it in the same words.
#include "library_clients.h"

#include <cstdlib>
#include <deque>
#include <stdexcept>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

// Handlers get no pointer of ours; one service of each kind runs at a time.
t_library_client *current;
blob_buf reply;

template <typename... T> void say(T... parts)
{
    std::string line;
    ((line += parts), ...);
    current->report.push_back(line);
}

std::string number(long long value)
{
    return std::to_string(value);
}

// The daemon names the caller, but it may be a bad one.
std::string text_of(const char *text)
{
    return text ? text : "(none)";
}

void answer(ubus_context *ctx, ubus_request_data *req)
{
    ubus_send_reply(ctx, req, reply.head);
}

// demo

enum { ECHO_ID, ECHO_MSG, ECHO_COUNT };
const blobmsg_policy ECHO_POLICY[] = {{"id", BLOBMSG_TYPE_INT32}, {"msg", BLOBMSG_TYPE_STRING}};

int demo_echo(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg)
{
    blob_attr *fields[ECHO_COUNT];
    blobmsg_parse(ECHO_POLICY, ECHO_COUNT, fields, blob_data(msg), static_cast<unsigned int>(blob_len(msg)));
    if (!fields[ECHO_MSG]) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    say("svc echo ", to_json(msg), " peer=client seq=", number(req->seq), " user=", text_of(req->acl.user),
        " group=", text_of(req->acl.group));
    blob_buf_init(&reply, 0);
    blobmsg_add_string(&reply, "msg", blobmsg_get_string(fields[ECHO_MSG]));
    if (fields[ECHO_ID]) {
        blobmsg_add_u32(&reply, "id", blobmsg_get_u32(fields[ECHO_ID]));
    }
    answer(ctx, req);
    return 0;
}

int demo_status(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg)
{
    say("svc status ", to_json(msg));
    blob_buf_init(&reply, 0);
    blobmsg_add_u8(&reply, "running", 1);
    blobmsg_add_u32(&reply, "count", 42);
    blobmsg_add_string(&reply, "state", "idle");
    void *ports = blobmsg_open_array(&reply, "ports");
    blobmsg_add_string(&reply, nullptr, "eth0");
    blobmsg_add_string(&reply, nullptr, "eth1");
    blobmsg_close_array(&reply, ports);
    void *nested = blobmsg_open_table(&reply, "nested");
    blobmsg_add_u64(&reply, "big", 1099511627776);
    blobmsg_add_double(&reply, "ratio", 0.5);
    blobmsg_close_table(&reply, nested);
    answer(ctx, req);
    return 0;
}

const ubus_method DEMO_METHODS[] = {UBUS_METHOD("echo", demo_echo, ECHO_POLICY),
                                    UBUS_METHOD_NOARG("status", demo_status)};
ubus_object_type demo_type = UBUS_OBJECT_TYPE("demo", DEMO_METHODS);
ubus_object demo, demo2, duplicate, anonymous;

void prepare(ubus_object &obj, const char *name, ubus_object_type *type)
{
    obj = {};
    obj.name = name;
    obj.type = type;
    obj.methods = type ? type->methods : nullptr;
    obj.n_methods = type ? type->n_methods : 0;
}

// x

struct t_deferred_call {
    uloop_timeout timer = {};
    ubus_request_data call = {};
};

std::deque<t_deferred_call> deferred_calls;

void send_deferred(uloop_timeout *timer)
{
    ubus_request_data *call = &container_of(timer, t_deferred_call, timer)->call;
    blob_buf_init(&reply, 0);
    blobmsg_add_string(&reply, "late", "yes");
    int result = ubus_send_reply(current->ctx(), call, reply.head);
    ubus_complete_deferred_request(current->ctx(), call, 0);
    say("svc deferred reply ret=", number(result));
}

void reply_part(ubus_context *ctx, ubus_request_data *req, uint32_t part)
{
    blob_buf_init(&reply, 0);
    blobmsg_add_u32(&reply, "part", part);
    answer(ctx, req);
}

int x_call(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method, blob_attr *)
{
    std::string name = method;
    if (name == "fail") {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    if (name == "neg") {
        return -5;
    }
    if (name == "code77") {
        return 77;
    }
    if (name == "two") {
        reply_part(ctx, req, 1);
        reply_part(ctx, req, 2);
    }
    if (name == "hang") {
        say("svc hang");
        ubus_request_data forgotten;
        ubus_defer_request(ctx, req, &forgotten);
    }
    if (name == "die") {
        say("svc die");
        current->free_context();
    }
    if (name == "defer") {
        t_deferred_call &deferred = deferred_calls.emplace_back();
        ubus_defer_request(ctx, req, &deferred.call);
        deferred.timer.cb = send_deferred;
        uloop_timeout_set(&deferred.timer, DEFER_MS);
    }
    return 0;
}

const ubus_method X_METHODS[] = {
    UBUS_METHOD_NOARG("empty", x_call),  UBUS_METHOD_NOARG("fail", x_call),  UBUS_METHOD_NOARG("neg", x_call),
    UBUS_METHOD_NOARG("code77", x_call), UBUS_METHOD_NOARG("two", x_call),   UBUS_METHOD_NOARG("hang", x_call),
    UBUS_METHOD_NOARG("die", x_call),    UBUS_METHOD_NOARG("defer", x_call), UBUS_METHOD_NOARG("fd", x_call)};
ubus_object_type x_type = UBUS_OBJECT_TYPE("x", X_METHODS);
ubus_object x;

// types

const blobmsg_policy ALL_TYPES[] = {{"unspec", BLOBMSG_TYPE_UNSPEC}, {"array", BLOBMSG_TYPE_ARRAY},
                                    {"table", BLOBMSG_TYPE_TABLE},   {"string", BLOBMSG_TYPE_STRING},
                                    {"int64", BLOBMSG_TYPE_INT64},   {"int32", BLOBMSG_TYPE_INT32},
                                    {"int16", BLOBMSG_TYPE_INT16},   {"bool", BLOBMSG_TYPE_BOOL},
                                    {"double", BLOBMSG_TYPE_DOUBLE}, {"cast", BLOBMSG_CAST_INT64}};
const ubus_method TYPES_METHODS[] = {UBUS_METHOD("alltypes", x_call, ALL_TYPES),
                                     UBUS_METHOD_MASK("masked", x_call, ALL_TYPES, 1UL << 3 | 1UL << 5)};
ubus_object_type types_type = UBUS_OBJECT_TYPE("types", TYPES_METHODS);
ubus_object_type none_type = {.name = "none", .id = 0, .methods = nullptr, .n_methods = 0};
ubus_object types, none;

// listener

ubus_event_handler listener;

void hear(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    say("event ", type, " ", to_json(msg));
}

void end_loop(ubus_context *)
{
    uloop_end();
}

// publisher and subscriber

int news_left;

void report_subscribers(ubus_context *, ubus_object *obj)
{
    say("svc subscribe_cb has_subscribers=", number(obj->has_subscribers));
    if (--news_left == 0) {
        uloop_end();
    }
}

int notify(ubus_context *ctx, const char *type, uint32_t n, int timeout_ms)
{
    blob_buf_init(&reply, 0);
    blobmsg_add_u32(&reply, "n", n);
    return ubus_notify(ctx, &demo, type, reply.head, timeout_ms);
}

ubus_subscriber subscriber;

int report_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *type, blob_attr *msg)
{
    say("sub notify ", type, " ", to_json(msg));
    return 0;
}

void report_removal(ubus_context *, ubus_subscriber *, uint32_t)
{
    say("sub remove_cb");
    uloop_end();
}

void report_data(ubus_request *, int type, blob_attr *msg)
{
    say("data type=", number(type), " ", to_json(msg));
}

void report_completion(ubus_request *req, int status)
{
    say("complete ret=", number(status));
    say("list empty=", number(list_empty(&req->list)));
    uloop_end();
}

} // namespace

// The tests wait for their children themselves. It has to be said before the first connection.
[[maybe_unused]] static const bool leaves_children_alone = !(uloop_handle_sigchld = false);

t_library_client::t_library_client(const std::string &socket) : ctx_(ubus_connect(socket.c_str()))
{
    current = this;
    if (!ctx_) {
        throw std::runtime_error("no bus at " + socket);
    }
    ctx_->connection_lost = end_loop;
}

t_library_client::~t_library_client()
{
    free_context();
    uloop_done();
    unpublish_all();
    deferred_calls.clear();
    blob_buf_free(&reply);
}

void t_library_client::run()
{
    ubus_add_uloop(ctx_);
    uloop_run();
}

void t_library_client::free_context()
{
    ubus_free(ctx_);
    ctx_ = nullptr;
    uloop_end();
}

std::string to_json(blob_attr *message)
{
    char *text = blobmsg_format_json(message, true);
    std::string json = text ? text : "(no text)";
    free(text);
    return json;
}

// Their ids belong to a bus that is gone.
void unpublish_all()
{
    demo_type.id = x_type.id = types_type.id = none_type.id = 0;
}

void publish_demo(t_library_client &client)
{
    prepare(demo, "demo", &demo_type);
    say("add=", number(ubus_add_object(client.ctx(), &demo)));
}

void publish_x(t_library_client &client)
{
    prepare(x, "x", &x_type);
    say("add=", number(ubus_add_object(client.ctx(), &x)));
}

void publish_types(t_library_client &client)
{
    prepare(types, "types", &types_type);
    prepare(none, "none", &none_type);
    say("add=", number(ubus_add_object(client.ctx(), &types)));
    say("add none=", number(ubus_add_object(client.ctx(), &none)));
}

void register_patterns(t_library_client &client, const std::vector<std::string> &patterns)
{
    listener = {};
    listener.cb = hear;
    bool is_first = true;
    for (const std::string &pattern : patterns) {
        int result = ubus_register_event_handler(client.ctx(), &listener, pattern.c_str());
        say("register", is_first ? "" : " " + pattern, "=", number(result));
        is_first = false;
    }
}

void register_pattern_again(t_library_client &client, const std::string &pattern)
{
    say("register again=", number(ubus_register_event_handler(client.ctx(), &listener, pattern.c_str())));
}

void call_objects(t_library_client &client)
{
    ubus_context *ctx = client.ctx();
    prepare(demo, "demo", &demo_type);
    prepare(demo2, "demo2", &demo_type);
    prepare(duplicate, "demo", &demo_type);
    prepare(anonymous, nullptr, nullptr);
    int result = ubus_add_object(ctx, &demo);
    say("add demo=", number(result), " id_nonzero=", number(demo.id != 0),
        " type_id_nonzero=", number(demo_type.id != 0));
    say("add demo2 (same type)=", number(ubus_add_object(ctx, &demo2)));
    result = ubus_add_object(ctx, &duplicate);
    say("add duplicate name=", number(result), " id=", number(duplicate.id));
    result = ubus_add_object(ctx, &anonymous);
    say("add anonymous (no name/type)=", number(result), " id_nonzero=", number(anonymous.id != 0));
    result = ubus_remove_object(ctx, &demo2);
    say("remove demo2=", number(result), " id=", number(demo2.id), " type_id_nonzero=", number(demo_type.id != 0));
    result = ubus_remove_object(ctx, &demo);
    say("remove demo=", number(result), " id=", number(demo.id), " type_id=", number(demo_type.id));
    say("remove demo again=", number(ubus_remove_object(ctx, &demo)));
}

void call_register_errors(t_library_client &client)
{
    ubus_context *ctx = client.ctx();
    listener = {};
    listener.cb = hear;
    blob_buf_init(&reply, 0);
    say("register \"\"=", number(ubus_register_event_handler(ctx, &listener, "")));
    say("register NULL=", number(ubus_register_event_handler(ctx, &listener, nullptr)));
    say("register a=", number(ubus_register_event_handler(ctx, &listener, "a")));
    say("register a again=", number(ubus_register_event_handler(ctx, &listener, "a")));
    say("register *=", number(ubus_register_event_handler(ctx, &listener, "*")));
    say("send ubus.x=", number(ubus_send_event(ctx, "ubus.x", reply.head)));
    say("send own a=", number(ubus_send_event(ctx, "a", nullptr)));
}

void call_method(t_library_client &client, const std::string &object, const std::string &method, int timeout_ms,
                 uint32_t id_if_missing)
{
    uint32_t id = id_if_missing;
    say("lookup=", number(ubus_lookup_id(client.ctx(), object.c_str(), &id)));
    blob_buf_init(&reply, 0);
    int result = ubus_invoke(client.ctx(), id, method.c_str(), reply.head, report_data, nullptr, timeout_ms);
    say("invoke=", number(result), " (", ubus_strerror(result), ")");
}

void call_without_message(t_library_client &client)
{
    uint32_t id = 0;
    ubus_lookup_id(client.ctx(), "demo", &id);
    int result = ubus_invoke(client.ctx(), id, "status", nullptr, report_data, nullptr, 0);
    say("invoke(msg NULL)=", number(result));
}

void call_asynchronously(t_library_client &client)
{
    uint32_t id = 0;
    ubus_lookup_id(client.ctx(), "x", &id);
    blob_buf_init(&reply, 0);
    ubus_request req;
    say("async=", number(ubus_invoke_async(client.ctx(), id, "defer", reply.head, &req)));
    req.data_cb = report_data;
    req.complete_cb = report_completion;
    ubus_complete_request_async(client.ctx(), &req);
    client.run();
}

void notify_and_leave(t_library_client &client)
{
    prepare(demo, "demo", &demo_type);
    demo.subscribe_cb = report_subscribers;
    news_left = 3;
    say("add=", number(ubus_add_object(client.ctx(), &demo)));
    client.run();
    say("notify(timeout -1)=", number(notify(client.ctx(), "ev1", 1, -1)));
    say("notify(timeout 500)=", number(notify(client.ctx(), "ev2", 2, 500)));
    say("remove=", number(ubus_remove_object(client.ctx(), &demo)));
}

void subscribe_and_hear(t_library_client &client)
{
    constexpr uint32_t BOGUS = 0x7fffffff;
    ubus_context *ctx = client.ctx();
    subscriber = {};
    subscriber.cb = report_notification;
    subscriber.remove_cb = report_removal;
    say("register_subscriber=", number(ubus_register_subscriber(ctx, &subscriber)));
    uint32_t id = 0;
    say("lookup=", number(ubus_lookup_id(ctx, "demo", &id)));
    say("subscribe=", number(ubus_subscribe(ctx, &subscriber, id)));
    say("unsubscribe=", number(ubus_unsubscribe(ctx, &subscriber, id)));
    say("unsubscribe again=", number(ubus_unsubscribe(ctx, &subscriber, id)));
    say("subscribe=", number(ubus_subscribe(ctx, &subscriber, id)));
    say("subscribe bogus id=", number(ubus_subscribe(ctx, &subscriber, BOGUS)));
    client.run();
}
