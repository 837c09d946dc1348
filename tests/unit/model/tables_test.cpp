// SPDX-License-Identifier: MIT
#include "model/tables.h"

#include <cstdlib>

#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

using tables = t_model_test;
using tables_death = t_model_test;

} // namespace

TEST_F(tables, a_new_device_is_zero_but_for_its_name_and_two_numbers)
{
    t_device *device = create_new_device("eth3");
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(device->name, "eth3");
    EXPECT_EQ(device->port_num, -1);
    EXPECT_EQ(device->priority, -1);
    EXPECT_EQ(device->proto.load(), nullptr);
    EXPECT_EQ(device->link_active, 0);
    EXPECT_STREQ(device->label, "");
    free(device);
}

// holds: record-without-memory
TEST_F(tables, a_device_that_cannot_be_allocated_is_null_and_logged)
{
    t_log_capture log;
    t_memory_shortage shortage(0, sizeof(t_device));
    EXPECT_EQ(create_new_device("eth3"), nullptr);
    EXPECT_TRUE(log.has("Error", "create_new_device", "Malloc new device failed!"));
}

// holds: record-without-memory
TEST_F(tables, a_protocol_that_cannot_be_allocated_is_null_and_logged)
{
    t_log_capture log;
    t_memory_shortage shortage(0, sizeof(t_protocol));
    EXPECT_EQ(create_new_protocol("dhcp"), nullptr);
    EXPECT_TRUE(log.has("Error", "create_new_protocol", "Create new protocol failed!"));
}

// holds: first-device
TEST_F(tables, the_first_device_enters_an_empty_table_with_an_info_line)
{
    t_log_capture log;
    t_device *device = create_new_device("eth1");
    EXPECT_TRUE(add_device(&port_model.dev_hashmap_head, device));
    EXPECT_EQ(lines_of(log, "Info"), t_names{"check_dev_already_add: dev_hashmap_head input is NULL!"});
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "eth1"), device);
}

TEST_F(tables, one_letter_is_a_name)
{
    t_device *device = create_new_device("x");
    ASSERT_TRUE(add_device(&port_model.dev_hashmap_head, device));
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "x"), device);
}

// holds: device-twice
TEST_F(tables, a_second_device_of_the_same_name_is_refused_and_stays_the_callers)
{
    t_device *first = add_port("eth1");
    t_device *second = create_new_device("eth1");
    t_log_capture log;
    EXPECT_FALSE(add_device(&port_model.dev_hashmap_head, second));
    EXPECT_TRUE(log.has("Error", "add_device", "Device already existed!"));
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "eth1"), first);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), t_names{"eth1"});
    free(second);
}

TEST_F(tables, bad_arguments_of_add_device_are_refused)
{
    t_device nameless = {};
    t_log_capture log;
    EXPECT_FALSE(add_device(nullptr, &nameless));
    EXPECT_FALSE(add_device(&port_model.dev_hashmap_head, nullptr));
    EXPECT_FALSE(add_device(&port_model.dev_hashmap_head, &nameless));
    EXPECT_EQ(lines_of(log, "Error"), (t_names{"add_device: Invalid dev_hashmap_head input!",
                                               "add_device: Invalid device input!", "add_device: Invalid dev_name!"}));
    EXPECT_EQ(port_model.dev_hashmap_head, nullptr);
}

TEST_F(tables, bad_arguments_of_add_protocol_are_refused)
{
    t_protocol nameless = {};
    t_log_capture log;
    EXPECT_FALSE(add_protocol(nullptr, &nameless));
    EXPECT_FALSE(add_protocol(&port_model.proto_hashmap_head, nullptr));
    EXPECT_FALSE(add_protocol(&port_model.proto_hashmap_head, &nameless));
    EXPECT_EQ(lines_of(log, "Error"),
              (t_names{"add_protocol: Invalid proto_hashmap_head input!", "add_protocol: Invalid protocol input!",
                       "add_protocol: Invalid proto_name!"}));
}

TEST_F(tables, protocols_are_added_once_each)
{
    t_log_capture log;
    t_protocol *first = add_proto("dhcp");
    EXPECT_TRUE(log.has("Info", "check_proto_already_add", "proto_hashmap_head input is NULL!"));
    t_protocol *second = create_new_protocol("dhcp");
    EXPECT_FALSE(add_protocol(&port_model.proto_hashmap_head, second));
    EXPECT_TRUE(log.has("Error", "add_protocol", "Protocol already existed!"));
    EXPECT_EQ(find_protocol(port_model.proto_hashmap_head, "dhcp"), first);
    free(second);
}

