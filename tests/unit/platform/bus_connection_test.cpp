// SPDX-License-Identifier: MIT
// Setting the connection up, losing it and getting it back.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "model/banned.h"
#include "platform/log.h"
#include "platform/tallies.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"

namespace {

volatile sig_atomic_t terminations;
bool raise_fails;
int number_left_behind = -1; // by a failed reconnect, once
std::vector<const char *> reconnected_to;

} // namespace

extern "C" int raise(int signal) noexcept
{
    if (raise_fails)
        return -1;
    return pthread_kill(pthread_self(), signal);
}

extern "C" {
int __real_ubus_reconnect(ubus_context *context, const char *path);
int __wrap_ubus_reconnect(ubus_context *context, const char *path);

int __wrap_ubus_reconnect(ubus_context *context, const char *path)
{
    reconnected_to.push_back(path);
    if (number_left_behind < 0)
        return __real_ubus_reconnect(context, path);
    close(context->sock.fd);
    context->sock.fd = std::exchange(number_left_behind, -1);
    return UBUS_STATUS_CONNECTION_FAILED;
}
}

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int BACK_WITHIN_MS = 2000;
constexpr int HEARTBEAT_MS = 20;

class bus_connection : public t_adapter_test {
protected:
    bus_connection()
    {
        terminations = 0;
        reconnected_to.clear();
        std::filesystem::create_directories(std::filesystem::path(BUS_DEFAULT_SOCKET_PATH).parent_path());
        struct sigaction count = {};
        count.sa_handler = [](int) { terminations = terminations + 1; };
        sigaction(SIGTERM, &count, &former_);
        uloop_handle_sigchld = false;
        uloop_init();
        heartbeat_.cb = [](uloop_timeout *timer) {
            heartbeats_++;
            uloop_timeout_set(timer, HEARTBEAT_MS);
        };
        heartbeats_ = 0;
        uloop_timeout_set(&heartbeat_, 0);
    }
    ~bus_connection() override
    {
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
        sigaction(SIGTERM, &former_, nullptr);
    }

    static int init()
    {
        offered_ = wan_detect_bus_exports();
        return wan_detect_ubus_init(offered_);
    }
    static bool is_connected() { return wan_detect_ubus_context() != nullptr; }
    bool lost_is_noticed()
    {
        return loop_until([] { return !is_connected(); });
    }

    // Object and event, seen from another program.
    bool object_answers(const char *path = BUS_SOCKET_PATH)
    {
        t_bus_client client(path);
        return client.is_connected() && client.knows("wan_detect") && client.call("wan_detect", "{}").err_code == 0;
    }
    bool event_arrives(t_device *dev)
    {
        t_bus_client client(BUS_SOCKET_PATH);
        client.send_event(R"({"name":")" + std::string(dev->name) + R"(","time":100})");
        return loop_until([dev] { return is_banned_device(&port_model.banned_list, dev); }, 500);
    }

    static inline int heartbeats_;
    static inline const t_bus_exports *offered_;
    uloop_timeout heartbeat_ = {};
    t_log_capture log;

private:
    struct sigaction former_ = {};
};

// The daemon's connection with a bus under it.
class lost_bus : public bus_connection {
protected:
    lost_bus() : eth0(add_port("eth0", 0)) { EXPECT_EQ(init(), 0); }
    t_bus_daemon bus{BUS_SOCKET_PATH};
    t_device *eth0;
};

// Another program whose object has the daemon's name.
class t_squatter {
public:
    bool is_published() { return client_.publish(&object_); }

private:
    t_bus_client client_{BUS_SOCKET_PATH};
    ubus_object_type type_ = {"wan_detect", 0, nullptr, 0};
    ubus_object object_ = [this] {
        ubus_object object = {};
        object.name = "wan_detect";
        object.type = &type_;
        return object;
    }();
};

size_t open_descriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count++;
    return count;
}

} // namespace

