// SPDX-License-Identifier: MIT
// A bus daemon that sends and reads nothing any more: what the library answers by itself keeps nobody.
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <future>
#include <thread>

#include <endian.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "model/banned.h"
#include "platform/bus_limit.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds LIMIT{BUS_WRITE_LIMIT_MS};
constexpr milliseconds TOO_LONG = 3 * LIMIT;
constexpr uint32_t CALLER = 0x12345678;

// A frame of the bus that calls `method` of an object; events arrive as such calls, too.
std::string frame_of_call(uint32_t object, const char *method, const std::string &json)
{
    t_message fields(json);
    blob_buf attributes = {};
    blob_buf_init(&attributes, 0);
    blob_put_u32(&attributes, UBUS_ATTR_OBJID, object);
    blob_put_string(&attributes, UBUS_ATTR_METHOD, method);
    blob_put(&attributes, UBUS_ATTR_DATA, blob_data(fields.buffer.head),
             static_cast<unsigned>(blob_len(fields.buffer.head)));
    ubus_msghdr head = {};
    head.type = UBUS_MSG_INVOKE;
    head.seq = htobe16(7);
    head.peer = htobe32(CALLER);
    std::string frame(reinterpret_cast<const char *>(&head), sizeof head);
    frame.append(reinterpret_cast<const char *>(attributes.head), blob_raw_len(attributes.head));
    blob_buf_free(&attributes);
    return frame;
}

// The daemon's connection after its set-up on a real bus, led to the test instead.
class deaf_bus : public t_adapter_test {
protected:
    deaf_bus() : eth0(add_port("eth0", 0))
    {
        uloop_handle_sigchld = false;
        uloop_init();
        offer = wan_detect_bus_exports();
        EXPECT_EQ(wan_detect_ubus_init(offer), 0);
        ubus_context *context = wan_detect_ubus_context();
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
        uloop_fd_delete(&context->sock);
        dup3(ends[0], context->sock.fd, O_CLOEXEC);
        close(ends[0]);
        end_ = ends[1];
        ubus_add_uloop(context);
    }
    ~deaf_bus() override
    {
        close(end_);
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
    }

    static bool is_connected() { return wan_detect_ubus_context() != nullptr; }
    // Leaves no room in the connection; how many bytes were written.
    static size_t fill()
    {
        const int fd = wan_detect_ubus_context()->sock.fd;
        const char bytes[512] = {};
        size_t written = 0;
        for (ssize_t sent; (sent = send(fd, bytes, sizeof bytes, MSG_DONTWAIT | MSG_NOSIGNAL)) > 0;)
            written += static_cast<size_t>(sent);
        EXPECT_EQ(errno, EAGAIN);
        start_ = clock_type::now();
        return written;
    }
    void send_frame(const std::string &frame)
    {
        ASSERT_EQ(send(end_, frame.data(), frame.size(), MSG_NOSIGNAL), static_cast<ssize_t>(frame.size()));
    }
    // That the connection is given up about when the limit is over; if not, the other end goes in the end.
    void expect_hang_up_in_time() const
    {
        std::promise<void> over;
        std::thread watchdog([this, gone = over.get_future()] {
            if (gone.wait_for(TOO_LONG) == std::future_status::timeout)
                shutdown(end_, SHUT_RDWR);
        });
        EXPECT_TRUE(loop_until([] { return !is_connected(); }));
        EXPECT_GE(clock_type::now() - start_, LIMIT - milliseconds(20));
        EXPECT_LT(clock_type::now() - start_, TOO_LONG);
        over.set_value();
        watchdog.join();
    }
    void send_event() { send_frame(frame_of_call(offer->event_handler->obj.id, offer->event_pattern, BAN)); }
    std::string read_all() const
    {
        std::string all(1 << 20, '\0');
        const ssize_t got = recv(end_, all.data(), all.size(), MSG_DONTWAIT);
        all.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return all;
    }
    bool is_banned() { return is_banned_device(&port_model.banned_list, eth0); }

    static constexpr const char *BAN = R"({"name":"eth0","time":100})";
    static inline clock_type::time_point start_;
    t_bus_daemon bus{BUS_SOCKET_PATH};
    t_device *eth0;
    const t_bus_exports *offer;
    t_log_capture log;
    int end_;
};

} // namespace

