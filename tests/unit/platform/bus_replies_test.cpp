// SPDX-License-Identifier: MIT
// The network manager's replies, well-formed and not.
#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "adapters/network_status.h"
#include "tests/unit/platform/adapter_fixture.h"

namespace {

class bus_replies : public t_adapter_test {
protected:
    bus_replies() : dev(add_port("eth0", 0)) { blob_buf_init(&message, 0); }
    ~bus_replies() override { blob_buf_free(&message); }

    void fill(const std::string &json) { ASSERT_TRUE(blobmsg_add_json_from_string(&message, json.c_str())) << json; }
    // A field that says it is a 32-bit number and is too short for one.
    void fill_malformed() { blobmsg_add_field(&message, BLOBMSG_TYPE_INT32, "uptime", "\0", 2); }

    // What the interface reply writes.
    int interface_state()
    {
        int state = 77;
        request.priv = &state;
        ubus_call_network_interface_cb(&request, UBUS_MSG_DATA, message.head);
        return state;
    }
    int interface_state(const std::string &json)
    {
        blob_buf_init(&message, 0);
        fill(json);
        return interface_state();
    }
    void device_reply(t_device *to)
    {
        request.priv = to;
        ubus_call_network_device_cb(&request, UBUS_MSG_DATA, message.head);
    }

    t_device *dev;
    blob_buf message = {};
    ubus_request request = {};
    t_log_capture log;
};

} // namespace

// holds: bus-status-reply
TEST_F(bus_replies, connected_and_connecting_have_codes_of_their_own_and_any_other_state_is_disconnected)
{
    EXPECT_EQ(interface_state(R"({"state":"connected"})"), NETWORK_CONNECTED);
    EXPECT_EQ(interface_state(R"({"state":"connecting"})"), NETWORK_CONNECTING);
    for (const char *other : {"disconnected", "", "Connected", "connected ", "connectedx", "connect"})
        EXPECT_EQ(interface_state(std::string(R"({"state":")") + other + "\"}"), NETWORK_DISCONNECTED) << other;
    EXPECT_TRUE(log.has("Debug", "ubus_call_network_interface_cb",
                        R"(ubus success get network.interface status '{"interface":"..."}' state=connecting)"));
}

TEST_F(bus_replies, a_full_interface_status_is_read)
{
    EXPECT_EQ(interface_state(R"({"up":true,"pending":false,"available":true,"autostart":true,"linkstate":"up",
        "connectable":true,"connmode":"auto","state":"connected","uptime":100,"l3_device":"eth0","proto":"dhcp",
        "device":"eth0","metric":0,"ipv4-address":[{"address":"192.0.2.2","mask":24}],"ipv6-address":[],
        "ipv6-prefix":[],"ipv6-prefix-assignment":[],"route":[{"target":"0.0.0.0"}],"dns-server":["192.0.2.1"],
        "dns-search":[],"inactive":{"route":[]},"data":{"leasetime":3600}})"),
              NETWORK_CONNECTED);
}

// holds: bus-status-reply
TEST_F(bus_replies, a_status_without_a_state_is_unknown)
{
    EXPECT_EQ(interface_state(R"({"up":true})"), NETWORK_UNKNOWN);
    EXPECT_TRUE(log.has("Info", "ubus_call_network_interface_cb",
                        R"(Error parsing data:"speed" in ubus call network.interface status '{"interface":"..."}')"));
}

// holds: bus-status-without-state
TEST_F(bus_replies, a_status_without_a_state_is_judged_by_its_three_flags)
{
    const auto judged = [this](const char *up, const char *pending, const char *available) {
        return interface_state(std::string(R"({"up":)") + up + R"(,"pending":)" + pending + R"(,"available":)" +
                               available + R"(,"proto":"dhcp"})");
    };
    EXPECT_EQ(judged("true", "false", "true"), NETWORK_CONNECTED);
    EXPECT_EQ(judged("true", "true", "false"), NETWORK_CONNECTED);
    EXPECT_EQ(judged("false", "true", "true"), NETWORK_CONNECTING);
    EXPECT_EQ(judged("false", "true", "false"), NETWORK_CONNECTING);
    EXPECT_EQ(judged("false", "false", "true"), NETWORK_DISCONNECTED);
    EXPECT_EQ(judged("false", "false", "false"), NETWORK_DISCONNECTED);
    EXPECT_EQ(log.count("Info", "ubus_call_network_interface_cb",
                        R"(Error parsing data:"speed" in ubus call network.interface status '{"interface":"..."}')"),
              6);
}

