// SPDX-License-Identifier: MIT
// Changes that wait for their commit in a folder that anybody could have made.
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <uci.h>

#include "platform/text.h"
#include "platform/uci_access.h"
#include "platform/uci_edit.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/sandbox.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t STRANGER = 65534;
constexpr const char *FOLDER = "/tmp/.uci";
constexpr const char *WAITING = "/tmp/.uci/network";
const std::string TOLD = "/tmp/.uci may be written by others, what is saved there is ignored";

// Ways in which a stranger may have changes wait.
struct t_way {
    const char *name;
    bool is_strangers;
    void (*prepare)();
};

void PrintTo(const t_way &way, std::ostream *out)
{
    *out << way.name;
}

const t_way WAYS[] = {
    {"a_folder_of_a_stranger", true, [] { EXPECT_EQ(chown(FOLDER, STRANGER, STRANGER), 0); }},
    {"a_folder_that_another_group_may_write", true,
     [] {
         EXPECT_EQ(chmod(FOLDER, 0775), 0);
         EXPECT_EQ(chown(FOLDER, 0, STRANGER), 0);
     }},
    {"a_folder_that_all_may_write", false, [] { EXPECT_EQ(chmod(FOLDER, 01777), 0); }},
    {"a_file_of_a_stranger", true, [] { EXPECT_EQ(chown(WAITING, STRANGER, STRANGER), 0); }},
    {"a_link_to_a_folder", false,
     [] {
         fs::rename(FOLDER, "/tmp/elsewhere");
         fs::create_directory_symlink("/tmp/elsewhere", FOLDER);
     }},
    {"a_link_of_a_stranger_in_place_of_the_file", true,
     [] {
         fs::rename(WAITING, "/tmp/waiting");
         fs::create_symlink("/tmp/waiting", WAITING);
         EXPECT_EQ(lchown(WAITING, STRANGER, STRANGER), 0);
     }},
};

class uci_save_folder : public testing::Test {
protected:
    uci_save_folder()
    {
        write_config("network", "config interface 'wan'\n\toption proto 'dhcp'\n\toption port '1'\n");
        write_config("wan_detect", "config settings 'main'\n\toption level '2'\n");
        fs::create_directory(FOLDER);
        EXPECT_EQ(chmod(FOLDER, 0755), 0);
        write_file(WAITING, "network.wan.proto='evil'\n");
        write_file("/tmp/.uci/wan_detect", "wan_detect.main.evil='1'\n");
    }
    ~uci_save_folder() override
    {
        for (const char *path : {FOLDER, "/tmp/elsewhere", "/tmp/waiting"})
            fs::remove_all(path);
        value("network.wan.port"); // now that nobody's changes wait, the line about a stranger's may be said again
        remove_config("network");
        remove_config("wan_detect");
    }
    static std::string value(const char *path)
    {
        char text[UCI_VALUE_SIZE] = "";
        return _uci_get_value(path, text) == 0 ? text : "(failed)";
    }
    static int set(const char *path, const char *text)
    {
        char writable[UCI_PATH_SIZE];
        bounded_copy(writable, path, sizeof writable);
        return _uci_set_value_commit(writable, text);
    }
    static std::string file(const char *package) { return read_file(std::string("/etc/config/") + package); }

    t_log_capture log;
};

class strange_save_folder : public uci_save_folder, public testing::WithParamInterface<t_way> {
protected:
    void SetUp() override
    {
        if (GetParam().is_strangers)
            NEEDS_OTHER_USERS();
        GetParam().prepare();
    }
};

INSTANTIATE_TEST_SUITE_P(with, strange_save_folder, testing::ValuesIn(WAYS),
                         [](const auto &parameter) { return parameter.param.name; });

} // namespace

// holds: foreign-save-folder
TEST_F(uci_save_folder, of_our_own_holds_changes_that_count)
{
    EXPECT_EQ(value("network.wan.proto"), "evil");
    EXPECT_EQ(set("network.wan.port", "2"), 0);
    EXPECT_NE(file("network").find("'evil'"), std::string::npos);
    EXPECT_EQ(log.count("Error", "", TOLD), 0);
}

// holds: foreign-save-folder
TEST_F(uci_save_folder, that_our_own_group_may_write_holds_changes_that_count)
{
    EXPECT_EQ(chmod(FOLDER, 0775), 0);
    EXPECT_EQ(value("network.wan.proto"), "evil");
    EXPECT_EQ(log.count("Error", "", TOLD), 0);
}

// holds: foreign-save-folder
TEST_P(strange_save_folder, is_not_read_from)
{
    EXPECT_EQ(value("network.wan.proto"), "dhcp");
    const t_uci_package package("network");
    ASSERT_NE(package.package, nullptr);
    EXPECT_EQ(value("network.wan.port"), "1");
}

// holds: foreign-save-folder
TEST_P(strange_save_folder, is_told_once)
{
    for (int i = 0; i < 3; i++)
        value("network.wan.proto");
    EXPECT_EQ(log.count("Error", "", TOLD), 1);
}

// holds: foreign-save-folder
TEST_P(strange_save_folder, is_not_committed_and_our_own_change_is)
{
    EXPECT_EQ(set("network.wan.port", "2"), 0);
    EXPECT_NE(file("network").find("option port '2'"), std::string::npos);
    EXPECT_NE(file("network").find("option proto 'dhcp'"), std::string::npos);
    EXPECT_EQ(read_file(WAITING), "network.wan.proto='evil'\n") << "left alone";
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "port", "eth0"), 0);
    uci_context *slot = nullptr;
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "level", "7"), 0);
    EXPECT_EQ(_uci_commit(slot), 0);
    EXPECT_NE(file("wan_detect").find("option level '7'"), std::string::npos);
    EXPECT_NE(file("wan_detect").find("list port 'eth0'"), std::string::npos);
    EXPECT_EQ(file("wan_detect").find("evil"), std::string::npos);
}

// holds: foreign-save-folder
TEST_P(strange_save_folder, leaves_nothing_of_ours_behind)
{
    set("network.wan.port", "2");
    for (const char *place : {"/tmp", "/var/run/"})
        for (const auto &entry : fs::directory_iterator(place))
            EXPECT_EQ(entry.path().filename().string().rfind("wan_detect-", 0), std::string::npos) << entry.path();
}

// holds: foreign-save-folder
TEST_F(uci_save_folder, that_becomes_ours_again_counts_again)
{
    NEEDS_OTHER_USERS();
    ASSERT_EQ(chown(FOLDER, STRANGER, STRANGER), 0);
    EXPECT_EQ(value("network.wan.proto"), "dhcp");
    ASSERT_EQ(chown(FOLDER, 0, 0), 0);
    EXPECT_EQ(value("network.wan.proto"), "evil");
    ASSERT_EQ(chown(FOLDER, STRANGER, STRANGER), 0);
    EXPECT_EQ(value("network.wan.proto"), "dhcp");
    EXPECT_EQ(log.count("Error", "", TOLD), 2);
}
