// SPDX-License-Identifier: MIT
// Programs are compiled against these records and may be linked with either implementation: their layout is fixed.
#include "exported.h"

#define MEMBER_AT(type, member, offset) static_assert(offsetof(struct type, member) == (offset))

MEMBER_AT(list_head, next, 0);
static_assert(sizeof(struct blob_attr) == 4 && sizeof(struct blobmsg_hdr) == 2);
MEMBER_AT(blob_attr, data, 4);
MEMBER_AT(blobmsg_hdr, name, 2);
static_assert(BLOBMSG_TYPE_LAST == 8 && BLOBMSG_CAST_INT64 == 9 && BLOB_ATTR_LAST == 9);
static_assert(ULOOP_EVENT_MASK == 3 && ULOOP_BLOCKING == 8 && ULOOP_EVENT_BUFFERED == 16 && ULOOP_ERROR_CB == 64);

#ifdef __LP64__
static_assert(sizeof(struct list_head) == 16);
MEMBER_AT(list_head, prev, 8);

static_assert(sizeof(struct uloop_fd) == 16);
MEMBER_AT(uloop_fd, cb, 0);
MEMBER_AT(uloop_fd, fd, 8);
MEMBER_AT(uloop_fd, eof, 12);
MEMBER_AT(uloop_fd, error, 13);
MEMBER_AT(uloop_fd, registered, 14);
MEMBER_AT(uloop_fd, flags, 15);

static_assert(sizeof(struct uloop_timeout) == 48);
MEMBER_AT(uloop_timeout, list, 0);
MEMBER_AT(uloop_timeout, pending, 16);
MEMBER_AT(uloop_timeout, cb, 24);
MEMBER_AT(uloop_timeout, time, 32);

static_assert(sizeof(struct uloop_process) == 40);
MEMBER_AT(uloop_process, list, 0);
MEMBER_AT(uloop_process, pending, 16);
MEMBER_AT(uloop_process, cb, 24);
MEMBER_AT(uloop_process, pid, 32);

static_assert(sizeof(struct uloop_signal) == 192);
MEMBER_AT(uloop_signal, list, 0);
MEMBER_AT(uloop_signal, orig, 16);
MEMBER_AT(uloop_signal, pending, 168);
MEMBER_AT(uloop_signal, cb, 176);
MEMBER_AT(uloop_signal, signo, 184);

static_assert(sizeof(struct uloop_interval) == 32);
MEMBER_AT(uloop_interval, cb, 0);
MEMBER_AT(uloop_interval, expirations, 8);
MEMBER_AT(uloop_interval, priv, 16);

static_assert(sizeof(struct blob_buf) == 32);
MEMBER_AT(blob_buf, head, 0);
MEMBER_AT(blob_buf, grow, 8);
MEMBER_AT(blob_buf, buflen, 16);
MEMBER_AT(blob_buf, buf, 24);

static_assert(sizeof(struct blobmsg_policy) == 16);
MEMBER_AT(blobmsg_policy, name, 0);
MEMBER_AT(blobmsg_policy, type, 8);

static_assert(sizeof(struct avl_node) == 56);
MEMBER_AT(avl_node, list, 0);
MEMBER_AT(avl_node, parent, 16);
MEMBER_AT(avl_node, left, 24);
MEMBER_AT(avl_node, right, 32);
MEMBER_AT(avl_node, key, 40);
MEMBER_AT(avl_node, balance, 48);
MEMBER_AT(avl_node, leader, 49);

static_assert(sizeof(struct avl_tree) == 48);
MEMBER_AT(avl_tree, list_head, 0);
MEMBER_AT(avl_tree, root, 16);
MEMBER_AT(avl_tree, count, 24);
MEMBER_AT(avl_tree, allow_dups, 28);
MEMBER_AT(avl_tree, comp, 32);
MEMBER_AT(avl_tree, cmp_ptr, 40);
#endif
