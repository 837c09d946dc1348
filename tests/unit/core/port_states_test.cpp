// SPDX-License-Identifier: MIT
// Link states as the router's script prints them, from well-formed to hopeless. The engine only writes down what it
// hears.
#include "core/link_change.h"
#include "core/link_scan.h"
#include "platform/json_object.h"
#include "tests/unit/platform/adapter_fixture.h"
#include "tests/unit/support/failing_memory.h"

int wan_detect_process_link_change(t_device *dev, bool up)
{
    return engine_handlers.process_link_change(dev, up);
}

namespace {

class port_states : public t_adapter_test {
protected:
    port_states() : eth0(add_port("eth0", 0)), eth1(add_port("eth1", 1)), eth2(add_port("eth2", 2)) {}

    // Lets the script print `text`, and scans.
    int scan(const std::string &text)
    {
        write_file("/tmp/port_states", text);
        write_program(PORT_STATE_COMMAND, "#!/bin/sh\ncat /tmp/port_states\n");
        return update_eth_link_status_using_script(port_model.dev_hashmap_head);
    }
    bool is_execution_error()
    {
        return log.has("Error", "update_eth_link_status_using_script",
                       std::string("Execute command:") + PORT_STATE_COMMAND + " error!");
    }

    t_device *eth0, *eth1, *eth2;
    t_log_capture log;
};

// holds: loss-handed-on-first
TEST_F(port_states, the_loss_of_the_wan_port_is_handed_on_before_the_changes_of_the_ports_ahead_of_it)
{
    port_model.wan_dev = eth2;
    eth2->link_active = 1;
    EXPECT_EQ(scan(R"({"eth0":true,"eth1":true,"eth2":false})"), 1);
    const std::vector<t_link_change> wanted = {{eth2, false}, {eth0, true}, {eth1, true}};
    EXPECT_EQ(engine.link_changes, wanted);
    EXPECT_TRUE(log.has("Info", "update_eth_link_status_using_script",
                        "Single shot scanning found eth2 link change to down, pull trigger!"));
}

// holds: loss-handed-on-first
TEST_F(port_states, a_wan_port_that_comes_up_keeps_its_place)
{
    port_model.wan_dev = eth2;
    EXPECT_EQ(scan(R"({"eth0":true,"eth1":false,"eth2":true})"), 1);
    const std::vector<t_link_change> wanted = {{eth0, true}, {eth2, true}};
    EXPECT_EQ(engine.link_changes, wanted);
}

// holds: scan-codes
TEST_F(port_states, each_changed_port_is_reported_in_table_order)
{
    eth1->link_active = 1;
    EXPECT_EQ(scan(R"({"eth1":false,"eth2":false,"eth0":true})"), 1);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth0, true}, {eth1, false}}));
    const char *function = "update_eth_link_status_using_script";
    EXPECT_TRUE(log.has("Info", function, "Single shot scanning found eth0 link change to up, pull trigger!"));
    EXPECT_TRUE(log.has("Info", function, "Single shot scanning found eth1 link change to down, pull trigger!"));
    EXPECT_TRUE(
        log.has("Debug", function,
                R"(Success update eth link status using script, result:{"eth1":false,"eth2":false,"eth0":true})"));
}

// holds: scan-codes
TEST_F(port_states, without_a_change_nothing_is_reported)
{
    eth1->link_active = 1;
    EXPECT_EQ(scan(R"({"eth0":false,"eth1":true,"eth2":false})"), 0);
    EXPECT_TRUE(engine.link_changes.empty());
}

// holds: script-forgets-port
TEST_F(port_states, a_port_missing_from_the_output_is_logged_and_left_alone_and_the_others_are_processed)
{
    eth1->link_active = 1;
    EXPECT_EQ(scan(R"({"eth0":true,"eth2":true})"), 1);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth0, true}, {eth2, true}}));
    EXPECT_EQ(eth1->link_active, 1);
    EXPECT_TRUE(log.has("Error", "update_eth_link_status_using_script",
                        R"(Invalid device state for:eth1! Response:{"eth0":true,"eth2":true})"));
}

TEST_F(port_states, a_null_state_counts_as_missing)
{
    EXPECT_EQ(scan(R"({"eth0":null,"eth1":true,"eth2":false})"), 1);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth1, true}}));
    EXPECT_TRUE(log.has("Error", "update_eth_link_status_using_script",
                        R"(Invalid device state for:eth0! Response:{"eth0":null,"eth1":true,"eth2":false})"));
}

TEST_F(port_states, ports_that_the_model_does_not_know_are_ignored)
{
    EXPECT_EQ(scan(R"({"eth0":false,"eth1":false,"eth2":false,"eth9":true,"":true})"), 0);
    EXPECT_TRUE(engine.link_changes.empty());
}

TEST_F(port_states, states_of_other_types_are_read_as_booleans)
{
    EXPECT_EQ(scan(R"({"eth0":1,"eth1":"up","eth2":0})"), 1);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth0, true}, {eth1, true}}));
}

