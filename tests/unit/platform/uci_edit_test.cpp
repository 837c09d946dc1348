// SPDX-License-Identifier: MIT
// Changes that wait for their commit, lists, and the runtime state.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <uci.h>

#include "platform/uci_access.h"
#include "platform/uci_edit.h"
#include "tests/unit/support/sandbox.h"

namespace {

class uci_edit : public testing::Test {
protected:
    uci_edit()
    {
        write_config("wan_detect",
                     "config settings 'main'\n\toption level '2'\n\tlist port 'eth0'\n\tlist port 'eth1'\n"
                     "\tlist port 'eth2'\n");
        write_config("other", "config settings 'main'\n\toption level '2'\n");
    }
    ~uci_edit() override
    {
        if (slot)
            uci_free_context(slot);
        remove_config("wan_detect");
        remove_config("other");
        std::filesystem::remove_all("/tmp/.uci");
        std::filesystem::remove_all("/var/state");
    }
    static std::string file(const std::string &package = "wan_detect") { return read_file("/etc/config/" + package); }
    bool has(const std::string &text) const { return file().find(text) != std::string::npos; }

    t_log_capture log;
    uci_context *slot = nullptr;
};

const std::string PORTS_IN_ORDER = "\tlist port 'eth0'\n\tlist port 'eth1'\n\tlist port 'eth2'\n";

} // namespace

// holds: edit-codes
TEST_F(uci_edit, a_set_value_waits_in_its_slot_until_the_commit)
{
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "level", "7"), 0);
    ASSERT_NE(slot, nullptr);
    EXPECT_FALSE(has("option level '7'"));
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_TRUE(has("option level '7'"));
    EXPECT_TRUE(log.has("Info", "_uci_set_value", "p_uci_str:wan_detect.main.level, p_value:7"));
    EXPECT_TRUE(log.has("Info", "_uci_set_value", "Success to set wan_detect.main.level = 7, not commit yet"));
    EXPECT_TRUE(log.has("Debug", "_uci_commit", "success commit"));
    for (const char *line :
         {"p_uci.uci_type:4", "p_uci.package:wan_detect", "p_uci.section:main", "p_uci.option:level", "p_uci.value:7"})
        EXPECT_TRUE(log.has("Debug", "_uci_set_value", line)) << line;
}

TEST_F(uci_edit, several_changes_share_one_slot)
{
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "level", "7"), 0);
    uci_context *first = slot;
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "mode", "router"), 0);
    EXPECT_EQ(_uci_add_list(&slot, "wan_detect", "main", "port", "eth3"), 0);
    EXPECT_EQ(slot, first);
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_TRUE(has("option level '7'") && has("option mode 'router'") && has("list port 'eth3'"));
}

// holds: edit-codes
TEST_F(uci_edit, a_set_that_fails_frees_the_context_and_clears_the_slot)
{
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "nothing", "level", "7"), -1);
    EXPECT_EQ(slot, nullptr);
    EXPECT_TRUE(log.has("Error", "_uci_set_value", "fail to set ptr wan_detect.nothing.level (ret:2)"));
    EXPECT_EQ(_uci_set_value(&slot, "nothing", "main", "level", "7"), -1);
    EXPECT_EQ(slot, nullptr);
    EXPECT_TRUE(log.has("Error", "_uci_set_value", "fail to set ptr nothing.main.level (ret:3)"));
}

TEST_F(uci_edit, a_name_that_would_be_lost_in_the_file_is_refused)
{
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "bad name", "7"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "bad-name", "7"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "", "7"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", std::string(100, 'o').c_str(), "7"), -1);
    EXPECT_TRUE(has(PORTS_IN_ORDER));
}

TEST_F(uci_edit, a_commit_is_always_of_the_daemons_own_package)
{
    EXPECT_EQ(_uci_set_value(&slot, "other", "main", "level", "7"), 0);
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_EQ(file("other").find("'7'"), std::string::npos);
}

TEST_F(uci_edit, a_commit_without_the_package_fails)
{
    EXPECT_EQ(_uci_set_value(&slot, "other", "main", "level", "7"), 0);
    remove_config("wan_detect");
    EXPECT_EQ(_uci_commit(slot), -1);
    slot = nullptr;
    EXPECT_TRUE(log.has("Error", "_uci_commit", "fail to commit wan_detect"));
    EXPECT_TRUE(log.has("Error", "_uci_commit", "commit failed"));
}

TEST_F(uci_edit, a_commit_without_a_context_fails)
{
    EXPECT_EQ(_uci_commit(nullptr), -1);
    EXPECT_TRUE(log.has("Error", "_uci_commit", "fail to init uci context"));
    EXPECT_TRUE(log.has("Error", "_uci_commit", "commit failed"));
}

