// SPDX-License-Identifier: MIT
// The methods and the event of the object "wan_detect", called over a real bus.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <regex>
#include <thread>

#include "adapters/bus_object.h"
#include "model/banned.h"
#include "model/chronicle.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/platform/failing_messages.h"
#include "tests/unit/support/this_build.h"

namespace {

class bus_object : public t_adapter_test {
protected:
    bus_object()
        : eth0(add_port("eth0", 0)), eth1(add_port("eth1", 1)), dhcp(add_proto("dhcp")), pppoe(add_proto("pppoe"))
    {
        uloop_handle_sigchld = false;
        uloop_init();
        offer = wan_detect_bus_exports();
        EXPECT_EQ(wan_detect_ubus_init(offer), 0);
        client = std::make_unique<t_bus_client>(BUS_SOCKET_PATH);
        EXPECT_TRUE(client->is_connected());
    }
    ~bus_object() override
    {
        client.reset();
        wan_detect_ubus_done();
        wan_detect_bus_exports_release();
        uloop_done();
        log_close();
        std::filesystem::remove("/tmp/wan_detect.log");
    }

    // The code in the one reply of a call that the bus calls a success; no code otherwise.
    std::optional<int> reply_to(const char *method, const std::string &json)
    {
        return only_code(client->call(method, json));
    }
    // The same for a message that says its field is a 32-bit number and is too short for one.
    std::optional<int> reply_to_malformed(const char *method, const char *field)
    {
        t_message message;
        blobmsg_add_field(&message.buffer, BLOBMSG_TYPE_INT32, field, "\0", 2);
        return only_code(client->call("wan_detect", method, message.buffer.head));
    }
    static std::optional<int> only_code(const t_call_result &result)
    {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.replies, 1);
        return result.err_code;
    }

    // Sends the ban event and waits until the object has looked at it: a call that follows on the bus is answered
    // later.
    void send_ban(const std::string &json)
    {
        EXPECT_TRUE(client->send_event(json));
        wait_for_a_reply();
    }
    void wait_for_a_reply() { EXPECT_EQ(reply_to("wan_detect", "{}"), 0); }
    bool is_banned(const t_device *dev) { return is_banned_device(&port_model.banned_list, dev); }

    const t_proto_detect_request &last_request()
    {
        static const t_proto_detect_request none = {-1, nullptr, nullptr};
        return engine.proto_detections.empty() ? none : engine.proto_detections.back();
    }

    t_bus_daemon bus{BUS_SOCKET_PATH};
    t_device *eth0, *eth1;
    t_protocol *dhcp, *pppoe;
    const t_bus_exports *offer;
    std::unique_ptr<t_bus_client> client;
    t_log_capture log;
};

} // namespace

TEST_F(bus_object, is_published_with_its_five_methods_and_their_arguments)
{
    char listing[1024];
    std::string program = BIN_FOLDER + "/ubus";
    if (!file_exists(program))
        program = "ubus";
    std::thread caller;
    std::atomic<bool> done = false;
    caller = std::thread([&] {
        capture_command(listing, (program + " -s " + BUS_SOCKET_PATH + " -v list wan_detect").c_str());
        done = true;
    });
    EXPECT_TRUE(loop_until([&done] { return done.load(); }));
    caller.join();
    const std::string wanted =
        "\t\"log\":{\"level\":\"Integer\"}\n"
        "\t\"proto_detect\":{\"device\":\"String\",\"protocol\":\"String\",\"timeout\":\"Integer\"}\n"
        "\t\"set\":{\"enable\":\"Boolean\"}\n"
        "\t\"hotplug\":{\"name\":\"String\",\"status\":\"Boolean\"}\n"
        "\t\"wan_detect\":{\"delay\":\"Integer\"}\n";
    EXPECT_EQ(std::string(listing).rfind("'wan_detect' @", 0), 0u) << listing;
    EXPECT_NE(std::string(listing).find(wanted), std::string::npos) << listing;
}

TEST_F(bus_object, answers_the_command_line_program)
{
    char answer[256];
    std::string program = BIN_FOLDER + "/ubus";
    if (!file_exists(program))
        program = "ubus";
    std::atomic<bool> done = false;
    std::thread caller([&] {
        std::string command = program + " -S -s " + BUS_SOCKET_PATH + " call wan_detect wan_detect '{\"delay\":5}'";
        capture_command(answer, command.c_str());
        done = true;
    });
    EXPECT_TRUE(loop_until([&done] { return done.load(); }));
    caller.join();
    EXPECT_STREQ(answer, "{\"err_code\":0}\n");
    EXPECT_EQ(engine.detections, std::vector<int>{5000});
}

