// SPDX-License-Identifier: MIT
// Frames made by hand, and what the daemon answers to them.
#pragma once

#include "bus_fixture.h"

constexpr uint8_t TYPE_HELLO = 0, TYPE_STATUS = 1, TYPE_DATA = 2, TYPE_PING = 3, TYPE_LOOKUP = 4, TYPE_INVOKE = 5,
                  TYPE_ADD_OBJECT = 6, TYPE_REMOVE_OBJECT = 7, TYPE_SUBSCRIBE = 8, TYPE_UNSUBSCRIBE = 9,
                  TYPE_NOTIFY = 10;
constexpr uint32_t STATUS_WORD = 0x01000008, OBJID_WORD = 0x03000008;
inline const t_bytes PING = from_hex("000300010000000000000004");
inline const t_bytes PONG = from_hex("000200010000000000000004");
inline const t_bytes PING_DONE = from_hex("00010001000000000000000c0100000800000000");

inline t_bytes word(uint32_t value)
{
    t_bytes bytes(4, '\0');
    set_word_at(bytes, 0, value);
    return bytes;
}

inline t_bytes frame(uint8_t type, uint16_t seq, uint32_t peer, const t_bytes &attributes)
{
    return frame_header(type, seq, peer, static_cast<uint32_t>(attributes.size()) + 4) + attributes;
}

inline t_bytes attribute(uint8_t id, const t_bytes &value)
{
    t_bytes bytes = word(static_cast<uint32_t>(id) << 24 | static_cast<uint32_t>(value.size() + 4)) + value;
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

inline t_bytes text(uint8_t id, const std::string &value)
{
    return attribute(id, value + '\0');
}

// The status of the answer to come, which may follow DATA; -1 if there is none.
inline int receive_status(t_connection &connection)
{
    for (;;) {
        std::optional<t_bytes> answer = connection.receive();
        if (!answer) {
            return -1;
        }
        if (frame_type(*answer) == TYPE_STATUS) {
            EXPECT_EQ(word_at(*answer, 12), STATUS_WORD);
            return static_cast<int>(word_at(*answer, 16));
        }
    }
}

inline void expect_pong(t_connection &connection)
{
    EXPECT_EQ(to_hex(connection.receive().value_or("")), to_hex(PONG));
    EXPECT_EQ(to_hex(connection.receive().value_or("")), to_hex(PING_DONE));
}

// Publishes an object with an empty signature and returns its id.
inline uint32_t add_object(t_connection &connection, const std::string &path)
{
    connection.send(frame(TYPE_ADD_OBJECT, 1, 0, text(2, path) + attribute(6, "")));
    std::optional<t_bytes> ids = connection.receive();
    EXPECT_TRUE(ids && frame_type(*ids) == TYPE_DATA && word_at(*ids, 12) == OBJID_WORD);
    EXPECT_EQ(receive_status(connection), 0);
    return ids ? word_at(*ids, 16) : 0;
}

inline t_bytes call_of(uint32_t object, uint16_t seq, const t_bytes &data = "")
{
    return frame(TYPE_INVOKE, seq, object, attribute(3, word(object)) + text(4, "m") + attribute(7, data));
}