TEST_F(uci_edit, a_deletion_waits_in_its_slot_or_is_committed_at_once)
{
    EXPECT_EQ(_uci_delete(&slot, "wan_detect", "main", "level"), 0);
    EXPECT_TRUE(has("option level"));
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_FALSE(has("option level"));
    EXPECT_EQ(_uci_delete_commit("wan_detect", "main", "port"), 0);
    EXPECT_FALSE(has("list port"));
    EXPECT_TRUE(log.has("Debug", "_uci_delete", "delete main level"));
    EXPECT_TRUE(log.has("Debug", "_uci_delete_commit", "delete main port"));
}

TEST_F(uci_edit, a_deletion_of_what_is_not_there_fails_and_changes_nothing)
{
    std::string before = file();
    EXPECT_EQ(_uci_delete(&slot, "wan_detect", "main", "nothing"), -1);
    EXPECT_NE(slot, nullptr);
    EXPECT_EQ(_uci_delete_commit("wan_detect", "main", "nothing"), -1);
    EXPECT_EQ(_uci_delete_commit("wan_detect", "nothing", "level"), -1);
    EXPECT_EQ(_uci_delete_commit("nothing", "main", "level"), -1);
    EXPECT_EQ(file(), before);
}

TEST_F(uci_edit, a_list_item_is_added_at_the_end)
{
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "port", "eth3"), 0);
    EXPECT_TRUE(has(PORTS_IN_ORDER + "\tlist port 'eth3'\n"));
    EXPECT_TRUE(log.has("Debug", "_uci_add_list_commit", "save main port"));
    EXPECT_EQ(_uci_add_list(&slot, "wan_detect", "main", "port", "eth4"), 0);
    EXPECT_TRUE(log.has("Debug", "_uci_add_list", "save main port"));
    EXPECT_FALSE(has("eth4"));
}

TEST_F(uci_edit, a_list_item_is_not_added_to_a_missing_section)
{
    std::string before = file();
    EXPECT_EQ(_uci_add_list(&slot, "wan_detect", "nothing", "port", "eth3"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "nothing", "port", "eth3"), -1);
    EXPECT_EQ(file(), before);
}

TEST_F(uci_edit, a_change_that_cannot_be_committed_says_so)
{
    std::string before = file();
    write_file("/tmp/.uci", "a file where a folder should be");
    EXPECT_EQ(_uci_delete_commit("wan_detect", "main", "level"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "port", "eth3"), -1);
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "port", "eth0"), -1);
    for (const char *function : {"_uci_delete_commit", "_uci_add_list_commit", "_uci_del_add_list_commit"})
        EXPECT_TRUE(log.has("Error", function, "fail to commit wan_detect")) << function;
    EXPECT_EQ(file(), before);
}

// holds: list-item-once
TEST_F(uci_edit, an_item_added_anew_stands_once_at_the_end)
{
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "port", "eth0"), 0);
    EXPECT_TRUE(has("\tlist port 'eth1'\n\tlist port 'eth2'\n\tlist port 'eth0'\n"));
    EXPECT_FALSE(has("\tlist port 'eth0'\n\tlist port 'eth1'\n"));
    EXPECT_TRUE(log.has("Debug", "_uci_del_add_list_commit", "save main port"));
}

TEST_F(uci_edit, an_item_added_anew_to_a_list_without_it_is_just_added)
{
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "port", "eth9"), 0);
    EXPECT_TRUE(has(PORTS_IN_ORDER + "\tlist port 'eth9'\n"));
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "fresh", "x"), 0);
    EXPECT_TRUE(has("\tlist fresh 'x'\n"));
}

// holds: list-item-once
TEST_F(uci_edit, an_item_added_anew_to_a_plain_text_stands_once)
{
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "level", "2"), 0);
    EXPECT_TRUE(has("\tlist level '2'\n"));
    EXPECT_EQ(file().find("level"), file().rfind("level"));
    EXPECT_EQ(_uci_del_add_list_commit("other", "main", "level", "3"), 0);
    EXPECT_NE(file("other").find("\tlist level '2'\n\tlist level '3'\n"), std::string::npos);
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "mode", "x"), 0);
    EXPECT_EQ(_uci_del_add_list(&slot, "wan_detect", "main", "mode", "x"), 0);
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_TRUE(has("\tlist mode 'x'\n"));
    EXPECT_EQ(file().find("mode"), file().rfind("mode"));
}

