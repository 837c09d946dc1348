/* SPDX-License-Identifier: MIT */
/* Client library of the message bus: connection, objects, calls, events and notifications. No function is thread-safe:
 * contexts share work buffers, so all of them belong to the one thread that runs the event loop. */
#ifndef COMPAT_LIBUBUS_H
#define COMPAT_LIBUBUS_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>

#include "ubusmsg.h"

struct ubus_context;
struct ubus_object;
struct ubus_request;
struct ubus_request_data;
struct ubus_object_data;
struct ubus_event_handler;
struct ubus_subscriber;

/* A method's return value is the status its caller sees. */
typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                              const char *method, struct blob_attr *msg);
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);
typedef void (*ubus_remove_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *sub, uint32_t id);
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *type,
                                     struct blob_attr *msg);
typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj, void *priv);
/* msg is valid only until the callback returns. */
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);
typedef void (*ubus_fd_handler_t)(struct ubus_request *req, int fd);
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);
typedef void (*ubus_connect_handler_t)(struct ubus_context *ctx);
typedef bool (*ubus_new_object_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *sub, const char *path);
typedef void (*ubus_monitor_handler_t)(struct ubus_context *ctx, uint32_t seq, struct blob_attr *msg);

#define UBUS_METHOD_FIELDS(_name, _handler, _mask, _tags, _policy, _n_policy)                                       \
    {                                                                                                               \
        .name = _name, .handler = _handler, .mask = _mask, .tags = _tags, .policy = _policy, .n_policy = _n_policy, \
    }
#define UBUS_POLICY_COUNT(_policy) ((int)(sizeof(_policy) / sizeof((_policy)[0])))

#define UBUS_METHOD(_name, _handler, _policy) \
    UBUS_METHOD_FIELDS(_name, _handler, 0, 0, _policy, UBUS_POLICY_COUNT(_policy))
#define UBUS_METHOD_NOARG(_name, _handler) UBUS_METHOD_FIELDS(_name, _handler, 0, 0, NULL, 0)
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask) \
    UBUS_METHOD_FIELDS(_name, _handler, _mask, 0, _policy, UBUS_POLICY_COUNT(_policy))
#define UBUS_METHOD_TAG(_name, _handler, _policy, _tags) \
    UBUS_METHOD_FIELDS(_name, _handler, 0, _tags, _policy, UBUS_POLICY_COUNT(_policy))
#define UBUS_METHOD_TAG_NOARG(_name, _handler, _tags) UBUS_METHOD_FIELDS(_name, _handler, 0, _tags, NULL, 0)

#define UBUS_OBJECT_TYPE(_name, _methods)                                                      \
    {                                                                                          \
        .name = _name, .id = 0, .methods = _methods, .n_methods = UBUS_POLICY_COUNT(_methods), \
    }

struct ubus_method {
    const char *name; /* NULL answers every method */
    ubus_handler_t handler;
    unsigned long mask; /* which policy entries are published; 0 = all of them */
    unsigned long tags;
    const struct blobmsg_policy *policy;
    int n_policy;
};

struct ubus_object_type {
    const char *name;
    uint32_t id; /* set by the bus */
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_object {
    struct avl_node avl;
    const char *name;
    uint32_t id; /* set by the bus */
    const char *path;
    struct ubus_object_type *type;
    ubus_state_handler_t subscribe_cb; /* has_subscribers has changed */
    bool has_subscribers;              /* as the bus said last; losing the connection does not change it */
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_subscriber {
    struct list_head list;
    struct ubus_object obj;
    ubus_handler_t cb;                    /* a notification; what it returns is sent back if the notifier waits */
    ubus_remove_handler_t remove_cb;      /* the object with this id is gone, and the subscription with it */
    ubus_new_object_handler_t new_obj_cb; /* never called: this library does not look out for new objects */
};

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_msghdr_buf {
    struct ubus_msghdr hdr;
    struct blob_attr *data;
};

struct ubus_context {
    struct list_head requests;
    struct avl_tree objects;
    struct list_head pending;
    struct uloop_fd sock;
    struct uloop_timeout pending_timer;
    uint32_t local_id; /* big-endian, as it came over the wire */
    uint16_t request_seq;
    bool cancel_poll;
    int stack_depth;
    void (*connection_lost)(struct ubus_context *ctx);
    ubus_monitor_handler_t monitor_cb;
    struct ubus_msghdr_buf msgbuf;
    uint32_t msgbuf_data_len;
    int msgbuf_reduction_counter;
    union {
        struct {
            size_t received;       /* bytes of the frame that is being read */
            void *first_guard;     /* callbacks now running */
            size_t waiting;        /* bytes of the calls in pending */
            struct list_head lost; /* requests of a lost connection that are still to be completed */
        } state;
        uint64_t reserved[18];
    } internal;
};

struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature;
};

struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;
    struct ubus_acl_key acl;
    bool deferred;
    int fd;
    int req_fd;
};

