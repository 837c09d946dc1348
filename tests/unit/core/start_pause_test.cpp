// SPDX-License-Identifier: MIT
// The pauses of start-up, on a real bus, with callers in processes of their own.
#include "core/start_pause.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libubus.h>

#include "adapters/bus_object.h"
#include "core/cycle.h"
#include "core/hangup.h"
#include "model/banned.h"
#include "platform/bus.h"
#include "platform/clock.h"
#include "platform/ending.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/support/this_build.h"

namespace {

constexpr uint32_t SHORT_PAUSE_MS = 200;
constexpr uint32_t LONG_PAUSE_MS = 20'000; // more than any caller's patience
constexpr const char *CALLERS_PATIENCE_S = "10";
constexpr int64_t PROCESSOR_OF_A_PAUSE_US = 50'000;
constexpr const char *ANSWER = "/tmp/answer";

std::string bus_tool()
{
    const std::string built = BIN_FOLDER + "/ubus";
    return std::filesystem::exists(built) ? built : "ubus";
}

// A program on the bus whose end ends the pause. What it printed stands in ANSWER.
class t_caller {
public:
    t_caller(const char *word, const char *name, const char *method_or_message, const char *message = nullptr)
    {
        signal(SIGCHLD, [](int) { ask_for_end(); });
        pid_ = fork();
        if (pid_ != 0)
            return;
        freopen(ANSWER, "w", stdout);
        execlp(bus_tool().c_str(), "ubus", "-S", "-t", CALLERS_PATIENCE_S, "-s", BUS_SOCKET_PATH, word, name,
               method_or_message, message, nullptr);
        _exit(127);
    }
    ~t_caller()
    {
        signal(SIGCHLD, SIG_DFL);
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    t_caller(const t_caller &) = delete;
    t_caller &operator=(const t_caller &) = delete;

private:
    pid_t pid_;
};

class start_pause : public t_engine_test {
protected:
    void SetUp() override
    {
        t_engine_test::SetUp();
        ASSERT_EQ(wan_detect_ubus_init(wan_detect_bus_exports()), 0);
    }
    void TearDown() override
    {
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        t_engine_test::TearDown();
        std::filesystem::remove(ANSWER);
    }

    // What a caller of the object got during a pause.
    static std::string answer_to(const char *method, const char *message)
    {
        const t_caller caller("call", "wan_detect", method, message);
        EXPECT_TRUE(pause_serving_callers(LONG_PAUSE_MS));
        return read_file(ANSWER);
    }

