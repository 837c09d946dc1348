// SPDX-License-Identifier: MIT
// Link states of a combo port as the router's script prints them, from well-formed to hopeless.
#include "adapters/link_status.h"
#include "tests/unit/platform/adapter_fixture.h"

namespace {

class combo_state : public t_adapter_test {
protected:
    combo_state() : combo(add_combo_port("eth5", 5, SUB_PORT_PHY)) {}

    int refresh(const std::string &text)
    {
        write_file("/tmp/combo_state", text);
        write_program("/etc/wan_detect/get_combo_state.sh", "#!/bin/sh\necho \"$@\" >> /tmp/calls_of_combo\n"
                                                            "cat /tmp/combo_state\n");
        return update_combo_device_status(combo);
    }
    bool says(const std::string &body) { return log.has("Error", "update_combo_device_status", body); }

    t_device *combo;
    t_log_capture log;
};

} // namespace

TEST_F(combo_state, is_asked_for_by_port_number)
{
    EXPECT_EQ(refresh(R"({"phy":false,"sfp":false,"serdes":"phy"})"), 0);
    EXPECT_EQ(calls_of("combo"), "port5\n");
}

// holds: combo-codes
TEST_F(combo_state, a_link_change_of_either_side_is_a_change)
{
    EXPECT_EQ(refresh(R"({"phy":true,"sfp":false,"serdes":"phy"})"), 1);
    EXPECT_EQ(combo->phy_link, 1);
    EXPECT_EQ(refresh(R"({"phy":true,"sfp":true,"serdes":"phy"})"), 1);
    EXPECT_EQ(combo->sfp_link, 1);
    EXPECT_EQ(refresh(R"({"phy":false,"sfp":true,"serdes":"phy"})"), 1);
    EXPECT_EQ(combo->phy_link, 0);
    EXPECT_EQ(refresh(R"({"phy":false,"sfp":true,"serdes":"phy"})"), 0);
    EXPECT_EQ(refresh(R"({"phy":true,"sfp":false,"serdes":"phy"})"), 1);
}

TEST_F(combo_state, both_links_may_change_at_once)
{
    combo->sfp_link = 1;
    EXPECT_EQ(refresh(R"({"phy":true,"sfp":false,"serdes":"phy"})"), 1);
    EXPECT_EQ(combo->phy_link, 1);
    EXPECT_EQ(combo->sfp_link, 0);
}

// holds: combo-side-alone, combo-codes
TEST_F(combo_state, a_change_of_the_side_in_use_alone_is_stored_but_no_change)
{
    EXPECT_EQ(refresh(R"({"phy":false,"sfp":false,"serdes":"sfp"})"), 0);
    EXPECT_EQ(combo->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(refresh(R"({"phy":false,"sfp":false,"serdes":"phy"})"), 0);
    EXPECT_EQ(combo->sub_port, SUB_PORT_PHY);
}

TEST_F(combo_state, any_other_side_than_sfp_means_phy)
{
    for (const char *serdes : {"\"copper\"", "\"\"", "\"sfp+\"", "7", "true", "{}"}) {
        combo->sub_port = SUB_PORT_SFP;
        EXPECT_EQ(refresh(std::string(R"({"phy":false,"sfp":false,"serdes":)") + serdes + "}"), 0);
        EXPECT_EQ(combo->sub_port, SUB_PORT_PHY) << serdes;
    }
}

TEST_F(combo_state, each_missing_member_is_logged_and_left_alone)
{
    combo->sfp_link = 1;
    combo->sub_port = SUB_PORT_SFP;
    EXPECT_EQ(refresh(R"({"phy":true})"), 1);
    EXPECT_TRUE(says(R"(Invalid sfp state! Response:{"phy":true})"));
    EXPECT_TRUE(says(R"(Invalid serdes state! Response:{"phy":true})"));
    EXPECT_EQ(combo->phy_link, 1);
    EXPECT_EQ(combo->sfp_link, 1);
    EXPECT_EQ(combo->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(refresh(R"({"serdes":"phy"})"), 0);
    EXPECT_TRUE(says(R"(Invalid phy state! Response:{"serdes":"phy"})"));
    EXPECT_EQ(combo->phy_link, 1);
    EXPECT_EQ(combo->sub_port, SUB_PORT_PHY);
}

// holds: script-no-json
TEST_F(combo_state, output_that_is_no_json_is_an_execution_error)
{
    for (const char *text : {"", "garbage", "{\"phy\":"}) {
        t_log_capture own_log;
        EXPECT_EQ(refresh(text), 0) << text;
        EXPECT_TRUE(own_log.has("Error", "update_combo_device_status",
                                "Execute command:/etc/wan_detect/get_combo_state.sh port5 error!"))
            << text;
    }
    EXPECT_EQ(combo->sub_port, SUB_PORT_PHY);
}

// holds: script-no-object
TEST_F(combo_state, json_that_is_no_object_has_no_state)
{
    for (const std::string text : {"[]", "true", "7", "null"}) {
        t_log_capture own_log;
        EXPECT_EQ(refresh(text), 0) << text;
        std::vector<std::string> said;
        for (const t_log_line &line : own_log.lines())
            said.push_back(line.level + " " + line.body);
        EXPECT_EQ(said, (std::vector<std::string>{"Error Invalid phy state! Response:" + text,
                                                  "Error Invalid sfp state! Response:" + text,
                                                  "Error Invalid serdes state! Response:" + text}));
    }
    EXPECT_EQ(combo->sub_port, SUB_PORT_PHY);
}

TEST_F(combo_state, a_missing_script_is_an_execution_error)
{
    EXPECT_EQ(update_combo_device_status(combo), 0);
    EXPECT_TRUE(says("Execute command:/etc/wan_detect/get_combo_state.sh port5 error!"));
}

// holds: combo-codes
TEST_F(combo_state, a_script_that_cannot_be_started_changes_nothing)
{
    {
        const t_no_shell no_shell;
        EXPECT_EQ(refresh(R"({"phy":true,"sfp":true,"serdes":"sfp"})"), 0);
    }
    EXPECT_EQ(combo->phy_link, 0);
    EXPECT_EQ(combo->sub_port, SUB_PORT_PHY);
    EXPECT_FALSE(says("Execute command:/etc/wan_detect/get_combo_state.sh port5 error!"));
}

// holds: script-output-bound
TEST_F(combo_state, exactly_128_bytes_of_output_are_read)
{
    std::string text = R"({"phy":true,"sfp":true,"serdes":"sfp")";
    text += std::string(COMBO_STATE_SIZE - text.size() - 1, ' ') + "}";
    ASSERT_EQ(text.size(), COMBO_STATE_SIZE);
    EXPECT_EQ(refresh(text), 1);
    EXPECT_EQ(combo->sub_port, SUB_PORT_SFP);
    EXPECT_EQ(refresh(" " + text), 0);
    EXPECT_TRUE(says("Execute command:/etc/wan_detect/get_combo_state.sh port5 error!"));
}
