// SPDX-License-Identifier: MIT
// The state object on a real bus: offered beside the other one, or done without; and who subscribed to it.
#include <cerrno>
#include <chrono>
#include <memory>

#include <sys/socket.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "adapters/bus_object.h"
#include "adapters/state_events.h"
#include "adapters/state_object.h"
#include "model/chronicle.h"
#include "platform/bus.h"
#include "platform/tallies.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"

namespace {

constexpr const char *STATE = "wan_detect.state";
constexpr int BACK_WITHIN_MS = 2000;
using t_heard = std::vector<std::string>;

// Another program that subscribes to the object, and writes down what it hears.
class t_subscriber {
public:
    t_subscriber() : context_(ubus_connect(BUS_SOCKET_PATH))
    {
        ubus_add_uloop(context_);
        subscriber_.cb = write_down;
        EXPECT_EQ(ubus_register_subscriber(context_, &subscriber_), 0);
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(context_, STATE, &id), 0);
        EXPECT_EQ(ubus_subscribe(context_, &subscriber_, id), 0);
        heard.clear();
    }
    ~t_subscriber() { ubus_free(context_); }
    t_subscriber(const t_subscriber &) = delete;
    t_subscriber &operator=(const t_subscriber &) = delete;

    static inline t_heard heard;

private:
    static int write_down(ubus_context *, ubus_object *, ubus_request_data *, const char *what, blob_attr *message)
    {
        char *json = blobmsg_format_json(message, true);
        heard.push_back(std::string(what) + " " + json);
        free(json);
        return 0;
    }

    ubus_context *context_;
    ubus_subscriber subscriber_ = {};
};

// Another program whose object has the state object's name.
class t_namesake {
public:
    t_namesake()
    {
        object_.name = STATE;
        object_.type = &type_;
        EXPECT_TRUE(client_.publish(&object_));
    }

private:
    t_bus_client client_{BUS_SOCKET_PATH};
    ubus_object_type type_ = {STATE, 0, nullptr, 0};
    ubus_object object_ = {};
};

class state_on_bus : public t_adapter_test {
protected:
    state_on_bus() : eth0(add_port("eth0", 0)), eth1(add_port("eth1", 1))
    {
        chronicle = {};
        uloop_handle_sigchld = false;
        uloop_init();
    }
    ~state_on_bus() override
    {
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
        chronicle = {};
    }
    static bool is_connected() { return wan_detect_ubus_context() != nullptr; }
    static int init() { return wan_detect_ubus_init(wan_detect_bus_exports()); }
    static t_call_result call(const char *method)
    {
        t_bus_client client(BUS_SOCKET_PATH);
        const t_message message(R"({"device":"eth1"})");
        return client.call(STATE, method, message.buffer.head);
    }
    static bool answers()
    {
        const t_call_result result = call("status");
        return result.status == 0 && result.replies == 1;
    }
    static bool first_object_answers()
    {
        t_bus_client client(BUS_SOCKET_PATH);
        return client.call("wan_detect", "{}").err_code == 0;
    }
    void lose_bus()
    {
        bus.kill();
        ASSERT_TRUE(loop_until([] { return !is_connected(); }));
    }
    void expect_return()
    {
        bus.start();
        EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    }
    static void expect_heard(const t_heard &wanted)
    {
        EXPECT_TRUE(loop_until([&wanted] { return t_subscriber::heard.size() >= wanted.size(); }));
        EXPECT_EQ(t_subscriber::heard, wanted);
    }

    t_bus_daemon bus{BUS_SOCKET_PATH};
    t_device *eth0, *eth1;
    t_log_capture log;
};

} // namespace