    t_bus_daemon bus{BUS_SOCKET_PATH};
};

constexpr const char *DONE = "{\"err_code\":0}\n";

// As long as it ought to last, and without work.
void expect_idle_pause()
{
    const t_time_stamp start = get_time_stamp();
    const clock_t before = clock();
    EXPECT_FALSE(pause_serving_callers(SHORT_PAUSE_MS));
    EXPECT_GE(milliseconds_since(start), SHORT_PAUSE_MS);
    EXPECT_LT(int64_t{clock() - before} * 1'000'000 / CLOCKS_PER_SEC, PROCESSOR_OF_A_PAUSE_US);
}

} // namespace

// holds: served-at-start
TEST_F(start_pause, a_caller_gets_his_reply_and_what_he_asked_for_begins_with_the_loop)
{
    EXPECT_EQ(answer_to("wan_detect", R"({"delay":0})"), DONE);
    EXPECT_EQ(armed(engine.init_wan_detect_all), 0);
    EXPECT_FALSE(cycle_is_open());
}

// holds: served-at-start
TEST_F(start_pause, each_method_is_served)
{
    EXPECT_EQ(answer_to("log", R"({"level":7})"), DONE);
}

// holds: state-object
TEST_F(start_pause, the_state_is_told)
{
    const t_caller caller("call", "wan_detect.state", "status", "{}");
    EXPECT_TRUE(pause_serving_callers(LONG_PAUSE_MS));
    const std::string answer = read_file(ANSWER);
    EXPECT_NE(answer.find("\"starting\":true"), std::string::npos) << answer;
    EXPECT_NE(answer.find("\"state\":\"resting\""), std::string::npos) << answer;
}

// holds: served-at-start
TEST_F(start_pause, a_request_takes_the_stage_and_asks_nobody_before_the_loop)
{
    EXPECT_EQ(answer_to("proto_detect", R"({"device":"eth1"})"), DONE);
    EXPECT_EQ(armed(engine.proto_detect_start), 0);
    EXPECT_EQ(fake_probes.count("send"), 0);
}

// holds: served-at-start
TEST_F(start_pause, detection_that_is_switched_off_stays_off)
{
    EXPECT_EQ(answer_to("set", R"({"enable":false})"), DONE);
    EXPECT_FALSE(port_model.enable);
}

// holds: served-at-start
TEST_F(start_pause, a_reported_link_is_stored)
{
    EXPECT_EQ(answer_to("hotplug", R"({"name":"eth3","status":true})"), DONE);
    EXPECT_TRUE(dev("eth3")->link_active);
}

// holds: served-at-start
TEST_F(start_pause, a_port_is_banned)
{
    const t_caller caller("send", "wan_detect_add_banned_dev", R"({"name":"eth2","time":60})");
    EXPECT_TRUE(pause_serving_callers(LONG_PAUSE_MS)); // until the caller has sent it
    release_ending();
    ASSERT_TRUE(init_ending());
    pause_serving_callers(SHORT_PAUSE_MS);
    EXPECT_TRUE(is_banned_device(&port_model.banned_list, dev("eth2")));
}

// holds: served-at-start
TEST_F(start_pause, who_called_while_the_daemon_asked_something_itself_is_served_too)
{
    const t_caller caller("call", "wan_detect", "set", R"({"enable":true})");
    pollfd socket = {wan_detect_ubus_socket(), POLLIN, 0};
    ASSERT_EQ(poll(&socket, 1, static_cast<int>(LONG_PAUSE_MS)), 1);
    uint32_t id = 0;
    ASSERT_EQ(ubus_lookup_id(wan_detect_ubus_context(), "wan_detect", &id), 0);
    socket.revents = 0;
    ASSERT_EQ(poll(&socket, 1, 0), 0) << "the call waits in the library";
    EXPECT_TRUE(pause_serving_callers(LONG_PAUSE_MS));
    EXPECT_EQ(read_file(ANSWER), DONE);
}

// holds: served-at-start, wait-for-link
TEST_F(start_pause, a_caller_does_not_shorten_it)
{
    const t_caller caller("call", "wan_detect", "hotplug", R"({"name":"eth3","status":true})");
    signal(SIGCHLD, SIG_DFL);
    pollfd socket = {wan_detect_ubus_socket(), POLLIN, 0};
    ASSERT_EQ(poll(&socket, 1, static_cast<int>(LONG_PAUSE_MS)), 1);
    const t_time_stamp start = get_time_stamp();
    EXPECT_FALSE(pause_serving_callers(SHORT_PAUSE_MS));
    EXPECT_GE(milliseconds_since(start), SHORT_PAUSE_MS);
    EXPECT_TRUE(dev("eth3")->link_active);
}

// holds: served-at-start
TEST_F(start_pause, no_timer_of_the_loop_runs)
{
    static bool ran;
    uloop_timeout due_at_once = {};
    due_at_once.cb = [](uloop_timeout *) { ran = true; };
    uloop_timeout_set(&due_at_once, 0);
    EXPECT_FALSE(pause_serving_callers(SHORT_PAUSE_MS));
    EXPECT_FALSE(ran);
    uloop_timeout_cancel(&due_at_once);
}

TEST_F(start_pause, lasts_as_long_as_it_ought_to_without_work)
{
    expect_idle_pause();
}

TEST_F(start_pause, lasts_as_long_without_work_when_the_bus_goes_away)
{
    bus.kill();
    expect_idle_pause();
}

// holds: signal-ends
TEST_F(start_pause, is_over_at_once_when_the_end_is_asked_for)
{
    ask_for_end();
    EXPECT_TRUE(pause_serving_callers(LONG_PAUSE_MS));
}

// holds: hangup-ignored
TEST_F(start_pause, a_hangup_is_told_of_at_once_and_does_not_shorten_it)
{
    sigset_t hangup, former;
    sigemptyset(&hangup);
    sigaddset(&hangup, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangup, &former);
    ASSERT_TRUE(watch_for_hangups());
    kill(getpid(), SIGHUP);
    const t_time_stamp start = get_time_stamp();
    EXPECT_FALSE(pause_serving_callers(SHORT_PAUSE_MS));
    EXPECT_GE(milliseconds_since(start), SHORT_PAUSE_MS);
    EXPECT_EQ(log->count("Info", "tell_of_hangup", "SIGHUP is ignored"), 1);
    release_hangups();
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

// holds: hangup-ignored
TEST_F(start_pause, a_hangup_is_told_of_by_the_loop_and_ends_nothing)
{
    sigset_t hangup, former;
    sigemptyset(&hangup);
    sigaddset(&hangup, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangup, &former);
    ASSERT_TRUE(watch_for_hangups());
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(loop_until([this] { return log->has("Info", "tell_of_hangup", "SIGHUP is ignored"); }));
    EXPECT_FALSE(uloop_cancelled);
    release_hangups();
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}