// holds: script-no-json
TEST_F(port_states, output_that_is_no_json_is_an_execution_error)
{
    const std::string deep(400, '[');
    for (const std::string &text :
         {std::string(), std::string("garbage"), std::string("{\"eth0\":tr"), std::string("{\"eth0\" true}"), deep,
          std::string("\xff\xfe\x00\x01", 4), std::string("\0{}", 3)}) {
        t_log_capture own_log;
        EXPECT_EQ(scan(text), 0) << text;
        EXPECT_TRUE(own_log.has("Error", "update_eth_link_status_using_script",
                                std::string("Execute command:") + PORT_STATE_COMMAND + " error!"))
            << text;
    }
    EXPECT_TRUE(engine.link_changes.empty());
}

// holds: script-no-object
TEST_F(port_states, json_that_is_no_object_tells_of_no_port)
{
    eth1->link_active = 1;
    const std::string function = "update_eth_link_status_using_script";
    for (const std::string text : {"[]", "[true,false]", "true", "7", "\"eth0\"", "null"}) {
        t_log_capture own_log;
        EXPECT_EQ(scan(text), 0) << text;
        std::vector<std::string> said;
        for (const t_log_line &line : own_log.lines())
            said.push_back(line.level + " " + line.body);
        EXPECT_EQ(said, (std::vector<std::string>{"Debug Success update eth link status using script, result:" + text,
                                                  "Error Invalid device state for:eth0! Response:" + text,
                                                  "Error Invalid device state for:eth1! Response:" + text,
                                                  "Error Invalid device state for:eth2! Response:" + text}));
    }
    EXPECT_TRUE(engine.link_changes.empty());
}

TEST_F(port_states, without_memory_to_parse_with_the_output_counts_as_none)
{
    write_file("/tmp/port_states", R"({"eth0":true})");
    write_program(PORT_STATE_COMMAND, "#!/bin/sh\ncat /tmp/port_states\n");
    {
        t_memory_shortage shortage(0, JSON_PARSER_MEMORY);
        EXPECT_EQ(update_eth_link_status_using_script(port_model.dev_hashmap_head), 0);
    }
    EXPECT_TRUE(is_execution_error());
    EXPECT_TRUE(engine.link_changes.empty());
    EXPECT_EQ(update_eth_link_status_using_script(port_model.dev_hashmap_head), 1);
}

TEST_F(port_states, an_empty_object_leaves_every_port_alone)
{
    eth0->link_active = 1;
    EXPECT_EQ(scan("{}"), 0);
    EXPECT_EQ(log.count("Error", "", "Invalid device state for:eth0! Response:{}"), 1);
    EXPECT_EQ(eth0->link_active, 1);
}

// holds: script-output-bound
TEST_F(port_states, exactly_512_bytes_of_output_are_read)
{
    std::string text = R"({"eth0":true,"eth1":true,"eth2":true)";
    text += std::string(PORT_STATE_SIZE - text.size() - 1, ' ') + "}";
    ASSERT_EQ(text.size(), PORT_STATE_SIZE);
    EXPECT_EQ(scan(text), 1);
    EXPECT_EQ(engine.link_changes.size(), 3u);
}

// holds: script-output-bound
TEST_F(port_states, output_of_600_bytes_is_cut_and_therefore_an_execution_error)
{
    std::string text = R"({"eth0":true,"padding":")" + std::string(600, 'x') + R"("})";
    EXPECT_EQ(scan(text), 0);
    EXPECT_TRUE(is_execution_error());
    EXPECT_TRUE(engine.link_changes.empty());
}

TEST_F(port_states, what_follows_a_whole_object_is_ignored)
{
    EXPECT_EQ(scan(R"({"eth0":true,"eth1":false,"eth2":false})" + std::string(600, '\n')), 1);
    EXPECT_EQ(engine.link_changes.size(), 1u);
}

TEST_F(port_states, a_missing_script_is_an_execution_error)
{
    EXPECT_EQ(update_eth_link_status_using_script(port_model.dev_hashmap_head), 0);
    EXPECT_TRUE(is_execution_error());
}

// holds: scan-codes
TEST_F(port_states, a_script_that_cannot_be_started_changes_nothing)
{
    eth0->link_active = 1;
    {
        const t_no_shell no_shell;
        EXPECT_EQ(scan(R"({"eth0":false})"), 0);
    }
    EXPECT_FALSE(is_execution_error());
    EXPECT_TRUE(engine.link_changes.empty());
}

TEST_F(port_states, a_failing_script_is_believed_when_its_output_is_whole)
{
    write_program(PORT_STATE_COMMAND, "#!/bin/sh\necho '{\"eth0\":true,\"eth1\":false,\"eth2\":false}'\nexit 1\n");
    EXPECT_EQ(update_eth_link_status_using_script(port_model.dev_hashmap_head), 1);
}

TEST_F(port_states, an_empty_table_has_no_changes)
{
    EXPECT_EQ(scan("{}"), 0);
    EXPECT_EQ(update_eth_link_status_using_script(nullptr), 0);
}

// holds: scan-codes
TEST_F(port_states, the_plain_update_traces_scans_and_returns_0)
{
    write_program(PORT_STATE_COMMAND, "#!/bin/sh\necho '{\"eth0\":true,\"eth1\":false,\"eth2\":false}'\n");
    EXPECT_EQ(update_eth_link_status(port_model.dev_hashmap_head), 0);
    EXPECT_EQ(engine.link_changes, (std::vector<t_link_change>{{eth0, true}}));
    EXPECT_TRUE(log.has("Debug", "update_eth_link_status", "Entering function: update_eth_link_status!"));
}

} // namespace