// holds: bus-log-off
TEST_F(bus_object, log_stores_each_level_from_0_to_7)
{
    write_file("/tmp/wan_detect.log", "");
    for (int level = 0; level <= 7; level++) {
        EXPECT_EQ(reply_to("log", R"({"level":)" + std::to_string(level) + "}"), 0);
        EXPECT_EQ(log_get_level(), level);
    }
}

TEST_F(bus_object, log_tells_the_new_level_whatever_it_is)
{
    write_file("/tmp/wan_detect.log", "");
    EXPECT_EQ(reply_to("log", R"({"level":0})"), 0);
    log_close();
    EXPECT_TRUE(std::regex_search(
        read_file("/tmp/wan_detect.log"),
        std::regex("\\[\\d+\\]\033\\[1m\\[ wan_detect_set_dbg_level \\] \\d{3,}: set debug level:0\\.\033\\[0m\n\r")))
        << read_file("/tmp/wan_detect.log");
}

TEST_F(bus_object, log_opens_the_destination)
{
    write_file("/tmp/wan_detect.log", "");
    EXPECT_EQ(reply_to("log", R"({"level":7})"), 0);
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth9","status":true})"), ERR_NOTHING_DONE);
    EXPECT_NE(read_file("/tmp/wan_detect.log").find("]: Device eth9 doesn't existed!\n"), std::string::npos);
}

// holds: bus-log-refused
TEST_F(bus_object, log_with_level_8_or_minus_2_is_refused_and_names_7_and_0_as_its_bounds)
{
    int before = log_get_level();
    for (const char *level : {"8", "-2", "2147483647", "-2147483648"}) {
        EXPECT_EQ(reply_to("log", std::string(R"({"level":)") + level + "}"), -1);
        EXPECT_TRUE(log.has("Debug", "wan_detect_set_dbg_level", std::string("Ubus -debug -set rec:") + level));
        EXPECT_TRUE(log.has("Error", "wan_detect_set_dbg_level",
                            std::string("set debug level(") + level +
                                ") error, should be between 7 and 0, or -1 to close output"));
    }
    EXPECT_EQ(log_get_level(), before);
}

// holds: bus-log-off
TEST_F(bus_object, log_with_minus_1_turns_the_output_off)
{
    write_file("/tmp/wan_detect.log", "");
    EXPECT_EQ(reply_to("log", R"({"level":7})"), 0);
    std::string before = read_file("/tmp/wan_detect.log");
    EXPECT_EQ(reply_to("log", R"({"level":-1})"), 0);
    EXPECT_EQ(log_get_level(), 0);
    std::string while_open = read_file("/tmp/wan_detect.log");
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth9","status":true})"), ERR_NOTHING_DONE);
    EXPECT_EQ(read_file("/tmp/wan_detect.log"), while_open);
    EXPECT_EQ(log.text().find("eth9"), std::string::npos);
    // The descriptors are those from before again, so the new level is told there.
    EXPECT_NE(log.text().find("set debug level:-1."), std::string::npos);
}

// holds: bus-log-refused
TEST_F(bus_object, log_without_a_level_is_refused)
{
    int before = log_get_level();
    for (const char *arguments : {"{}", R"({"level":"7"})", R"({"level":true})", R"({"level":7.0})",
                                  R"({"level":99999999999})", R"({"level":null})", R"({"Level":7})"})
        EXPECT_EQ(reply_to("log", arguments), -1) << arguments;
    EXPECT_EQ(reply_to_malformed("log", "level"), -1);
    EXPECT_EQ(log_get_level(), before);
}

// holds: bus-request-time
TEST_F(bus_object, proto_detect_without_arguments_asks_for_everything_with_the_default_time)
{
    EXPECT_EQ(reply_to("proto_detect", "{}"), 0);
    ASSERT_EQ(engine.proto_detections.size(), 1u);
    EXPECT_EQ(last_request().timeout_ms, 2000);
    EXPECT_EQ(last_request().dev, nullptr);
    EXPECT_EQ(last_request().protocol, nullptr);
}

