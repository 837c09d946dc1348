// SPDX-License-Identifier: MIT
// The daemon and bytes that mean nothing.
#include "frames.h"

#include <random>

namespace {

class garbage : public t_bus_test {
protected:
    std::mt19937 random_{4711};

    uint32_t below(uint32_t limit) { return random_() % limit; }

    t_bytes bytes(size_t length)
    {
        t_bytes result(length, '\0');
        for (char &byte : result) {
            byte = static_cast<char>(random_());
        }
        return result;
    }

    // Attributes that are right more often than not.
    t_bytes attributes()
    {
        t_bytes result;
        for (uint32_t count = below(6); count > 0; count--) {
            t_bytes value = below(2) ? bytes(below(24)) : word(below(3) ? id_ : random_());
            t_bytes one = below(3) ? attribute(static_cast<uint8_t>(below(20)), value) : text(below(2) ? 2 : 4, name());
            if (below(8) == 0) {
                one[below(static_cast<uint32_t>(one.size()))] ^= static_cast<char>(1 << below(8));
            }
            result += one;
        }
        return result;
    }

    std::string name()
    {
        static const char *const NAMES[] = {"o", "*", "", "register", "send", "o*", "ubus.x"};
        return NAMES[below(7)];
    }

    uint32_t id_ = 1;
};

TEST_F(garbage, random_bytes_do_not_harm_the_bus)
{
    for (int i = 0; i < 500; i++) {
        t_connection connection(socket_);
        ASSERT_TRUE(connection.is_open());
        connection.send(bytes(1 + below(200)));
    }
    expect_alive();
}

TEST_F(garbage, random_frames_do_not_harm_the_bus_nor_a_bystander)
{
    t_connection bystander = connect();
    uint32_t object = add_object(bystander, "bystander");
    for (int round = 0; round < 60; round++) {
        t_connection connection(socket_);
        id_ = frame_peer(connection.receive().value());
        id_ = below(2) ? add_object(connection, "o") : 1;
        t_bytes frames;
        for (int i = 0; i < 60; i++) {
            frames += frame(static_cast<uint8_t>(below(14)), static_cast<uint16_t>(i), below(2) ? id_ : random_(),
                            attributes());
        }
        connection.send(frames + frame_header(TYPE_PING, 0, 0, 100) + bytes(50));
    }
    expect_alive();
    t_connection caller = connect();
    caller.send(call_of(object, 3));
    std::optional<t_bytes> call = bystander.receive();
    ASSERT_TRUE(call);
    EXPECT_EQ(frame_type(*call), TYPE_INVOKE);
}

} // namespace
