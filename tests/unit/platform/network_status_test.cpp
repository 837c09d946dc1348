// SPDX-License-Identifier: MIT
// The upstream's state, the online test and the router's mode, with the network manager played by the test.
#include <csignal>
#include <map>

#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "adapters/network_status.h"
#include "platform/bus.h"
#include "platform/result_codes.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/failing_messages.h"

namespace {

// How the network manager answers for one interface: a JSON status, or a status code of the bus.
struct t_answer {
    int status = UBUS_STATUS_NOT_FOUND;
    std::string json;
};

std::map<std::string, t_answer> answers;
std::vector<std::string> asked;
bool connected; // to the bus

std::string asked_interface(blob_buf *message)
{
    char *text = blobmsg_format_json(message->head, true);
    std::string json = text;
    free(text);
    return json;
}

} // namespace

ubus_context *wan_detect_ubus_context()
{
    return nullptr; // nobody is notified
}

bool wan_detect_ubus_is_lost()
{
    return !connected;
}

int ubus_call_method(const char *object, const char *method, blob_buf *message, t_bus_reply_handler reply,
                     void *context)
{
    EXPECT_STREQ(object, "network.interface");
    EXPECT_STREQ(method, "status");
    asked.push_back(asked_interface(message));
    t_answer answer = answers[asked.back()];
    if (answer.json.empty())
        return answer.status;
    blob_buf content = {};
    blob_buf_init(&content, 0);
    EXPECT_TRUE(blobmsg_add_json_from_string(&content, answer.json.c_str()));
    ubus_request request = {};
    request.priv = context;
    reply(&request, UBUS_MSG_DATA, content.head);
    blob_buf_free(&content);
    return answer.status;
}

namespace {

const std::string INTERNET = R"({"interface":"internet"})";
const std::string WAN = R"({"interface":"wan"})";
const std::string WANV6 = R"({"interface":"wanv6"})";

class network_status : public t_adapter_test {
protected:
    network_status()
    {
        answers.clear();
        asked.clear();
        connected = true;
        forget_network_manager();
    }
    static void answer(const std::string &interface, const std::string &state)
    {
        answers[interface] = {UBUS_STATUS_OK, R"({"state":")" + state + "\"}"};
    }
    static void answer_all(int status) { answers[INTERNET] = answers[WAN] = {status, ""}; }
    static void answer_unreadable(const std::string &interface) { answers[interface] = {UBUS_STATUS_OK, "{}"}; }
    bool said(const std::string &level, const std::string &body) { return log.has(level, "get_network_status", body); }
    bool said_result() { return log.text().find("Get network status return") != std::string::npos; }

    t_log_capture log;
};

class online_test : public t_adapter_test {
protected:
    size_t runs() const
    {
        std::string calls = calls_of("online-test");
        return static_cast<size_t>(std::count(calls.begin(), calls.end(), '\n'));
    }
    bool tried_again() { return log.has("Error", "check_online", "online-test failed, try again!!"); }
    t_log_capture log;
};

class router_mode : public t_adapter_test {
protected:
    static bool with(const std::string &mode)
    {
        write_config("sysmode", "config sysmode 'sysmode'\n\toption mode '" + mode + "'\n");
        return get_is_router_mode();
    }
    t_log_capture log;
};

} // namespace

// holds: status-codes
TEST_F(network_status, is_that_of_the_internet_interface)
{
    answer(INTERNET, "connected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_TRUE(said("Debug", "Get network status return: connected"));
    answer(INTERNET, "connecting");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTING);
    EXPECT_TRUE(said("Debug", "Get network status return: connecting"));
    answer(INTERNET, "disconnected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(said("Debug", "Get network status return: disconnected"));
    EXPECT_EQ(asked, (std::vector<std::string>{INTERNET, INTERNET, INTERNET}));
}

// holds: status-fallback
TEST_F(network_status, of_ipv4_falls_back_to_wan_when_internet_is_not_there)
{
    answer(WAN, "connected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{INTERNET, WAN}));
    EXPECT_TRUE(said("Info", R"(Failed to run ubus call network.interface status '{"interface":"internet"}')"));
}

// holds: status-fallback
TEST_F(network_status, of_ipv4_falls_back_to_wan_when_internet_cannot_be_read)
{
    answer_unreadable(INTERNET);
    answer(WAN, "connecting");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTING);
    EXPECT_EQ(asked, (std::vector<std::string>{INTERNET, WAN}));
    EXPECT_FALSE(said("Info", R"(Failed to run ubus call network.interface status '{"interface":"internet"}')"));
}

TEST_F(network_status, of_ipv4_is_disconnected_at_once_when_wan_is_not_there_either)
{
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(said("Error", R"(Failed to run ubus call network.interface status '{"interface":"wan"}')"));
    EXPECT_FALSE(said_result());
}

// holds: status-codes
TEST_F(network_status, of_ipv4_is_disconnected_when_wan_cannot_be_read_either)
{
    answer_unreadable(WAN);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(said("Error", R"(Failed to run ubus call network.interface status '{"interface":"wan"}')"));
    EXPECT_FALSE(said_result());
}

TEST_F(network_status, of_ipv4_with_the_check_reports_the_disconnection_without_an_online_test)
{
    install_program("online-test", "exit 0");
    EXPECT_EQ(get_network_status(0, 1), NETWORK_DISCONNECTED);
    EXPECT_TRUE(said("Debug", "Get network status return: disconnected"));
    EXPECT_EQ(calls_of("online-test"), "");
}

// holds: status-fallback
TEST_F(network_status, of_ipv6_never_falls_back)
{
    answer(INTERNET, "connected");
    answer(WAN, "connected");
    EXPECT_EQ(get_network_status(1, 0), NETWORK_DISCONNECTED);
    EXPECT_EQ(get_network_status(1, 1), NETWORK_DISCONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{WANV6, WANV6}));
    EXPECT_TRUE(said("Info", R"(Failed to run ubus call network.interface status '{"interface":"wanv6"}')"));
    EXPECT_FALSE(said_result());
}

