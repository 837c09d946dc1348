// SPDX-License-Identifier: MIT
// Records of the bus daemon: clients, their objects, the types of these, and who listens to which events.
#pragma once

#include "../message.h"

#include <sys/types.h>

namespace ubusd {

// Ids are random, and unique among the records of one table.
struct id_node {
    avl_node avl;
    uint32_t id;
};

struct client {
    id_node id;
    uloop_fd sock;
    bool can_send;
    bool is_root;
    char *user;        // owned
    char *group;       // owned
    list_head objects; // its objects, through object.siblings

    // The frame that is being received. `body` is owned and null until its length is known.
    struct {
        ubus_msghdr head;
        uint32_t word_be;
    } start;
    size_t received;
    blob_attr *body;

    list_head queue; // frames the socket had no room for, owned
    size_t queued_bytes;

    size_t subscription_count; // of all its objects
};

// What the methods of an object look like; shared by the objects that were published with it.
struct object_type {
    id_node id;
    unsigned int object_count;
    blob_attr *signature; // owned
};

struct object {
    id_node id;
    avl_node by_path;
    char *path;        // owned; null for an anonymous object
    object_type *type; // shared; null if the object has no methods to show
    client *owner;     // borrowed, outlives the object
    list_head siblings;
    list_head patterns;    // owned, through pattern.of_object
    uint64_t last_event;   // number of the event it was last sent
    list_head targets;     // owned, what it is subscribed to, through subscription.of_subscriber
    list_head subscribers; // owned, who is subscribed to it, through subscription.of_target
    uint16_t notice_count; // what its owner was told about its subscriptions
};

struct subscription {
    list_head of_subscriber;
    list_head of_target;
    object *subscriber; // borrowed, ends the subscription before it goes
    object *target;     // borrowed, likewise
};

// Returned by a request handler that leaves the answer to someone else.
constexpr int NO_ANSWER = -1;

struct request {
    client *from;
    ubus_frame::header head;
    blob_attr *body;
    ubus_frame::attributes attributes;
};

// ids.cpp
// 0, or -1 if there is no source of random numbers.
int open_random_source();
void initialise_table(avl_tree &table);
// Gives the node an unused id and records it. False if random numbers fail.
bool assign_id(avl_tree &table, id_node &node);
void release_id(avl_tree &table, id_node &node);
id_node *find_id(avl_tree &table, uint32_t id);

// client.cpp
void initialise_clients();
client *find_client(uint32_t id);
// Greets the client of a new connection and serves it from now on. Closes fd if it cannot.
void add_client(int fd);

// transmit.cpp
// Never blocks: what the socket does not take is queued, and a frame the queue has no room for is dropped.
void send_frame(client &to, const ubus_frame::header &head, const blob_attr *body);
void flush_queue(client &to);
void drop_queue(client &to);

// requests.cpp
void handle_request(const request &req);
// Sends a call, or a notification that wants no answer when it is silent, to the owner of an object. False if the names
// of the sender make it too long.
bool forward(const request &req, object &to, bool is_silent);

// objects.cpp
void initialise_objects();
object *find_object(uint32_t id);
int add_object(const request &req);
int remove_object(const request &req);
int look_up(const request &req);
void remove_objects_of(client &owner);

// access.cpp
// Reads the lists of a folder in place of those that were read before.
void read_access_lists(const char *folder);
// What root may do always, and others if a list says so. An object without a name (null) is on no list.
bool may_call(const client &who, const char *path, const char *method);
bool may_publish(const client &who, const char *path);
bool may_subscribe(const client &who, const char *path);
bool may_listen(const client &who, const char *pattern);
bool may_send(const client &who, const char *event);

// subscriptions.cpp
int subscribe(const request &req);
int unsubscribe(const request &req);
int notify(const request &req);
// Ends what the object is subscribed to and what others are subscribed to in it, and tells them.
void end_subscriptions(object &obj);

// events.cpp
// A call of the daemon's event object. A status code.
int call_event_object(const request &req, const char *method);
// Tells those who listen; `event` is "ubus.object.add" or "ubus.object.remove".
void announce(const object &obj, const char *event);
void forget_patterns(object &obj);

} // namespace ubusd