// holds: bus-deaf
TEST_F(deaf_bus, is_given_up_after_an_event)
{
    send_event();
    fill();
    expect_hang_up_in_time();
    EXPECT_TRUE(is_banned());
    EXPECT_TRUE(log.has("Notice", "connection_lost", "ubus connection lost"));
}

// holds: bus-deaf
TEST_F(deaf_bus, is_given_up_after_a_call_of_an_unknown_method)
{
    send_frame(frame_of_call(offer->object->id, "nothing", "{}"));
    fill();
    expect_hang_up_in_time();
}

// holds: bus-deaf
TEST_F(deaf_bus, is_given_up_after_an_event_that_waited_for_a_call_of_ours)
{
    constexpr int CALL_MS = 50;
    send_event();
    ubus_invoke(wan_detect_ubus_context(), UBUS_SYSTEM_OBJECT_EVENT, "ping", nullptr, nullptr, nullptr, CALL_MS);
    EXPECT_FALSE(is_banned());
    fill();
    expect_hang_up_in_time();
    EXPECT_TRUE(is_banned());
}

// holds: bus-slow
TEST_F(deaf_bus, that_reads_again_in_time_gets_every_byte)
{
    send_frame(frame_of_call(offer->object->id, "nothing", "{}"));
    const size_t before = fill();
    std::string got;
    std::thread reader([this, &got, before] { // the loop is inside the library meanwhile
        std::this_thread::sleep_for(LIMIT * 6 / 10);
        const auto end = clock_type::now() + TOO_LONG;
        while (got.size() < before + sizeof(ubus_msghdr_buf) && clock_type::now() < end)
            got += read_all();
    });
    EXPECT_FALSE(loop_until([] { return !is_connected(); }, static_cast<int>(TOO_LONG.count())));
    reader.join();
    ASSERT_GT(got.size(), before + sizeof(ubus_msghdr));
    ubus_msghdr head;
    memcpy(&head, &got[before], sizeof head);
    EXPECT_EQ(head.type, UBUS_MSG_STATUS);
    EXPECT_EQ(head.peer, htobe32(CALLER));
    const auto *blob = reinterpret_cast<const blob_attr *>(&got[before + sizeof head]);
    EXPECT_EQ(got.size(), before + sizeof head + blob_raw_len(blob));
}

// holds: bus-slow
TEST_F(deaf_bus, does_not_shorten_what_our_own_methods_do)
{
    static int interrupted;
    interrupted = -1;
    engine_handlers.start_wan_detect_all = [](int) {
        const timespec work = {0, 4L * BUS_WRITE_LOOK_MS * 1'000'000};
        interrupted = nanosleep(&work, nullptr);
    };
    send_frame(frame_of_call(offer->object->id, "wan_detect", "{}"));
    fill();
    EXPECT_TRUE(loop_until([] { return !is_connected(); }));
    EXPECT_EQ(interrupted, 0);
}

// holds: bus-slow
TEST_F(deaf_bus, is_given_up_by_the_write_limit_only_when_nothing_is_taken_for_its_whole_time)
{
    const ubus_context *context = wan_detect_ubus_context();
    const auto wait = [](milliseconds time) {
        for (const auto end = clock_type::now() + time; clock_type::now() < end;)
            ;
    };
    t_bus_write_limit limit(context);
    ASSERT_TRUE(limit.is_set());
    wait(LIMIT * 12 / 10);
    EXPECT_FALSE(limit.reached()) << "there was room all the time";
    fill();
    wait(LIMIT / 2);
    read_all();
    wait(LIMIT / 4);
    fill();
    wait(LIMIT / 2);
    EXPECT_FALSE(limit.reached()) << "there was room in between";
    {
        t_bus_write_pause pause;
        wait(LIMIT);
        EXPECT_FALSE(limit.reached()) << "it stood still";
    }
    wait(LIMIT / 2);
    EXPECT_FALSE(limit.reached()) << "it has all its time after a pause";
    wait(LIMIT);
    EXPECT_TRUE(limit.reached());
    read_all();
    char byte;
    EXPECT_EQ(recv(end_, &byte, sizeof byte, MSG_DONTWAIT), 0) << "the connection is open";
}