// holds: bus-connection
TEST_F(bus_connection, offers_the_object_and_hears_the_event)
{
    t_device *eth0 = add_port("eth0", 0);
    t_bus_daemon bus(BUS_SOCKET_PATH);
    EXPECT_EQ(init(), 0);
    EXPECT_TRUE(is_connected());
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
    EXPECT_EQ(terminations, 0);
}

// holds: bus-place
TEST_F(bus_connection, is_made_at_the_librarys_default_where_the_old_socket_does_not_exist)
{
    t_bus_daemon bus(BUS_DEFAULT_SOCKET_PATH);
    EXPECT_EQ(init(), 0);
    EXPECT_TRUE(object_answers(BUS_DEFAULT_SOCKET_PATH));
}

// holds: bus-place
TEST_F(bus_connection, is_made_at_the_old_socket_where_both_exist)
{
    t_bus_daemon other(BUS_DEFAULT_SOCKET_PATH);
    t_bus_daemon bus(BUS_SOCKET_PATH);
    EXPECT_EQ(init(), 0);
    EXPECT_TRUE(object_answers());
    EXPECT_FALSE(object_answers(BUS_DEFAULT_SOCKET_PATH));
}

// holds: bus-connection
TEST_F(bus_connection, without_a_bus_ends_the_daemon)
{
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(terminations, 1);
    EXPECT_FALSE(is_connected());
    EXPECT_TRUE(log.has("Critical", "wan_detect_ubus_init", "ubus connect fail!"));
}

// holds: bus-connection
TEST_F(bus_connection, with_its_name_in_use_ends_the_daemon)
{
    t_bus_daemon bus(BUS_SOCKET_PATH);
    t_squatter other;
    ASSERT_TRUE(other.is_published());
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(terminations, 1);
    EXPECT_TRUE(log.has("Critical", "wan_detect_ubus_init", "ubus_add_object: Invalid argument"));
}

// holds: second-instance
TEST_F(bus_connection, with_its_name_in_use_leaves_the_other_ones_log_file_alone)
{
    const std::string log_file = "/tmp/wan_detect.log";
    write_file(log_file, "the other one's");
    t_bus_daemon bus(BUS_SOCKET_PATH);
    t_squatter other;
    ASSERT_TRUE(other.is_published());
    log_open_with_first_line();
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(read_file(log_file), "the other one's");
    EXPECT_TRUE(log.has("Critical", "wan_detect_ubus_init", "ubus_add_object: Invalid argument"));
    log_done();
    std::filesystem::remove(log_file);
}

// holds: second-instance
TEST_F(bus_connection, without_a_bus_opens_the_log_that_was_asked_for)
{
    const std::string log_file = "/tmp/wan_detect.log";
    write_file(log_file, "");
    log_open_with_first_line();
    EXPECT_EQ(init(), -1);
    EXPECT_NE(read_file(log_file).find("]: ubus connect fail!\n"), std::string::npos);
    log_done();
    std::filesystem::remove(log_file);
}

