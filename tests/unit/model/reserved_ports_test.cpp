// SPDX-License-Identifier: MIT
#include "model/reserved_ports.h"

#include "model/tables.h"
#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class reserved_ports : public t_model_test {
protected:
    reserved_ports()
    {
        for (const char *number : {"1", "2", "3"})
            copy_name(add_port(std::string("eth") + number)->label, (std::string("LAN") + number).c_str());
    }
    int update() { return update_lan_agg_port(port_model.dev_hashmap_head, &port_model.lan_agg[0]); }
    int update_with(std::initializer_list<t_option> options)
    {
        write_config("switch", section("agg", "lan_agg", options));
        return update();
    }
    t_names members() { return names_of(port_model.lan_agg[0]); }

    void gaming_section(const std::string &name, const std::string &ifname)
    {
        write_config("switch", section("gaming", "gaming", {{"switch_port", name}}) +
                                   section("switch_port", "port2", {{"ifname", ifname}}));
    }
    int update_gaming() { return update_lan_gaming_port(&port_model.gaming); }
};

const char AGG[] = "update_lan_agg_port";
const char GAMING[] = "update_lan_gaming_port";

} // namespace

// holds: aggregation-positions, reserved-codes
TEST_F(reserved_ports, the_ports_at_the_given_positions_are_members)
{
    t_log_capture log;
    EXPECT_EQ(update_with({{"enable_agg", "on"}, {"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "2 3"}}), OK);
    EXPECT_EQ(members(), (t_names{"eth2", "eth3"}));
    EXPECT_EQ(lines_of(log, "Debug"),
              (t_names{"update_lan_agg_port: Entering function: update_lan_agg_port!",
                       "update_lan_agg_port: lan_agg enable! now start to parse switch.lan_agg.lanport=LAN1 LAN2 LAN3",
                       "update_lan_agg_port: lan_agg enable! now start to parse switch.lan_agg.lacpports=2 3",
                       "update_lan_agg_port: lan_agg device:eth2 parse success!",
                       "update_lan_agg_port: lan_agg device:eth3 parse success!"}));
    EXPECT_TRUE(log.has("Info", AGG, "Parse lan_agg devices success"));
    EXPECT_NE(port_model.lan_agg[0], find_device(port_model.dev_hashmap_head, "eth2"));
    EXPECT_EQ(port_model.lan_agg[0]->priority, -1);
}

// holds: aggregation-off
TEST_F(reserved_ports, a_switched_off_aggregation_has_no_members)
{
    for (const char *off : {"off", "0", "false"}) {
        update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "2 3"}});
        ASSERT_EQ(members().size(), 2u);
        t_log_capture log;
        EXPECT_EQ(update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "2 3"}, {"enable_agg", off}}), OK);
        EXPECT_EQ(members(), t_names{});
        EXPECT_TRUE(log.has("Debug", AGG, std::string("lan_agg disable! switch.lan_agg.enable_agg=") + off));
    }
}

// holds: aggregation-off
TEST_F(reserved_ports, any_other_switch_value_is_on)
{
    for (const char *on : {"1", "on", "Off", "offx", "no", "00"}) {
        update_with({{"enable_agg", on}, {"lanport", "LAN1 LAN2"}, {"lacpports", "2"}});
        EXPECT_EQ(members(), t_names{"eth2"}) << on;
    }
}

// holds: aggregation-no-section
TEST_F(reserved_ports, without_a_section_aggregation_is_on_and_empty)
{
    write_config("switch", section("switch_port", "port1", {{"ifname", "eth1"}}));
    t_log_capture log;
    EXPECT_EQ(update(), OK);
    EXPECT_EQ(members(), t_names{});
    EXPECT_TRUE(log.has("Info", AGG, "Parse lan_agg devices success"));
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: aggregation-position-1
TEST_F(reserved_ports, position_1_is_refused_and_position_2_used)
{
    t_log_capture log;
    EXPECT_EQ(update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "1 2"}}), OK);
    EXPECT_EQ(members(), t_names{"eth2"});
    EXPECT_EQ(lines_of(log, "Error"),
              t_names{"update_lan_agg_port: LAN decvice index:1 in switch.lan_agg.lacpports:1 2 not found correspond "
                      "device in LAN1 LAN2 LAN3!"});
}

// holds: aggregation-position-1
TEST_F(reserved_ports, positions_that_name_no_label_are_refused)
{
    t_log_capture log;
    EXPECT_EQ(update_with(
                  {{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "0 4 16 17 -2 two 2x 99999999999999999999999 \xff 3"}}),
              OK);
    EXPECT_EQ(members(), t_names{"eth3"});
    EXPECT_EQ(lines_of(log, "Error").size(), 9u);
}