// holds: empty-table
TEST_F(tables, looking_for_a_device_in_an_empty_table_is_worth_an_info_line)
{
    t_log_capture log;
    EXPECT_EQ(find_device(nullptr, "eth1"), nullptr);
    EXPECT_EQ(lines_of(log, "Info"), t_names{"find_device: Invalid dev_hashmap_head input!"});
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: empty-table
TEST_F(tables, looking_for_a_protocol_in_an_empty_table_is_an_error)
{
    t_log_capture log;
    EXPECT_EQ(find_protocol(nullptr, "dhcp"), nullptr);
    EXPECT_EQ(lines_of(log, "Error"), t_names{"find_protocol: Invalid proto_hashmap_head input!"});
}

TEST_F(tables, a_missing_or_empty_name_is_never_found)
{
    add_port("eth1");
    add_proto("dhcp");
    t_log_capture log;
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, nullptr), nullptr);
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, ""), nullptr);
    EXPECT_EQ(find_protocol(port_model.proto_hashmap_head, nullptr), nullptr);
    EXPECT_EQ(find_protocol(port_model.proto_hashmap_head, ""), nullptr);
    EXPECT_EQ(log.count("Error", "find_device", "Invalid dev_name!"), 2);
    EXPECT_EQ(log.count("Error", "find_protocol", "Invalid proto_name!"), 2);
}

TEST_F(tables, a_name_is_found_only_when_all_of_it_is_the_same)
{
    add_port("eth1");
    add_port("eth10");
    t_log_capture log;
    EXPECT_STREQ(find_device(port_model.dev_hashmap_head, "eth1")->name, "eth1");
    EXPECT_STREQ(find_device(port_model.dev_hashmap_head, "eth10")->name, "eth10");
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "eth"), nullptr);
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "eth100"), nullptr);
    EXPECT_EQ(find_device(port_model.dev_hashmap_head, "ETH1"), nullptr);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(tables, names_of_31_characters_fit_and_longer_ones_meet_at_their_cut)
{
    const std::string longest(31, 'e');
    add_port(longest);
    EXPECT_NE(find_device(port_model.dev_hashmap_head, longest.c_str()), nullptr);
    for (size_t length : {32, 33, 500}) {
        t_device *cut = create_new_device(std::string(length, 'e').c_str());
        EXPECT_EQ(cut->name, longest);
        EXPECT_FALSE(add_device(&port_model.dev_hashmap_head, cut));
        EXPECT_EQ(find_device(port_model.dev_hashmap_head, std::string(length, 'e').c_str()), nullptr);
        free(cut);
    }
}

TEST_F(tables, a_table_is_walked_in_the_order_of_adding)
{
    for (const char *name : {"eth9", "eth1", "eth5", "br-lan", "eth0"})
        add_port(name);
    EXPECT_EQ(names_of(port_model.dev_hashmap_head), (t_names{"eth9", "eth1", "eth5", "br-lan", "eth0"}));
}

TEST_F(tables, many_devices_are_all_found_again)
{
    for (int i = 0; i < 500; i++)
        add_port("port" + std::to_string(i));
    for (int i = 0; i < 500; i++)
        EXPECT_NE(find_device(port_model.dev_hashmap_head, ("port" + std::to_string(i)).c_str()), nullptr);
}

TEST_F(tables, releasing_a_table_leaves_its_head_null)
{
    add_port("eth0");
    add_port("eth1");
    t_log_capture log;
    release_all_device(&port_model.dev_hashmap_head);
    EXPECT_EQ(port_model.dev_hashmap_head, nullptr);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(tables, releasing_nothing_is_an_error)
{
    t_log_capture log;
    release_all_device(nullptr);
    release_all_device(&port_model.dev_hashmap_head);
    EXPECT_EQ(log.count("Error", "release_all_device", "Invalid dev_hashmap_head input!"), 2);
}

// holds: table-cannot-grow
TEST_F(tables_death, a_table_that_cannot_grow_ends_the_process_with_status_minus_one)
{
    t_device *device = create_new_device("eth0");
    EXPECT_EXIT(
        {
            t_memory_shortage shortage(0, sizeof(UT_hash_table));
            add_device(&port_model.dev_hashmap_head, device);
        },
        testing::ExitedWithCode(255), "");
    free(device);
}