// holds: bus-connection
TEST_F(bus_connection, with_its_event_refused_ends_the_daemon)
{
    t_bus_daemon bus(BUS_SOCKET_PATH);
    t_bus_exports offer = *wan_detect_bus_exports();
    offer.event_pattern = "";
    EXPECT_EQ(wan_detect_ubus_init(&offer), -1);
    EXPECT_EQ(terminations, 1);
    std::string text = log.text();
    EXPECT_NE(text.find("[wan_detect][Critical]["), std::string::npos);
    const std::string last = "]: Failed to add event to ubusd";
    ASSERT_GE(text.size(), last.size());
    EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

// holds: signal-cannot-be-raised
TEST_F(bus_connection, ends_the_process_with_status_1_when_the_signal_cannot_be_sent)
{
    EXPECT_EXIT(
        {
            raise_fails = true;
            init();
        },
        testing::ExitedWithCode(EXIT_FAILURE), "");
}

// holds: bus-shutdown-line
TEST_F(bus_connection, closing_says_so_and_leaves_nothing_open)
{
    t_bus_daemon bus(BUS_SOCKET_PATH);
    size_t before = open_descriptors();
    EXPECT_EQ(init(), 0);
    wan_detect_ubus_done();
    EXPECT_FALSE(is_connected());
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(log.has("Debug", "wan_detect_ubus_done", "wan_detect_ubus closed"));
    t_bus_client client(BUS_SOCKET_PATH);
    EXPECT_FALSE(client.knows("wan_detect"));
}

TEST_F(bus_connection, closing_what_was_never_open_says_nothing)
{
    wan_detect_ubus_done();
    EXPECT_EQ(log.text(), "");
}

TEST_F(lost_bus, does_not_end_the_loop)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    int before = heartbeats_;
    EXPECT_TRUE(loop_until([before] { return heartbeats_ >= before + 20; }));
    EXPECT_EQ(terminations, 0);
    EXPECT_FALSE(uloop_cancelled);
}

TEST_F(lost_bus, comes_back_with_object_and_event_within_two_seconds)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

// holds: tallies
TEST_F(lost_bus, is_looked_for_no_more_once_it_is_back)
{
    const uint32_t before = tallies.bus_reconnects;
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    uint32_t id = offered_->object->id;
    EXPECT_FALSE(loop_until([] { return false; }, BUS_RECONNECT_INTERVAL_MS + 300));
    EXPECT_EQ(offered_->object->id, id);
    EXPECT_EQ(log.count("Notice", "restore_connection", "ubus connection restored"), 1);
    EXPECT_EQ(tallies.bus_reconnects, before + 1);
}

TEST_F(lost_bus, sees_nothing_of_a_daemon_that_is_back_by_half)
{
    wan_detect_ubus_done();
    t_bus_exports offer = *wan_detect_bus_exports();
    ASSERT_EQ(wan_detect_ubus_init(&offer), 0);
    const char *pattern = offer.event_pattern;
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    uint32_t id = offer.object->id;
    offer.event_pattern = ""; // refused
    bus.start();
    t_bus_client client(BUS_SOCKET_PATH);
    EXPECT_TRUE(loop_until([&offer, id] { return offer.object->id != 0 && offer.object->id != id; }));
    EXPECT_TRUE(loop_until([&client] { return !client.knows("wan_detect"); }, BUS_RECONNECT_INTERVAL_MS / 2));
    EXPECT_FALSE(is_connected());
    offer.event_pattern = pattern;
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
    wan_detect_ubus_done();
}

// holds: bus-place
TEST_F(lost_bus, is_found_where_the_next_bus_daemon_listens)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    std::filesystem::remove(BUS_SOCKET_PATH);
    t_bus_daemon other(BUS_DEFAULT_SOCKET_PATH);
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers(BUS_DEFAULT_SOCKET_PATH));
    other.kill();
    ASSERT_TRUE(lost_is_noticed());
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
}

// holds: bus-place
TEST_F(lost_bus, is_asked_for_by_the_library_where_no_socket_exists_that_we_know)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    std::filesystem::remove(BUS_SOCKET_PATH);
    size_t before = open_descriptors();
    EXPECT_TRUE(loop_until([] { return reconnected_to.size() >= 2; }));
    EXPECT_EQ(reconnected_to, (std::vector<const char *>{nullptr, nullptr}));
    EXPECT_LT(open_descriptors(), before);
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

// holds: bus-place
TEST_F(lost_bus, at_the_librarys_default_that_never_greets_does_not_stop_the_loop)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    std::filesystem::remove(BUS_SOCKET_PATH);
    t_bus_daemon other(BUS_DEFAULT_SOCKET_PATH);
    other.stop();
    int before = heartbeats_;
    EXPECT_FALSE(loop_until([] { return false; }, 1500));
    EXPECT_GT(heartbeats_ - before, 1500 / HEARTBEAT_MS / 2);
    EXPECT_TRUE(reconnected_to.empty());
    other.go_on();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
}