struct ubus_request {
    struct list_head list;
    struct list_head pending;
    int status_code;
    bool status_msg;
    bool blocked;
    bool cancelled;
    bool notify;
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t raw_data_cb;
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;
    int fd;
    struct ubus_context *ctx;
    void *priv;
};

/* Connects to the bus at path, or at the default path when path is NULL, and waits for its greeting without a time
 * limit. Sets up the event loop as a side effect, but does not add the socket to it. NULL on failure. */
struct ubus_context *ubus_connect(const char *path);
/* The same for a context of the caller's own. 0, or -1 on failure. */
int ubus_connect_ctx(struct ubus_context *ctx, const char *path);
/* Connects again after a loss and publishes the objects of the context anew; event patterns must be registered and
 * objects subscribed to again, and the socket added to the loop. 0 or a status code. */
int ubus_reconnect(struct ubus_context *ctx, const char *path);
/* Both drop outstanding requests without completing them. ubus_free also releases the context itself. */
void ubus_free(struct ubus_context *ctx);
void ubus_shutdown(struct ubus_context *ctx);

/* The text of a status code; that of an unknown one lives until the next call. */
const char *ubus_strerror(int error);

static inline void ubus_add_uloop(struct ubus_context *ctx)
{
    uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

/* For users without the event loop: call it when the socket is readable. */
static inline void ubus_handle_event(struct ubus_context *ctx)
{
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

/* Publish and withdraw an object. 0 or a status code. The object must live until it is removed or the context freed;
 * after ubus_remove_object the context knows it no longer, whatever the result. */
int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);

/* Calls cb for every object that path (exact, a prefix with a final star, NULL for all) names. 0 or a status code. */
int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);
/* *id stays as it was on failure, and also when the object exists but may not be seen (return value 0). */
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);

/* Blocking call. timeout in ms: 0 waits for ever, a negative one does not wait at all. Meanwhile neither timers nor
 * other descriptors of the loop run, and calls that come in wait. 0 or a status code. Descriptors cannot be passed: fd
 * must be -1, otherwise UBUS_STATUS_NOT_SUPPORTED is returned. */
int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd);
static inline int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                              ubus_data_handler_t cb, void *priv, int timeout)
{
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

/* Sends the call only. Set the callbacks of req, then hand it to ubus_complete_request_async. */
int ubus_invoke_async_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                         struct ubus_request *req, int fd);
static inline int ubus_invoke_async(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                                    struct ubus_request *req)
{
    return ubus_invoke_async_fd(ctx, obj, method, msg, req, -1);
}

/* Wait for the answer of a request in the background (no time limit; a lost connection completes it with
 * UBUS_STATUS_TIMEOUT), or here (timeout in ms as in ubus_invoke), or not at all. */
void ubus_complete_request_async(struct ubus_context *ctx, struct ubus_request *req);
int ubus_complete_request(struct ubus_context *ctx, struct ubus_request *req, int timeout);
void ubus_abort_request(struct ubus_context *ctx, struct ubus_request *req);

/* Sends one DATA answer. 0, or UBUS_STATUS_NO_DATA if it cannot be sent; a caller that is gone is not an error. */
int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);
/* Take over the duty to answer: new_req lives as long as needed and ends with ubus_complete_deferred_request. It does
 * not carry the caller's user and group, which belong to the message. */
void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req, struct ubus_request_data *new_req);
void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req, int ret);

/* pattern: an event name, or a prefix with a final star. 0 or a status code. */
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern);
int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev);
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);

/* The subscriber gets an object of its own, through which it is notified; unregistering ends its subscriptions. */
int ubus_register_subscriber(struct ubus_context *ctx, struct ubus_subscriber *sub);
int ubus_unregister_subscriber(struct ubus_context *ctx, struct ubus_subscriber *sub);
/* id: an object of another client. 0 or a status code. */
int ubus_subscribe(struct ubus_context *ctx, struct ubus_subscriber *sub, uint32_t id);
int ubus_unsubscribe(struct ubus_context *ctx, struct ubus_subscriber *sub, uint32_t id);
/* Tells all subscribers of an object. timeout in ms: a negative one expects no answers and returns at once, 0 waits for
 * those of all subscribers for ever. 0 or a status code; what the subscribers answer does not count. */
int ubus_notify(struct ubus_context *ctx, struct ubus_object *obj, const char *type, struct blob_attr *msg,
                int timeout);

#ifdef __cplusplus
}
#endif

#endif