TEST_F(uci_edit, an_item_added_anew_waits_in_its_slot)
{
    EXPECT_EQ(_uci_del_add_list(&slot, "wan_detect", "main", "port", "eth1"), 0);
    EXPECT_TRUE(has(PORTS_IN_ORDER));
    EXPECT_EQ(_uci_commit(slot), 0);
    slot = nullptr;
    EXPECT_TRUE(has("\tlist port 'eth0'\n\tlist port 'eth2'\n\tlist port 'eth1'\n"));
    EXPECT_TRUE(log.has("Debug", "_uci_del_add_list", "save main port"));
    EXPECT_EQ(_uci_del_add_list(&slot, "wan_detect", "nothing", "port", "eth1"), -1);
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "nothing", "port", "eth1"), -1);
}

TEST_F(uci_edit, a_missing_argument_is_refused_by_every_member)
{
    const char *p = "wan_detect", *s = "main", *o = "level", *v = "1", *none = nullptr;
    EXPECT_EQ(_uci_set_value(nullptr, p, s, o, v), -1);
    EXPECT_EQ(_uci_set_value(&slot, none, s, o, v), -1);
    EXPECT_EQ(_uci_set_value(&slot, p, none, o, v), -1);
    EXPECT_EQ(_uci_set_value(&slot, p, s, none, v), -1);
    EXPECT_EQ(_uci_set_value(&slot, p, s, o, none), -1);
    EXPECT_EQ(log.count("Error", "_uci_set_value", "invalid parameter"), 5);
    EXPECT_EQ(_uci_delete(nullptr, p, s, o), -1);
    EXPECT_EQ(_uci_delete(&slot, none, s, o), -1);
    EXPECT_EQ(_uci_delete(&slot, p, none, o), -1);
    EXPECT_EQ(_uci_delete(&slot, p, s, none), -1);
    EXPECT_EQ(log.count("Error", "_uci_delete", "invalid parameter"), 4);
    EXPECT_EQ(_uci_delete_commit(none, s, o) + _uci_delete_commit(p, none, o) + _uci_delete_commit(p, s, none), -3);
    EXPECT_EQ(log.count("Error", "_uci_delete_commit", "invalid parameter"), 3);
    EXPECT_EQ(_uci_add_list(nullptr, p, s, o, v) + _uci_add_list(&slot, none, s, o, v) +
                  _uci_add_list(&slot, p, s, o, none),
              -3);
    EXPECT_EQ(log.count("Error", "_uci_add_list", "invalid parameter"), 3);
    EXPECT_EQ(_uci_add_list_commit(none, s, o, v) + _uci_add_list_commit(p, s, o, none), -2);
    EXPECT_EQ(log.count("Error", "_uci_add_list_commit", "invalid parameter"), 2);
    EXPECT_EQ(_uci_del_add_list(nullptr, p, s, o, v) + _uci_del_add_list(&slot, p, s, none, v), -2);
    EXPECT_EQ(log.count("Error", "_uci_del_add_list", "invalid parameter"), 2);
    EXPECT_EQ(_uci_del_add_list_commit(p, none, o, v) + _uci_del_add_list_commit(p, s, o, none), -2);
    EXPECT_EQ(log.count("Error", "_uci_del_add_list_commit", "invalid parameter"), 2);
    EXPECT_EQ(slot, nullptr);
}

TEST_F(uci_edit, the_runtime_state_wins_over_the_configuration)
{
    write_file("/var/state/other", "other.main.level='5'\nother.main.up='1'\n");
    char value[16];
    EXPECT_EQ(_uci_get_state_value("other", "main", "level", value, sizeof value), 0);
    EXPECT_STREQ(value, "5");
    EXPECT_EQ(_uci_get_state_value("other", "main", "up", value, sizeof value), 0);
    EXPECT_STREQ(value, "1");
    char normal[UCI_VALUE_SIZE];
    EXPECT_EQ(_uci_get_value("other.main.level", normal), 0);
    EXPECT_STREQ(normal, "2");
}

TEST_F(uci_edit, a_state_value_is_cut_to_the_buffer)
{
    write_file("/var/state/other", "other.main.level='0123456789'\n");
    char value[8] = "#######";
    EXPECT_EQ(_uci_get_state_value("other", "main", "level", value, 5), 0);
    EXPECT_STREQ(value, "0123");
    EXPECT_EQ(value[5], '#');
}

TEST_F(uci_edit, a_state_value_that_is_not_there_fails)
{
    char value[8] = "before";
    EXPECT_EQ(_uci_get_state_value("other", "main", "nothing", value, sizeof value), -1);
    EXPECT_EQ(_uci_get_state_value("wan_detect", "main", "port", value, sizeof value), -1);
    EXPECT_EQ(_uci_get_state_value("nothing", "main", "level", value, sizeof value), -1);
    EXPECT_EQ(_uci_get_state_value("other", "main", "level", value, 0), -1);
    EXPECT_EQ(_uci_get_state_value("other", "main", nullptr, value, sizeof value), -1);
    EXPECT_STREQ(value, "before");
}
