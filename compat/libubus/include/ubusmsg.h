/* SPDX-License-Identifier: MIT */
/* What travels between a bus client and the bus daemon: frame header, message types, attributes and status codes. */
#ifndef COMPAT_UBUSMSG_H
#define COMPAT_UBUSMSG_H

#include <stdint.h>

/* Granularity of a client's receive buffer, in bytes. */
#define UBUS_MSG_CHUNK_SIZE 65536

#define UBUS_SIGNATURE_METHOD 9 /* one past the last blobmsg type */
#define UBUS_SIGNATURE_END 10

#define UBUS_CLIENT_ID_CHANNEL 1

/* Objects of the daemon itself; ids it hands out are never below UBUS_SYSTEM_OBJECT_MAX. */
#define UBUS_SYSTEM_OBJECT_EVENT 1
#define UBUS_SYSTEM_OBJECT_ACL 2
#define UBUS_SYSTEM_OBJECT_MONITOR 3
#define UBUS_SYSTEM_OBJECT_MAX 1024

/* Every field is big-endian on the wire; a blob with the attributes follows. */
struct ubus_msghdr {
    uint8_t version;
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
} __attribute__((packed));

enum ubus_msg_type {
    UBUS_MSG_HELLO = 0,
    UBUS_MSG_STATUS = 1,
    UBUS_MSG_DATA = 2,
    UBUS_MSG_PING = 3,
    UBUS_MSG_LOOKUP = 4,
    UBUS_MSG_INVOKE = 5,
    UBUS_MSG_ADD_OBJECT = 6,
    UBUS_MSG_REMOVE_OBJECT = 7,
    UBUS_MSG_SUBSCRIBE = 8,
    UBUS_MSG_UNSUBSCRIBE = 9,
    UBUS_MSG_NOTIFY = 10,
    UBUS_MSG_MONITOR = 11,
};

enum ubus_msg_attr {
    UBUS_ATTR_UNSPEC = 0,
    UBUS_ATTR_STATUS = 1,
    UBUS_ATTR_OBJPATH = 2,
    UBUS_ATTR_OBJID = 3,
    UBUS_ATTR_METHOD = 4,
    UBUS_ATTR_OBJTYPE = 5,
    UBUS_ATTR_SIGNATURE = 6,
    UBUS_ATTR_DATA = 7,
    UBUS_ATTR_TARGET = 8,
    UBUS_ATTR_ACTIVE = 9,
    UBUS_ATTR_NO_REPLY = 10,
    UBUS_ATTR_SUBSCRIBERS = 11,
    UBUS_ATTR_USER = 12,
    UBUS_ATTR_GROUP = 13,
    UBUS_ATTR_MAX = 14,
};

enum ubus_msg_status {
    UBUS_STATUS_OK = 0,
    UBUS_STATUS_INVALID_COMMAND = 1,
    UBUS_STATUS_INVALID_ARGUMENT = 2,
    UBUS_STATUS_METHOD_NOT_FOUND = 3,
    UBUS_STATUS_NOT_FOUND = 4,
    UBUS_STATUS_NO_DATA = 5,
    UBUS_STATUS_PERMISSION_DENIED = 6,
    UBUS_STATUS_TIMEOUT = 7,
    UBUS_STATUS_NOT_SUPPORTED = 8,
    UBUS_STATUS_UNKNOWN_ERROR = 9,
    UBUS_STATUS_CONNECTION_FAILED = 10,
    UBUS_STATUS_NO_MEMORY = 11,
    UBUS_STATUS_PARSE_ERROR = 12,
    UBUS_STATUS_SYSTEM_ERROR = 13,
};

#endif