TEST_F(bus_object, proto_detect_passes_its_port_protocol_and_time)
{
    EXPECT_EQ(reply_to("proto_detect", R"({"device":"eth1","protocol":"pppoe","timeout":3000})"), 0);
    EXPECT_EQ(last_request().timeout_ms, 3000);
    EXPECT_EQ(last_request().dev, eth1);
    EXPECT_EQ(last_request().protocol, pppoe);
    EXPECT_TRUE(log.has("Debug", "ubus_protocol_detect", "Ubus proto_detect.device rec:eth1"));
    EXPECT_TRUE(log.has("Debug", "ubus_protocol_detect", "Ubus proto_detect.protocol rec:pppoe"));
}

TEST_F(bus_object, proto_detect_forgets_the_request_before)
{
    reply_to("proto_detect", R"({"device":"eth1","protocol":"pppoe","timeout":3000})");
    reply_to("proto_detect", "{}");
    EXPECT_EQ(last_request().timeout_ms, 2000);
    EXPECT_EQ(last_request().dev, nullptr);
    EXPECT_EQ(last_request().protocol, nullptr);
}

// holds: bus-request-time
TEST_F(bus_object, proto_detect_keeps_times_from_1000_to_4000_and_takes_2000_for_others)
{
    for (int timeout : {1000, 1001, 3999, 4000}) {
        reply_to("proto_detect", R"({"timeout":)" + std::to_string(timeout) + "}");
        EXPECT_EQ(last_request().timeout_ms, timeout);
    }
    EXPECT_EQ(
        log.count("Error", "ubus_protocol_detect", "timeout must in the range [1000,4000]ms, set to default 2000ms!"),
        0);
    for (int timeout : {999, 4001, 0, -1, INT32_MAX, INT32_MIN}) {
        reply_to("proto_detect", R"({"timeout":)" + std::to_string(timeout) + "}");
        EXPECT_EQ(last_request().timeout_ms, 2000);
    }
    EXPECT_EQ(
        log.count("Error", "ubus_protocol_detect", "timeout must in the range [1000,4000]ms, set to default 2000ms!"),
        6);
}

// holds: bus-request-static
TEST_F(bus_object, proto_detect_with_an_unsupported_protocol_still_starts_without_one)
{
    add_proto("static");
    EXPECT_EQ(reply_to("proto_detect", R"({"protocol":"static"})"), 0);
    EXPECT_TRUE(log.has("Error", "ubus_protocol_detect", "Protocol:static not supported! dhcp/pppoe only!"));
    ASSERT_EQ(engine.proto_detections.size(), 1u);
    EXPECT_EQ(last_request().protocol, nullptr);
}

// holds: bus-request-static
TEST_F(bus_object, proto_detect_with_a_longer_name_passes_the_prefix_and_fails_the_table)
{
    EXPECT_EQ(reply_to("proto_detect", R"({"protocol":"dhcpx"})"), 0);
    EXPECT_TRUE(log.has("Error", "ubus_protocol_detect", "Protocol:dhcpx doesn't existed!"));
    EXPECT_FALSE(log.has("Error", "ubus_protocol_detect", "Protocol:dhcpx not supported! dhcp/pppoe only!"));
    EXPECT_EQ(last_request().protocol, nullptr);
}

TEST_F(bus_object, proto_detect_for_an_unknown_port_starts_for_none)
{
    EXPECT_EQ(reply_to("proto_detect", R"({"device":"eth7","protocol":"dhcp"})"), 0);
    EXPECT_TRUE(log.has("Error", "ubus_protocol_detect", "Device:eth7 doesn't existed!"));
    EXPECT_EQ(last_request().dev, nullptr);
    EXPECT_EQ(last_request().protocol, dhcp);
}

TEST_F(bus_object, proto_detect_reads_255_characters_of_a_name)
{
    EXPECT_EQ(reply_to("proto_detect", R"({"device":")" + std::string(255, 'd') + R"(","protocol":"dhcp)" +
                                           std::string(4000, 'p') + "\"}"),
              0);
    EXPECT_TRUE(log.has("Error", "ubus_protocol_detect", "Device:" + std::string(255, 'd') + " doesn't existed!"));
    EXPECT_TRUE(
        log.has("Error", "ubus_protocol_detect", "Protocol:dhcp" + std::string(251, 'p') + " doesn't existed!"));
}

