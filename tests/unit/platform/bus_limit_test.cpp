// SPDX-License-Identifier: MIT
// What the bus library waits for without a limit, from a bus daemon that hangs.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "platform/bus_limit.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int LIMIT_MS = 100;
constexpr milliseconds TOO_LONG{5000};
constexpr unsigned char GREETING[] = {0, 0, 0, 0, 0, 0, 0x12, 0x34, 0, 0, 0, 4};

// Takes every connection at the bus's address, greets or does not, and never says anything more.
class t_hanging_bus {
public:
    explicit t_hanging_bus(bool greets) : greets_(greets), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::string(BUS_SOCKET_PATH).copy(address.sun_path, sizeof address.sun_path - 1);
        std::filesystem::remove(BUS_SOCKET_PATH);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, SOMAXCONN), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~t_hanging_bus()
    {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
        for (int fd : connections_)
            close(fd);
        std::filesystem::remove(BUS_SOCKET_PATH);
    }
    t_hanging_bus(const t_hanging_bus &) = delete;
    t_hanging_bus &operator=(const t_hanging_bus &) = delete;

    std::atomic<int> greeted = 0;

private:
    void serve()
    {
        for (int fd; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            connections_.push_back(fd);
            if (greets_ && send(fd, GREETING, sizeof GREETING, MSG_NOSIGNAL) == sizeof GREETING)
                greeted++;
        }
    }

    bool greets_;
    int listener_;
    std::vector<int> connections_;
    std::thread thread_;
};

class bus_limit : public t_adapter_test {
protected:
    bus_limit()
    {
        uloop_handle_sigchld = false;
        uloop_init();
    }
    ~bus_limit() override
    {
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
    }

    milliseconds passed() const { return std::chrono::duration_cast<milliseconds>(clock_type::now() - start_); }

    clock_type::time_point start_ = clock_type::now();
    t_log_capture log;
};

} // namespace

TEST_F(bus_limit, ends_a_connect_without_a_greeting)
{
    t_hanging_bus bus(false);
    t_bus_limit limit(nullptr, LIMIT_MS);
    ASSERT_TRUE(limit.is_set());
    EXPECT_EQ(ubus_connect(BUS_SOCKET_PATH), nullptr);
    EXPECT_TRUE(limit.reached());
    EXPECT_GE(passed(), milliseconds(LIMIT_MS));
    EXPECT_LT(passed(), TOO_LONG);
}

TEST_F(bus_limit, ends_a_request_that_nobody_answers)
{
    t_hanging_bus bus(true);
    ubus_context *context = ubus_connect(BUS_SOCKET_PATH);
    ASSERT_NE(context, nullptr);
    {
        t_bus_limit limit(context, LIMIT_MS);
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(context, "network.interface", &id), UBUS_STATUS_CONNECTION_FAILED);
        EXPECT_TRUE(limit.reached());
    }
    EXPECT_LT(passed(), TOO_LONG);
    ubus_free(context);
}

TEST_F(bus_limit, ends_a_write_that_nobody_reads)
{
    constexpr int MORE_THAN_FITS = 10'000;
    t_hanging_bus bus(true);
    ubus_context *context = ubus_connect(BUS_SOCKET_PATH);
    ASSERT_NE(context, nullptr);
    {
        t_bus_limit limit(context, LIMIT_MS);
        int status = 0;
        ubus_request request = {};
        for (int i = 0; status == 0 && i < MORE_THAN_FITS; i++)
            status = ubus_invoke_async(context, UBUS_SYSTEM_OBJECT_EVENT, "ping", nullptr, &request);
        EXPECT_NE(status, 0);
        EXPECT_TRUE(limit.reached());
    }
    EXPECT_LT(passed(), TOO_LONG);
    ubus_free(context);
}