TEST_F(lost_bus, comes_back_when_the_restart_is_faster_than_the_loop)
{
    bus.kill();
    bus.start();
    ASSERT_TRUE(lost_is_noticed());
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

TEST_F(lost_bus, comes_back_without_a_hand_on_descriptors_of_others)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    constexpr int NOBODY_GETS_IT_BY_CHANCE = 100;
    int other = fcntl(STDIN_FILENO, F_DUPFD, NOBODY_GETS_IT_BY_CHANCE);
    ASSERT_GE(other, NOBODY_GETS_IT_BY_CHANCE);
    number_left_behind = other;
    bus.start();
    EXPECT_TRUE(loop_until([] { return is_connected() && number_left_behind == -1; }, 2 * BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_EQ(close(other), 0) << "somebody else closed it";
}

TEST_F(lost_bus, comes_back_after_a_long_absence)
{
    bus.kill();
    EXPECT_FALSE(loop_until([] { return false; }, 2500));
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

TEST_F(lost_bus, comes_back_every_time_and_leaks_nothing)
{
    size_t before = open_descriptors();
    for (int i = 0; i < 3; i++) {
        bus.kill();
        ASSERT_TRUE(lost_is_noticed());
        bus.start();
        ASSERT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
        EXPECT_TRUE(object_answers());
    }
    EXPECT_TRUE(event_arrives(eth0));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(lost_bus, that_accepts_but_never_greets_does_not_stop_the_loop)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    bus.start();
    bus.stop();
    int before = heartbeats_;
    EXPECT_FALSE(loop_until([] { return false; }, 1500));
    EXPECT_GT(heartbeats_ - before, 1500 / HEARTBEAT_MS / 2);
    EXPECT_FALSE(is_connected());
    bus.kill();
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
}

TEST_F(lost_bus, is_asked_again_while_somebody_else_has_the_name)
{
    const std::string aside = "/var/run/aside.sock";
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    t_bus_daemon other_bus(aside);
    {
        t_bus_client other(aside);
        ubus_object_type type = {"wan_detect", 0, nullptr, 0};
        ubus_object squatter = {};
        squatter.name = "wan_detect";
        squatter.type = &type;
        ASSERT_TRUE(other.publish(&squatter));
        std::filesystem::rename(aside, BUS_SOCKET_PATH);
        EXPECT_FALSE(loop_until(is_connected, 1500));
    }
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

TEST_F(lost_bus, comes_back_with_an_object_that_the_library_gave_up)
{
    ubus_context *context = wan_detect_ubus_context();
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    ubus_remove_object(context, offered_->object);
    bus.start();
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(object_answers());
    EXPECT_TRUE(event_arrives(eth0));
}

TEST_F(lost_bus, has_no_connection_for_callers)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    EXPECT_EQ(wan_detect_ubus_context(), nullptr);
    EXPECT_NE(ubus_call_method("network.interface", "status", nullptr, nullptr, nullptr), 0);
}

// holds: bus-shutdown-line
TEST_F(lost_bus, is_closed_without_a_word)
{
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    wan_detect_ubus_done();
    EXPECT_FALSE(log.has_body("wan_detect_ubus closed"));
}

TEST_F(lost_bus, can_be_closed_for_good)
{
    size_t connected = open_descriptors();
    bus.kill();
    ASSERT_TRUE(lost_is_noticed());
    bus.start();
    bus.stop();
    EXPECT_FALSE(loop_until([] { return false; }, 300));
    wan_detect_ubus_done();
    EXPECT_EQ(open_descriptors(), connected - 1);
    bus.go_on();
    EXPECT_FALSE(loop_until(is_connected, 1300));
}