TEST_F(bus_object, proto_detect_ignores_empty_names_and_arguments_of_other_types)
{
    EXPECT_EQ(reply_to("proto_detect", R"({"device":"","protocol":""})"), 0);
    EXPECT_EQ(reply_to("proto_detect", R"({"device":1,"protocol":["dhcp"],"timeout":"3000"})"), 0);
    EXPECT_EQ(last_request().timeout_ms, 2000);
    EXPECT_EQ(last_request().dev, nullptr);
    EXPECT_EQ(last_request().protocol, nullptr);
}

// holds: bus-request-codes
TEST_F(bus_object, proto_detect_replies_what_the_engine_says)
{
    engine.proto_detect_result = ERR_BUSY;
    EXPECT_EQ(reply_to("proto_detect", "{}"), ERR_BUSY);
}

// holds: bus-request-codes
TEST_F(bus_object, proto_detect_with_a_malformed_message_starts_nothing)
{
    EXPECT_EQ(reply_to_malformed("proto_detect", "timeout"), -1);
    EXPECT_TRUE(engine.proto_detections.empty());
}

// holds: bus-set-on, chronicle-openers
TEST_F(bus_object, set_to_on_starts_a_detection_before_the_flag_is_stored)
{
    static uint8_t flag_at_start;
    flag_at_start = 77;
    engine_handlers.start_wan_detect_all = [](int delay_ms) {
        EXPECT_EQ(delay_ms, 0);
        flag_at_start = port_model.enable;
    };
    EXPECT_EQ(reply_to("set", R"({"enable":true})"), 0);
    EXPECT_EQ(flag_at_start, 0);
    EXPECT_EQ(port_model.enable, 1);
    EXPECT_EQ(chronicle.asked_opener, t_opener::switched_on);
    EXPECT_TRUE(log.has("Info", "wan_detect_settings", "wan detect success turn on!"));
}

// holds: bus-set-on
TEST_F(bus_object, set_to_on_while_on_starts_no_detection)
{
    port_model.enable = 1;
    EXPECT_EQ(reply_to("set", R"({"enable":true})"), 0);
    EXPECT_TRUE(engine.detections.empty());
    EXPECT_EQ(port_model.enable, 1);
}

// holds: bus-set-on
TEST_F(bus_object, set_to_off_removes_the_fake_wan_port)
{
    write_config("network", "config auto_wan_detect 'auto_wan_detect'\n\toption fake_wan_port 'port1'\n");
    port_model.enable = 1;
    port_model.fake_wan = eth1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(reply_to("set", R"({"enable":false})"), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(port_model.enable, 0);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_NE(read_file("/etc/config/network").find("option fake_wan_port '-1'"), std::string::npos);
    EXPECT_TRUE(engine.detections.empty());
    EXPECT_TRUE(log.has("Info", "wan_detect_settings", "wan detect success turn off!"));
}

// holds: bus-set-malformed
TEST_F(bus_object, set_without_a_boolean_is_refused)
{
    port_model.enable = 1;
    for (const char *arguments : {"{}", R"({"enable":"false"})", R"({"enable":0})", R"({"enable":null})"})
        EXPECT_EQ(reply_to("set", arguments), -1) << arguments;
    EXPECT_EQ(reply_to_malformed("set", "enable"), -1);
    EXPECT_EQ(port_model.enable, 1);
}

TEST_F(bus_object, hotplug_reports_a_link_change_to_the_engine)
{
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1","status":true})"), 0);
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1","status":false})"), 0);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth1, true}, {eth1, false}}));
    EXPECT_TRUE(log.has("Info", "device_hotplug_event", "Device eth1 link status change to up by ubus!"));
    EXPECT_TRUE(log.has("Info", "device_hotplug_event", "Device eth1 link status change to down by ubus!"));
}

// holds: bus-hotplug-codes
TEST_F(bus_object, hotplug_with_an_unchanged_status_changes_nothing)
{
    eth1->link_active = 1;
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1","status":true})"), 0);
    EXPECT_TRUE(engine.link_changes.empty());
    EXPECT_TRUE(log.has("Debug", "device_hotplug_event", "Device eth1 status not change!"));
}

// holds: bus-hotplug-codes
TEST_F(bus_object, hotplug_of_an_unknown_port_is_refused)
{
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth9","status":true})"), ERR_NOTHING_DONE);
    EXPECT_TRUE(log.has("Error", "device_hotplug_event", "Device eth9 doesn't existed!"));
    EXPECT_EQ(reply_to("hotplug", R"({"name":"","status":true})"), ERR_NOTHING_DONE);
    EXPECT_EQ(reply_to("hotplug", R"({"name":")" + std::string(5000, 'e') + R"(","status":true})"), ERR_NOTHING_DONE);
    EXPECT_TRUE(engine.link_changes.empty());
}