// holds: status-fallback
TEST_F(network_status, of_ipv6_is_disconnected_when_it_cannot_be_read)
{
    answer_unreadable(WANV6);
    EXPECT_EQ(get_network_status(1, 0), NETWORK_DISCONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{WANV6}));
}

TEST_F(network_status, of_ipv6_is_read_from_its_own_interface)
{
    answer(WANV6, "connected");
    EXPECT_EQ(get_network_status(1, 0), NETWORK_CONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{WANV6}));
}

TEST_F(network_status, a_call_that_fails_after_its_reply_counts_as_failed)
{
    answers[INTERNET] = {UBUS_STATUS_TIMEOUT, R"({"state":"connected"})"};
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
}

// holds: status-codes
TEST_F(network_status, with_the_check_a_connected_upstream_that_is_not_online_is_poor)
{
    answer(INTERNET, "connected");
    install_program("online-test", "exit 1");
    EXPECT_EQ(get_network_status(0, 1), NETWORK_POOR_CONNECTED);
    EXPECT_TRUE(said("Debug", "Get network status return: poor connected"));
}

TEST_F(network_status, with_the_check_a_connected_upstream_that_is_online_is_connected)
{
    answer(INTERNET, "connected");
    install_program("online-test", "exit 0");
    EXPECT_EQ(get_network_status(0, 1), NETWORK_CONNECTED);
    EXPECT_EQ(calls_of("online-test"), "\n");
}

TEST_F(network_status, without_the_check_no_online_test_is_run)
{
    answer(INTERNET, "connected");
    install_program("online-test", "exit 1");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_EQ(calls_of("online-test"), "");
}

TEST_F(network_status, with_the_check_a_connecting_upstream_is_not_tested)
{
    answer(INTERNET, "connecting");
    install_program("online-test", "exit 1");
    EXPECT_EQ(get_network_status(0, 1), NETWORK_CONNECTING);
    EXPECT_EQ(calls_of("online-test"), "");
}

// holds: question-without-memory
TEST_F(network_status, without_memory_for_the_question_nobody_is_asked_and_it_counts_as_failed)
{
    answer(INTERNET, "connected");
    for (t_refusal what : {t_refusal::of_buffers, t_refusal::of_fields}) {
        t_message_shortage shortage(what);
        EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
        EXPECT_TRUE(asked.empty());
    }
    EXPECT_TRUE(said("Info", R"(Failed to run ubus call network.interface status '{"interface":"internet"}')"));
    EXPECT_TRUE(said("Error", R"(Failed to run ubus call network.interface status '{"interface":"wan"}')"));
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
}

