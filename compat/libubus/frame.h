// SPDX-License-Identifier: MIT
// The frame both ends of the bus speak: an eight-byte header and a blob of attributes.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)
#include <libubus.h>
#pragma GCC visibility pop

namespace ubus_frame {

constexpr size_t HEADER_BYTES = 8;
constexpr size_t BLOB_WORD_BYTES = 4;
constexpr size_t SMALLEST_FRAME_BYTES = HEADER_BYTES + BLOB_WORD_BYTES;
constexpr size_t LARGEST_BLOB_BYTES = 1048576;
constexpr uint8_t VERSION = 0;

constexpr char DEFAULT_SOCKET_DIRECTORY[] = "/var/run/ubus";
constexpr char DEFAULT_SOCKET[] = "/var/run/ubus/ubus.sock";

// All fields in host order.
struct header {
    uint8_t version = VERSION;
    uint8_t type = UBUS_MSG_HELLO;
    uint16_t seq = 0;
    uint32_t peer = 0;
};

struct attributes {
    blob_attr *at[UBUS_ATTR_MAX] = {};

    blob_attr *operator[](ubus_msg_attr id) const { return at[id]; }
};

ubus_msghdr encode(const header &head);
header decode(const ubus_msghdr &wire);

// Whether a frame may announce this blob length, the blob's own word included.
inline bool is_valid_blob_length(size_t length)
{
    return length >= BLOB_WORD_BYTES && length <= LARGEST_BLOB_BYTES;
}

// The last attribute of each id counts; those of the wrong type or size are as good as absent.
attributes parse(blob_attr *message);

} // namespace ubus_frame