// holds: bus-hotplug-malformed
TEST_F(bus_object, hotplug_without_a_name_or_a_status_is_invalid)
{
    EXPECT_EQ(reply_to("hotplug", R"({"status":true})"), ERR_INVALID_INPUT);
    EXPECT_EQ(reply_to("hotplug", "{}"), ERR_INVALID_INPUT);
    EXPECT_EQ(reply_to("hotplug", R"({"name":5,"status":true})"), ERR_INVALID_INPUT);
    EXPECT_EQ(log.count("Error", "device_hotplug_event", "Bad device name"), 3);
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1"})"), ERR_INVALID_INPUT);
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1","status":"up"})"), ERR_INVALID_INPUT);
    EXPECT_EQ(log.count("Error", "device_hotplug_event", "Bad device status"), 2);
    EXPECT_EQ(reply_to_malformed("hotplug", "name"), -1);
    EXPECT_TRUE(engine.link_changes.empty());
}

// holds: bus-cycle-delay
TEST_F(bus_object, wan_detect_with_delay_60_starts_after_60_seconds)
{
    EXPECT_EQ(reply_to("wan_detect", R"({"delay":60})"), 0);
    EXPECT_EQ(engine.detections, std::vector<int>{60000});
}

// holds: bus-cycle-delay
TEST_F(bus_object, wan_detect_without_a_delay_starts_at_once)
{
    EXPECT_EQ(reply_to("wan_detect", "{}"), 0);
    EXPECT_EQ(reply_to("wan_detect", R"({"delay":0})"), 0);
    EXPECT_EQ(reply_to("wan_detect", R"({"delay":"60"})"), 0);
    EXPECT_EQ(engine.detections, (std::vector<int>{0, 0, 0}));
}

// holds: bus-cycle-delay
TEST_F(bus_object, wan_detect_with_delay_61_or_a_negative_one_is_refused)
{
    for (const char *delay : {"61", "-1", "2147483647", "-2147483648"}) {
        EXPECT_EQ(reply_to("wan_detect", std::string(R"({"delay":)") + delay + "}"), -1);
        EXPECT_TRUE(
            log.has("Error", "ubus_wan_detect",
                    std::string("start ubus_wan_detect delay_time(") + delay + ") error, should be between 0 and 60!"));
    }
    EXPECT_EQ(reply_to_malformed("wan_detect", "delay"), -1);
    EXPECT_TRUE(engine.detections.empty());
}

TEST_F(bus_object, methods_without_an_engine_reply_all_the_same)
{
    engine_handlers = {};
    EXPECT_EQ(reply_to("wan_detect", "{}"), 0);
    EXPECT_EQ(reply_to("set", R"({"enable":true})"), 0);
    EXPECT_EQ(reply_to("hotplug", R"({"name":"eth1","status":true})"), 0);
    EXPECT_EQ(reply_to("proto_detect", "{}"), ERR_NOTHING_DONE);
}

// holds: bus-no-memory
TEST_F(bus_object, methods_without_memory_for_their_reply_say_so_and_send_none)
{
    ubus_object *object = offer->object;
    ubus_request_data request = {};
    t_message message("{}");
    for (t_refusal what : {t_refusal::of_buffers, t_refusal::of_fields}) {
        t_message_shortage shortage(what);
        for (int i = 0; i < object->n_methods; i++) {
            const ubus_method &method = object->methods[i];
            EXPECT_EQ(method.handler(wan_detect_ubus_context(), object, &request, method.name, message.buffer.head),
                      UBUS_STATUS_NO_MEMORY)
                << method.name;
        }
    }
    EXPECT_EQ(reply_to("wan_detect", "{}"), 0);
}