// holds: question-without-memory
TEST_F(network_status, without_memory_for_the_question_nothing_is_known_of_the_network)
{
    answer(INTERNET, "connected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    {
        t_message_shortage shortage(t_refusal::of_buffers);
        EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    }
    EXPECT_TRUE(network_manager_is_away());
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: question-without-memory
TEST_F(network_status, without_memory_for_the_first_question_ever_nothing_is_known_either)
{
    answer(INTERNET, "connected");
    t_message_shortage shortage(t_refusal::of_buffers);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, a_manager_that_lacks_memory_itself_is_not_away)
{
    answer_all(UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
    answer_all(ERR_BUS_OBJECT); // it has answered before
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, a_manager_that_never_was_there_is_not_away)
{
    EXPECT_FALSE(network_manager_is_away());
    answer_all(ERR_BUS_OBJECT);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, a_manager_that_answered_and_cannot_be_found_any_more_is_away_until_it_answers)
{
    answer(INTERNET, "disconnected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
    answer_all(ERR_BUS_OBJECT);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
    answer(INTERNET, "connecting");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTING);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, a_manager_that_refused_has_answered_too)
{
    answer_all(UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
    answer_all(UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, a_manager_that_hangs_is_not_away_and_has_not_answered)
{
    answer_all(UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
    answer_all(ERR_BUS_OBJECT);
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, without_the_bus_the_manager_is_away_whether_it_ever_answered_or_not)
{
    answer_all(ERR_BUS_OBJECT);
    connected = false;
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_TRUE(network_manager_is_away());
    connected = true;
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, an_answer_counts_also_when_the_bus_is_lost_right_after_it)
{
    answer(INTERNET, "disconnected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_DISCONNECTED);
    connected = false;
    EXPECT_FALSE(network_manager_is_away());
}

// holds: manager-away
TEST_F(network_status, whether_the_manager_is_away_is_asked_of_nobody_and_said_to_nobody)
{
    answer(INTERNET, "connected");
    EXPECT_EQ(get_network_status(0, 0), NETWORK_CONNECTED);
    const std::string said_before = log.text();
    connected = false;
    network_manager_is_away();
    EXPECT_EQ(log.text(), said_before);
    EXPECT_EQ(asked, std::vector<std::string>{INTERNET});
}

// holds: online-test-codes
TEST_F(online_test, exiting_with_0_means_online)
{
    install_program("online-test", "exit 0");
    EXPECT_TRUE(check_online());
    EXPECT_EQ(runs(), 1u);
}

// holds: online-test-again, online-test-codes
TEST_F(online_test, exiting_with_1_means_offline_and_is_not_tried_again)
{
    install_program("online-test", "exit 1");
    EXPECT_FALSE(check_online());
    EXPECT_EQ(runs(), 1u);
    EXPECT_FALSE(tried_again());
}

// holds: online-test-again
TEST_F(online_test, exiting_with_2_is_tried_once_more)
{
    install_program("online-test", "exit 2");
    EXPECT_FALSE(check_online());
    EXPECT_EQ(runs(), 2u);
    EXPECT_TRUE(tried_again());
}

// holds: online-test-codes
TEST_F(online_test, the_second_try_may_succeed)
{
    install_program("online-test", "[ $(wc -l < /tmp/calls_of_online-test) = 2 ] || exit 2");
    EXPECT_TRUE(check_online());
    EXPECT_EQ(runs(), 2u);
}

// holds: online-test-again
TEST_F(online_test, ended_by_a_signal_is_tried_once_more)
{
    install_program("online-test", "kill -KILL $$");
    EXPECT_FALSE(check_online());
    EXPECT_EQ(runs(), 2u);
    EXPECT_TRUE(tried_again());
}

TEST_F(online_test, missing_means_offline)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(check_online());
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(tried_again());
}

TEST_F(online_test, whose_exit_status_is_lost_is_tried_again_with_children_of_our_own)
{
    install_program("online-test", "exit 0");
    struct sigaction lost = {}, before = {}, after = {};
    lost.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &lost, &before);
    bool online = check_online();
    sigaction(SIGCHLD, &before, &after);
    EXPECT_TRUE(online);
    EXPECT_EQ(runs(), 2u);
    EXPECT_EQ(after.sa_handler, SIG_IGN);
}

// holds: router-mode
TEST_F(router_mode, is_any_mode_that_begins_with_router)
{
    EXPECT_TRUE(with("router"));
    EXPECT_TRUE(with("router_plus"));
    EXPECT_TRUE(with(std::string("router") + std::string(500, 'x')));
}

// holds: router-mode
TEST_F(router_mode, is_no_other_mode)
{
    for (const char *mode : {"ap", "repeater", "route", "Router", " router", "wds-router"})
        EXPECT_FALSE(with(mode)) << mode;
}

// holds: router-mode
TEST_F(router_mode, is_assumed_when_the_setting_is_missing)
{
    EXPECT_TRUE(get_is_router_mode());
    EXPECT_TRUE(log.has("Error", "get_is_router_mode", "Unable to get sysmode.sysmode.mode, treat it as router!"));
    write_config("sysmode", "config sysmode 'sysmode'\n\tlist mode 'ap'\n");
    EXPECT_TRUE(get_is_router_mode());
    write_config("sysmode", "config sysmode 'unterminated\n");
    EXPECT_TRUE(get_is_router_mode());
}