// holds: aggregation-label
TEST_F(reserved_ports, a_label_that_no_port_carries_ends_the_walk)
{
    t_log_capture log;
    EXPECT_EQ(update_with({{"lanport", "LAN1 LAN7 LAN3"}, {"lacpports", "2 3"}}), OK);
    EXPECT_EQ(members(), t_names{});
    EXPECT_EQ(lines_of(log, "Warning"), t_names{"update_lan_agg_port: null dev found for LAN7, continue whatever!"});
    EXPECT_EQ(lines_of(log, "Info"), t_names{});
}

TEST_F(reserved_ports, an_empty_device_table_ends_the_walk)
{
    write_config("switch", section("agg", "lan_agg", {{"lanport", "LAN1 LAN2"}, {"lacpports", "2"}}));
    t_log_capture log;
    EXPECT_EQ(update_lan_agg_port(nullptr, &port_model.lan_agg[0]), OK);
    EXPECT_TRUE(log.has("Warning", AGG, "null dev found for LAN2, continue whatever!"));
}

TEST_F(reserved_ports, only_the_first_16_labels_count)
{
    std::string labels = "LAN1";
    for (int i = 2; i < 16; i++)
        labels += " other" + std::to_string(i);
    update_with({{"lanport", labels + " LAN2 LAN3"}, {"lacpports", "16 17"}});
    EXPECT_EQ(members(), t_names{"eth2"});
}

TEST_F(reserved_ports, labels_meet_at_31_characters)
{
    copy_name(find_device(port_model.dev_hashmap_head, "eth2")->label, std::string(33, 'L').c_str());
    for (size_t length : {31, 32, 33, 200}) {
        update_with({{"lanport", "LAN1 " + std::string(length, 'L')}, {"lacpports", "2"}});
        EXPECT_EQ(members(), t_names{"eth2"}) << length;
    }
}

TEST_F(reserved_ports, several_spaces_do_not_shift_the_labels)
{
    update_with({{"lanport", "  LAN1   LAN2 "}, {"lacpports", "  2 "}});
    EXPECT_EQ(members(), t_names{"eth2"});
}

// holds: aggregation-positions
TEST_F(reserved_ports, options_of_no_interest_are_passed_over)
{
    write_config("switch", section("agg", "lan_agg", {{"mode", "off"}, {"lanport", "LAN1 LAN2"}, {"lacpports", "2"}}) +
                               list_option("members", {"1", "2"}));
    EXPECT_EQ(update(), OK);
    EXPECT_EQ(members(), t_names{"eth2"});
}

TEST_F(reserved_ports, a_position_given_twice_is_one_member)
{
    t_log_capture log;
    EXPECT_EQ(update_with({{"lanport", "LAN1 LAN2"}, {"lacpports", "2 2"}}), OK);
    EXPECT_EQ(members(), t_names{"eth2"});
    EXPECT_TRUE(log.has("Error", "add_device", "Device already existed!"));
}

TEST_F(reserved_ports, values_of_absurd_length_are_cut)
{
    EXPECT_EQ(update_with({{"lanport", std::string(9000, 'L')}, {"lacpports", std::string(9000, '2')}}), OK);
    EXPECT_EQ(members(), t_names{});
}

// holds: reserved-codes
TEST_F(reserved_ports, a_list_where_a_text_is_needed_ends_with_an_error)
{
    for (const char *name : {"enable_agg", "lanport", "lacpports"}) {
        write_config("switch", section("agg", "lan_agg", {}) + list_option(name, {"1", "2"}));
        t_log_capture log;
        EXPECT_EQ(update(), ERR_CONFIG_PACKAGE);
        EXPECT_EQ(lines_of(log, "Error"), t_names{"update_lan_agg_port: Unable to get uci switch.lan_agg"});
    }
}

TEST_F(reserved_ports, the_first_of_switch_and_unreadable_entry_decides)
{
    write_config("switch", section("agg", "lan_agg", {{"enable_agg", "off"}}) + list_option("lanport", {"1", "2"}));
    EXPECT_EQ(update(), OK);
    write_config("switch",
                 section("agg", "lan_agg", {}) + list_option("lanport", {"1", "2"}) + "\toption enable_agg 'off'\n");
    EXPECT_EQ(update(), ERR_CONFIG_PACKAGE);
}