// holds: bus-text
TEST_F(bus_object, foreign_text_is_logged_without_control_characters)
{
    const std::string foreign = R"("dhcp\n\u001b[2J")", shown = "dhcp??[2J";
    EXPECT_EQ(reply_to("proto_detect", R"({"device":)" + foreign + R"(,"protocol":)" + foreign + "}"), 0);
    EXPECT_EQ(reply_to("proto_detect", R"({"protocol":"\u001bppp"})"), 0);
    EXPECT_EQ(reply_to("hotplug", R"({"status":true,"name":)" + foreign + "}"), ERR_NOTHING_DONE);
    send_ban(R"({"time":5,"name":)" + foreign + "}");
    send_ban(R"({"name":)" + foreign + "}");
    for (const std::string &body :
         {"Ubus proto_detect.device rec:" + shown, "Device:" + shown + " doesn't existed!",
          "Ubus proto_detect.protocol rec:" + shown, "Protocol:" + shown + " doesn't existed!",
          "Device " + shown + " doesn't existed!", std::string("Protocol:?ppp not supported! dhcp/pppoe only!")})
        EXPECT_TRUE(log.has_body(body)) << body;
    EXPECT_EQ(log.text().find('\x1b'), std::string::npos);
}

// holds: bus-text
TEST_F(bus_object, a_port_whose_name_is_not_ascii_is_found_all_the_same)
{
    t_device *odd = add_port("b\xc3\xbcro", 2);
    send_ban(R"({"name":"b\u00fcro","time":100})");
    EXPECT_TRUE(is_banned(odd));
    EXPECT_EQ(reply_to("hotplug", R"({"name":"b\u00fcro","status":true})"), 0);
    EXPECT_EQ(reply_to("proto_detect", R"({"device":"b\u00fcro"})"), 0);
    EXPECT_EQ(last_request().dev, odd);
}

TEST_F(bus_object, an_unknown_method_is_not_found)
{
    EXPECT_EQ(client->call("nothing", "{}").status, UBUS_STATUS_METHOD_NOT_FOUND);
}

// holds: bus-ban-time-0
TEST_F(bus_object, the_ban_event_bans_a_port_for_its_time)
{
    send_ban(R"({"name":"eth1","time":100})");
    EXPECT_TRUE(is_banned(eth1));
    EXPECT_FALSE(is_banned(eth0));
    send_ban(R"({"name":"eth0","time":-1})");
    EXPECT_TRUE(is_banned(eth0));
}

// holds: bus-ban-time-0
TEST_F(bus_object, the_ban_event_with_time_0_removes_the_ban_silently)
{
    send_ban(R"({"name":"eth1","time":100})");
    send_ban(R"({"name":"eth1","time":0})");
    EXPECT_FALSE(is_banned(eth1));
    EXPECT_FALSE(log.has_body("No device banned time, treat as remove the device from banned list!"));
}

// holds: bus-ban-time-0
TEST_F(bus_object, the_ban_event_without_a_time_removes_the_ban_and_says_so)
{
    send_ban(R"({"name":"eth1","time":100})");
    send_ban(R"({"name":"eth1"})");
    EXPECT_FALSE(is_banned(eth1));
    EXPECT_TRUE(log.has("Info", "wan_detect_add_banned_dev",
                        "No device banned time, treat as remove the device from banned list!"));
}

TEST_F(bus_object, the_ban_event_without_a_name_does_nothing)
{
    send_ban(R"({"time":100})");
    send_ban(R"({"name":7,"time":100})");
    EXPECT_EQ(log.count("Error", "wan_detect_add_banned_dev", "Bad device name"), 2);
    EXPECT_EQ(port_model.banned_list.count, 0);
}

TEST_F(bus_object, the_ban_event_for_an_unknown_port_bans_nothing)
{
    send_ban(R"({"name":"eth9","time":100})");
    send_ban(R"({"name":"","time":100})");
    send_ban(R"({"name":")" + std::string(5000, 'e') + R"(","time":100})");
    EXPECT_EQ(port_model.banned_list.count, 0);
}

TEST_F(bus_object, a_malformed_ban_event_is_ignored)
{
    t_message message(R"({"name":"eth1"})");
    blobmsg_add_field(&message.buffer, BLOBMSG_TYPE_INT32, "time", "\0", 2);
    EXPECT_TRUE(client->send_event("wan_detect_add_banned_dev", message.buffer.head));
    wait_for_a_reply();
    EXPECT_EQ(port_model.banned_list.count, 0);
    EXPECT_FALSE(log.has_body("No device banned time, treat as remove the device from banned list!"));
}

TEST_F(bus_object, other_events_are_not_heard)
{
    t_message message(R"({"name":"eth1","time":100})");
    EXPECT_TRUE(client->send_event("wan_detect_add_banned_device", message.buffer.head));
    wait_for_a_reply();
    EXPECT_EQ(port_model.banned_list.count, 0);
}