// holds: bus-status-without-state
TEST_F(bus_replies, a_status_without_a_state_and_one_of_its_flags_is_unknown)
{
    EXPECT_EQ(interface_state(R"({"pending":false,"available":true})"), NETWORK_UNKNOWN);
    EXPECT_EQ(interface_state(R"({"up":true,"available":true})"), NETWORK_UNKNOWN);
    EXPECT_EQ(interface_state(R"({"up":true,"pending":false})"), NETWORK_UNKNOWN);
    EXPECT_EQ(interface_state(R"({"up":1,"pending":false,"available":true})"), NETWORK_UNKNOWN);
}

// holds: bus-status-without-state
TEST_F(bus_replies, a_state_in_a_word_wins_over_the_flags)
{
    EXPECT_EQ(interface_state(R"({"up":true,"pending":false,"available":true,"state":"disconnected"})"),
              NETWORK_DISCONNECTED);
}

// holds: bus-text
TEST_F(bus_replies, a_state_is_logged_without_control_characters_and_cut)
{
    EXPECT_EQ(interface_state(R"({"state":"a\nb\u001b[2J)" + std::string(5000, 'x') + "\"}"), NETWORK_DISCONNECTED);
    EXPECT_TRUE(log.has("Debug", "ubus_call_network_interface_cb",
                        R"(ubus success get network.interface status '{"interface":"..."}' state=a?b?[2J)" +
                            std::string(255 - 7, 'x')));
}

TEST_F(bus_replies, an_empty_status_is_unknown)
{
    EXPECT_EQ(interface_state(), NETWORK_UNKNOWN);
    EXPECT_EQ(interface_state("{}"), NETWORK_UNKNOWN);
}

TEST_F(bus_replies, a_state_that_is_no_text_is_unknown)
{
    for (const char *state : {"5", "true", "null", "[\"connected\"]", "{}", "1.5", "99999999999"})
        EXPECT_EQ(interface_state(std::string(R"({"state":)") + state + "}"), NETWORK_UNKNOWN) << state;
}

// holds: bus-status-reply
TEST_F(bus_replies, a_malformed_status_is_unknown)
{
    fill_malformed();
    EXPECT_EQ(interface_state(), NETWORK_UNKNOWN);
    EXPECT_TRUE(log.has("Info", "ubus_call_network_interface_cb",
                        R"(Error parsing ubus call network.interface status '{"interface":"..."}')"));
}

TEST_F(bus_replies, no_message_at_all_is_unknown)
{
    int state = 77;
    request.priv = &state;
    ubus_call_network_interface_cb(&request, UBUS_MSG_DATA, nullptr);
    EXPECT_EQ(state, NETWORK_UNKNOWN);
    request.priv = nullptr;
    ubus_call_network_interface_cb(&request, UBUS_MSG_DATA, nullptr);
}

TEST_F(bus_replies, a_device_status_is_stored_in_the_device)
{
    fill(R"({"up":true,"link":true})");
    device_reply(dev);
    EXPECT_EQ(dev->active, 1);
    EXPECT_EQ(dev->link_active, 1);
    EXPECT_TRUE(log.has("Debug", "ubus_call_network_device_cb", "Device:eth0 status update: up:true, link:true"));
    blob_buf_init(&message, 0);
    fill(R"({"up":true,"link":false})");
    device_reply(dev);
    EXPECT_EQ(dev->link_active, 0);
    EXPECT_TRUE(log.has("Debug", "ubus_call_network_device_cb", "Device:eth0 status update: up:true, link:false"));
}

TEST_F(bus_replies, a_device_status_with_a_member_missing_changes_nothing)
{
    fill(R"({"link":true})");
    device_reply(dev);
    EXPECT_TRUE(log.has("Error", "ubus_call_network_device_cb",
                        R"(Error parsing data:"up" in ubus call network.device status '{"name":"eth0"}')"));
    blob_buf_init(&message, 0);
    fill(R"({"up":true,"link":"yes"})");
    device_reply(dev);
    EXPECT_TRUE(log.has("Error", "ubus_call_network_device_cb",
                        R"(Error parsing data:"link" in ubus call network.device status '{"name":"eth0"}')"));
    EXPECT_EQ(dev->active, 0);
    EXPECT_EQ(dev->link_active, 0);
}

TEST_F(bus_replies, a_malformed_device_status_changes_nothing)
{
    fill_malformed();
    device_reply(dev);
    EXPECT_TRUE(log.has("Error", "ubus_call_network_device_cb",
                        R"(Error parsing ubus call network.device status '{"name":"eth0"}')"));
    EXPECT_EQ(dev->active, 0);
}

TEST_F(bus_replies, a_device_status_for_no_device_is_refused)
{
    fill(R"({"up":true,"link":true})");
    device_reply(nullptr);
    t_device nameless = {};
    device_reply(&nameless);
    EXPECT_EQ(log.count("Error", "ubus_call_network_device_cb", "Error passing the device pointer when sending ubus!"),
              2);
    EXPECT_EQ(nameless.link_active, 0);
}
