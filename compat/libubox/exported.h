// SPDX-License-Identifier: MIT
// The public headers as our own sources must see them: C linkage, and visible outside a shared object.
#pragma once

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
}
#pragma GCC visibility pop