// holds: state-object
TEST_F(state_on_bus, answers_beside_the_other_object)
{
    ASSERT_EQ(init(), 0);
    for (const char *method : {"status", "history", "explain"}) {
        const t_call_result result = call(method);
        EXPECT_EQ(result.status, 0) << method;
        EXPECT_EQ(result.replies, 1) << method;
    }
    EXPECT_TRUE(first_object_answers());
    t_bus_client client(BUS_SOCKET_PATH);
    EXPECT_EQ(client.call(STATE, "explain", t_message("{}").buffer.head).status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(client.call(STATE, "explain", t_message(R"({"device":"eth9"})").buffer.head).status,
              UBUS_STATUS_NOT_FOUND);
}

// holds: state-object
TEST_F(state_on_bus, comes_back_with_the_bus)
{
    ASSERT_EQ(init(), 0);
    tallies.bus_reconnects = 0;
    for (uint32_t times = 1; times <= 2; times++) {
        lose_bus();
        expect_return();
        EXPECT_TRUE(answers());
        EXPECT_TRUE(first_object_answers());
        EXPECT_EQ(tallies.bus_reconnects, times);
    }
}

// holds: state-object-refused
TEST_F(state_on_bus, whose_name_is_taken_is_done_without)
{
    auto other = std::make_unique<t_namesake>();
    EXPECT_EQ(init(), 0);
    EXPECT_TRUE(first_object_answers());
    EXPECT_EQ(log.count("Error", "wan_detect_ubus_init", "no object wan_detect.state: Invalid argument"), 1);
    EXPECT_EQ(state_object.id, 0u);
    announce_ban(eth1, 0);
    other.reset();
    lose_bus();
    expect_return();
    EXPECT_TRUE(answers()) << "it is offered again";
    EXPECT_EQ(log.count("Error", "", "no object wan_detect.state: Invalid argument"), 1);
}

// holds: state-object-refused
TEST_F(state_on_bus, that_is_refused_at_a_return_is_done_without)
{
    ASSERT_EQ(init(), 0);
    lose_bus();
    bus.start();
    const t_namesake other; // before the loop looks for the bus
    EXPECT_TRUE(loop_until(is_connected, BACK_WITHIN_MS));
    EXPECT_TRUE(first_object_answers());
    EXPECT_EQ(state_object.id, 0u);
    EXPECT_EQ(log.count("Error", "", "no object wan_detect.state: Invalid argument"), 0);
}

// holds: state-size
TEST_F(state_on_bus, the_largest_history_reaches_its_caller)
{
    ASSERT_EQ(init(), 0);
    for (size_t i = 2; i < MAX_DEVICES; i++)
        add_port("eth" + std::to_string(i) + std::string(NAME_SIZE, 'x'), 9);
    for (int i = 0; i < REMEMBERED_CYCLES; i++) {
        note_cycle_begins();
        newest_cycle()->asked = UINT16_MAX;
        for (t_fate &fate : newest_cycle()->fates)
            fate = t_fate::not_listed_yet;
        note_cycle_ends(eth0);
    }
    const t_call_result result = call("history");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.replies, 1);
}

// holds: state-events
TEST_F(state_on_bus, tells_who_subscribed_what_happens)
{
    ASSERT_EQ(init(), 0);
    const t_subscriber subscriber;
    ASSERT_TRUE(loop_until([] { return state_object.has_subscribers; }));
    eth1->link_active = 1;
    eth1->notes.link_changes = 3;
    announce_link(eth1);
    announce_ban(eth1, 60);
    announce_ban(eth1, -1);
    announce_ban(eth1, 0);
    announce_swap(eth1, 0, 21);
    announce_swap(eth1, -1, 42);
    chronicle.next_opener = t_opener::wan_loss;
    note_cycle_begins();
    announce_cycle(true);
    note_fate(eth1, t_fate::won);
    note_decision(t_decision::only_answer);
    port_model.wan_dev = eth1;
    note_cycle_ends(eth1);
    newest_cycle()->took_ms = 2800;
    announce_verdict();
    announce_cycle(false);
    expect_heard({
        R"(link {"name":"eth1","link":true,"link_changes":3})",
        R"(ban {"name":"eth1","banned":60})",
        R"(ban {"name":"eth1","banned":-1})",
        R"(ban {"name":"eth1","banned":0})",
        R"(swap {"name":"eth1","status":0,"pause":21})",
        R"(swap {"name":"eth1","pause":42})",
        R"(cycle {"number":1,"state":"begins","opener":"wan_loss"})",
        R"(verdict {"number":1,"ago":0,"took_ms":2800,"opener":"wan_loss","asked":[],)"
        R"("ports":[{"name":"eth1","why":"won"}],"decision":"only_answer","winner":"eth1","swap":"not_needed"})",
        R"(cycle {"number":1,"state":"ends","decision":"only_answer"})",
    });
}

// holds: state-events
TEST_F(state_on_bus, tells_nobody_when_nobody_listens)
{
    announce_link(eth1); // before there is a bus
    ASSERT_EQ(init(), 0);
    const uint16_t before = wan_detect_ubus_context()->request_seq;
    announce_link(eth1);
    announce_verdict();
    EXPECT_EQ(wan_detect_ubus_context()->request_seq, before);
    {
        const t_subscriber subscriber;
        ASSERT_TRUE(loop_until([] { return state_object.has_subscribers; }));
        announce_link(eth1);
        EXPECT_NE(wan_detect_ubus_context()->request_seq, before);
        lose_bus();
        EXPECT_FALSE(state_object.has_subscribers);
        announce_link(eth1);
    }
    expect_return();
    EXPECT_FALSE(state_object.has_subscribers);
}

// holds: state-events-deaf
TEST_F(state_on_bus, waits_for_no_bus_that_takes_nothing)
{
    using clock_type = std::chrono::steady_clock;
    ASSERT_EQ(init(), 0);
    const t_subscriber subscriber;
    ASSERT_TRUE(loop_until([] { return state_object.has_subscribers; }));
    bus.stop();
    const int socket = wan_detect_ubus_context()->sock.fd;
    const char byte[512] = {};
    while (send(socket, byte, sizeof byte, MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        ;
    ASSERT_EQ(errno, EAGAIN);
    const auto start = clock_type::now();
    for (int i = 0; i < 100; i++)
        announce_link(eth1);
    EXPECT_LT(clock_type::now() - start, std::chrono::milliseconds(500));
    EXPECT_TRUE(is_connected());
    bus.go_on();
}