// holds: reserved-codes
TEST_F(reserved_ports, a_missing_package_empties_the_table_and_is_reported)
{
    update_with({{"lanport", "LAN1 LAN2"}, {"lacpports", "2"}});
    remove_config("switch");
    t_log_capture log;
    EXPECT_EQ(update(), ERR_CONFIG_PACKAGE);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"update_lan_agg_port: Unable to load uci switch!"});
    EXPECT_EQ(members(), t_names{});
}

// holds: load-reason-line
TEST_F(reserved_ports, the_librarys_reason_for_a_missing_package_follows_the_line_about_it)
{
    t_log_capture log(3);
    const t_joined_errors joined;
    update();
    EXPECT_EQ(lines_and_errors_of(log),
              (t_names{"update_lan_agg_port: Unable to load uci switch!", "switch: Entry not found"}));
}

TEST_F(reserved_ports, the_table_is_rebuilt_each_time)
{
    update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "2"}});
    t_log_capture log;
    update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "3"}});
    EXPECT_EQ(members(), t_names{"eth3"});
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

TEST_F(reserved_ports, a_member_that_cannot_be_allocated_ends_the_walk)
{
    t_log_capture log;
    t_memory_shortage shortage(1, sizeof(t_device));
    EXPECT_EQ(update_with({{"lanport", "LAN1 LAN2 LAN3"}, {"lacpports", "2 3 2"}}), OK);
    EXPECT_EQ(members(), t_names{"eth2"});
    EXPECT_EQ(log.count("Error", AGG, "Create new device failed!"), 1);
    EXPECT_FALSE(log.has("Info", AGG, "Parse lan_agg devices success"));
}

// holds: reserved-codes
TEST_F(reserved_ports, the_gaming_port_is_read)
{
    gaming_section("port2", "eth2");
    t_log_capture log;
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_EQ(names_of(port_model.gaming), t_names{"eth2"});
    EXPECT_TRUE(log.has("Debug", GAMING, "Entering function: update_lan_gaming_port!"));
    EXPECT_TRUE(log.has("Info", GAMING, "Suceess get gaming device:eth2"));
}

// holds: gaming-bridge
TEST_F(reserved_ports, the_gaming_port_may_be_a_bridge)
{
    gaming_section("port2", "br-lan");
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_EQ(names_of(port_model.gaming), t_names{"br-lan"});
}

// holds: reserved-codes
TEST_F(reserved_ports, without_a_gaming_section_the_table_is_emptied)
{
    gaming_section("port2", "eth2");
    update_gaming();
    write_config("switch", "");
    t_log_capture log;
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_TRUE(log.has("Info", GAMING, "Unable to get switch.gaming.switch_port!"));
    EXPECT_EQ(port_model.gaming, nullptr);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: reserved-codes
TEST_F(reserved_ports, a_gaming_section_without_interface_is_reported)
{
    gaming_section("port7", "eth2");
    t_log_capture log;
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_TRUE(log.has("Info", GAMING, "Unable to get switch.port7.ifname!"));
    gaming_section(std::string(500, 'p'), "eth2");
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_TRUE(log.has("Info", GAMING, "Unable to get switch." + std::string(31, 'p') + ".ifname!"));
    EXPECT_EQ(port_model.gaming, nullptr);
}

TEST_F(reserved_ports, an_over_long_gaming_interface_is_cut)
{
    gaming_section("port2", std::string(60, 'g'));
    update_gaming();
    EXPECT_EQ(names_of(port_model.gaming), t_names{std::string(31, 'g')});
}

TEST_F(reserved_ports, a_gaming_port_that_cannot_be_allocated_is_reported)
{
    gaming_section("port2", "eth2");
    t_log_capture log;
    t_memory_shortage shortage(0, sizeof(t_device));
    EXPECT_EQ(update_gaming(), OK);
    EXPECT_TRUE(log.has("Error", GAMING, "Create new device failed!"));
    EXPECT_EQ(port_model.gaming, nullptr);
}

TEST_F(reserved_ports, a_port_in_any_of_the_three_tables_is_reserved)
{
    add_device(&port_model.lan_agg[0], create_new_device("eth1"));
    add_device(&port_model.lan_agg[1], create_new_device("eth2"));
    add_device(&port_model.gaming, create_new_device("eth3"));
    for (const char *name : {"eth1", "eth2", "eth3"})
        EXPECT_TRUE(is_reserved_port(&port_model, name));
    EXPECT_FALSE(is_reserved_port(&port_model, "eth4"));
    EXPECT_FALSE(is_reserved_port(&port_model, "eth11"));
}

TEST_F(reserved_ports, empty_tables_are_not_searched)
{
    t_log_capture log;
    EXPECT_FALSE(is_reserved_port(&port_model, "eth1"));
    EXPECT_TRUE(log.lines().empty());
}