// holds: bus-deaf
TEST_F(bus_limit, hangs_up_when_nobody_takes_a_reply)
{
    t_hanging_bus bus(true);
    ubus_context *context = ubus_connect(BUS_SOCKET_PATH);
    ASSERT_NE(context, nullptr);
    while (send(context->sock.fd, GREETING, sizeof GREETING, MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        ;
    ASSERT_EQ(errno, EAGAIN);

    ubus_object *object = wan_detect_bus_exports()->object;
    const ubus_method &first = object->methods[0];
    ubus_request_data request = {};
    t_message message("{}");
    first.handler(context, object, &request, first.name, message.buffer.head);
    EXPECT_GE(passed(), milliseconds(1000));
    EXPECT_LT(passed(), TOO_LONG);
    char byte;
    EXPECT_EQ(recv(context->sock.fd, &byte, sizeof byte, MSG_DONTWAIT), 0) << "the connection is open";
    ubus_free(context);
}

TEST_F(bus_limit, leaves_the_reason_of_an_earlier_failure_alone)
{
    ubus_context context = {};
    context.sock.fd = STDIN_FILENO; // cannot be hung up
    t_bus_limit limit(&context, LIMIT_MS);
    errno = ENOTDIR;
    while (!limit.reached() && passed() < TOO_LONG)
        ;
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_TRUE(limit.reached());
}

TEST_F(bus_limit, has_nothing_to_do_with_a_signal_of_others)
{
    t_bus_limit limit(nullptr, static_cast<int>(TOO_LONG.count()));
    raise(SIGUSR2);
    EXPECT_FALSE(limit.reached());
}

// holds: bus-slow
TEST_F(bus_limit, may_stand_within_another_one)
{
    t_bus_limit outer(nullptr, LIMIT_MS);
    {
        t_bus_limit inner(nullptr, static_cast<int>(TOO_LONG.count()));
        while (!outer.reached() && passed() < TOO_LONG)
            ;
        EXPECT_TRUE(outer.reached());
        EXPECT_FALSE(inner.reached());
    }
    t_bus_limit next(nullptr, LIMIT_MS);
    EXPECT_FALSE(next.reached());
    EXPECT_TRUE(outer.reached());
}

TEST_F(bus_limit, that_is_not_reached_leaves_the_connection_alone)
{
    t_bus_daemon bus(BUS_SOCKET_PATH);
    ubus_context *context = ubus_connect(BUS_SOCKET_PATH);
    ASSERT_NE(context, nullptr);
    uint32_t id = 0;
    {
        t_bus_limit limit(context, LIMIT_MS);
        EXPECT_EQ(ubus_lookup_id(context, "network.interface", &id), UBUS_STATUS_NOT_FOUND);
        EXPECT_FALSE(limit.reached());
    }
    std::this_thread::sleep_for(milliseconds(2 * LIMIT_MS));
    EXPECT_EQ(ubus_lookup_id(context, "network.interface", &id), UBUS_STATUS_NOT_FOUND);
    ubus_free(context);
}

TEST_F(bus_limit, lets_a_bus_that_hangs_right_after_its_greeting_not_keep_the_loop)
{
    t_bus_daemon bus(BUS_SOCKET_PATH);
    ASSERT_EQ(wan_detect_ubus_init(wan_detect_bus_exports()), 0);
    bus.kill();
    ASSERT_TRUE(loop_until([] { return wan_detect_ubus_context() == nullptr; }));
    {
        t_hanging_bus hanging(true);
        // Each attempt needs two connections: one that knocks, one that hangs.
        EXPECT_TRUE(loop_until([&hanging] { return hanging.greeted >= 4; }, 2 * static_cast<int>(TOO_LONG.count())));
        EXPECT_EQ(wan_detect_ubus_context(), nullptr);
    }
    bus.start();
    EXPECT_TRUE(loop_until([] { return wan_detect_ubus_context() != nullptr; }));
    EXPECT_EQ(log.count("Notice", "restore_connection", "ubus connection restored"), 1);
}
