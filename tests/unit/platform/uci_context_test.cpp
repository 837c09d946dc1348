// SPDX-License-Identifier: MIT
// Configuration access when the library hands out no context.
#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/log.h"
#include "platform/uci_access.h"
#include "platform/uci_edit.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/sandbox.h"

extern "C" {
#include <uci.h>
}

static bool no_context;   // the library has none to give
static bool no_directory; // it has one, but refuses the configuration directory
static bool is_prepared;  // a stranger has a save folder that he moves to its place before anything is loaded

static void move_prepared_folder()
{
    if (!is_prepared)
        return;
    EXPECT_EQ(seteuid(65534), 0);
    rename("/tmp/prepared", "/tmp/.uci");
    EXPECT_EQ(seteuid(0), 0);
}

extern "C" {
uci_context *__real_uci_alloc_context();
uci_context *__wrap_uci_alloc_context();
int __real_uci_set_confdir(uci_context *context, const char *directory);
int __wrap_uci_set_confdir(uci_context *context, const char *directory);
int __real_uci_load(uci_context *context, const char *name, uci_package **package);
int __wrap_uci_load(uci_context *context, const char *name, uci_package **package);
int __real_uci_lookup_ptr(uci_context *context, uci_ptr *pointer, char *path, bool extended);
int __wrap_uci_lookup_ptr(uci_context *context, uci_ptr *pointer, char *path, bool extended);

int __wrap_uci_load(uci_context *context, const char *name, uci_package **package)
{
    move_prepared_folder();
    return __real_uci_load(context, name, package);
}

int __wrap_uci_lookup_ptr(uci_context *context, uci_ptr *pointer, char *path, bool extended)
{
    move_prepared_folder();
    return __real_uci_lookup_ptr(context, pointer, path, extended);
}

uci_context *__wrap_uci_alloc_context()
{
    return no_context ? nullptr : __real_uci_alloc_context();
}

int __wrap_uci_set_confdir(uci_context *context, const char *directory)
{
    return no_directory ? UCI_ERR_MEM : __real_uci_set_confdir(context, directory);
}
}

namespace {

class uci_without_context : public testing::Test, public testing::WithParamInterface<bool *> {
protected:
    uci_without_context()
    {
        write_config("network", "config interface 'wan'\n\toption proto 'dhcp'\n");
        before = read_file("/etc/config/network");
        *GetParam() = true;
    }
    ~uci_without_context() override
    {
        *GetParam() = false;
        EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(read_file("/etc/config/network"), before);
        remove_config("network");
    }
    bool said(const std::string &function, const std::string &path)
    {
        return log.has("Error", function, "fail to init uci context:" + path);
    }

    t_log_capture log;
    uci_context *slot = nullptr;
    std::string before;
};

INSTANTIATE_TEST_SUITE_P(for_want_of, uci_without_context, testing::Values(&no_context, &no_directory),
                         [](const auto &parameter) { return parameter.index == 0 ? "memory" : "its_directory"; });

// holds: read-codes
TEST_P(uci_without_context, a_read_fails_and_leaves_the_buffer_alone)
{
    char value[UCI_VALUE_SIZE] = "before";
    EXPECT_EQ(_uci_get_value("network.wan.proto", value), -1);
    EXPECT_STREQ(value, "before");
    EXPECT_TRUE(said("_uci_get_value", "network.wan.proto"));
}

// holds: write-codes
TEST_P(uci_without_context, a_write_fails_and_leaves_the_path_whole)
{
    char path[] = "network.wan.proto";
    EXPECT_EQ(_uci_set_value_commit(path, "pppoe"), -1);
    EXPECT_STREQ(path, "network.wan.proto");
    EXPECT_TRUE(said("_uci_set_value_commit", "network.wan.proto"));
}

// holds: edit-codes
TEST_P(uci_without_context, a_change_that_would_wait_in_its_slot_fails)
{
    EXPECT_EQ(_uci_set_value(&slot, "network", "wan", "proto", "pppoe"), -1);
    EXPECT_EQ(_uci_delete(&slot, "network", "wan", "proto"), -1);
    EXPECT_EQ(_uci_add_list(&slot, "network", "wan", "dns", "1.1.1.1"), -1);
    EXPECT_EQ(_uci_del_add_list(&slot, "network", "wan", "dns", "1.1.1.1"), -1);
    EXPECT_TRUE(said("_uci_set_value", "network.wan.proto"));
    EXPECT_TRUE(said("_uci_delete", "network.wan.proto"));
    EXPECT_TRUE(said("_uci_add_list", "network.wan.dns"));
    EXPECT_TRUE(said("_uci_del_add_list", "network.wan.dns"));
}

// holds: edit-codes
TEST_P(uci_without_context, a_change_that_is_committed_at_once_fails)
{
    EXPECT_EQ(_uci_delete_commit("network", "wan", "proto"), -1);
    EXPECT_EQ(_uci_add_list_commit("network", "wan", "dns", "1.1.1.1"), -1);
    EXPECT_EQ(_uci_del_add_list_commit("network", "wan", "dns", "1.1.1.1"), -1);
    EXPECT_TRUE(said("_uci_delete_commit", "network.wan.proto"));
    EXPECT_TRUE(said("_uci_add_list_commit", "network.wan.dns"));
    EXPECT_TRUE(said("_uci_del_add_list_commit", "network.wan.dns"));
}

// holds: edit-codes
TEST_P(uci_without_context, a_commit_without_a_slot_fails)
{
    EXPECT_EQ(_uci_commit(slot), -1);
    EXPECT_TRUE(log.has("Error", "_uci_commit", "fail to init uci context"));
    EXPECT_TRUE(log.has("Error", "_uci_commit", "commit failed"));
}

// holds: edit-codes
TEST_P(uci_without_context, the_runtime_state_is_not_there_and_the_line_about_it_bypasses_the_level)
{
    char value[16] = "before";
    log_set_level(0);
    EXPECT_EQ(_uci_get_state_value("network", "wan", "proto", value, sizeof value), -1);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(log.text(), "ntp failed: uci_alloc_context failed.\n");
}

TEST_P(uci_without_context, a_package_that_is_to_be_walked_is_null)
{
    t_uci_package network("network");
    EXPECT_EQ(network.package, nullptr);
}

// Between the look at the save folder and its use there is time for others.
class uci_late_save_folder : public testing::Test {
protected:
    void SetUp() override
    {
        NEEDS_OTHER_USERS();
        write_config("network", "config interface 'wan'\n\toption proto 'dhcp'\n");
        std::filesystem::remove_all("/tmp/.uci");
        write_file("/tmp/prepared/network", "network.wan.proto='evil'\n");
        for (const char *path : {"/tmp/prepared", "/tmp/prepared/network"})
            EXPECT_EQ(chown(path, 65534, 65534), 0);
        EXPECT_EQ(chmod("/tmp", 01777), 0);
        is_prepared = true;
    }
    void TearDown() override
    {
        is_prepared = false;
        for (const char *path : {"/tmp/.uci", "/tmp/prepared"})
            std::filesystem::remove_all(path);
        remove_config("network");
    }
    static std::string value()
    {
        char text[UCI_VALUE_SIZE] = "";
        return _uci_get_value("network.wan.proto", text) == 0 ? text : "(failed)";
    }
};

// holds: save-folder-made
TEST_F(uci_late_save_folder, of_a_stranger_finds_its_place_taken)
{
    EXPECT_EQ(value(), "dhcp");
    EXPECT_NE(t_uci_package("network").package, nullptr);
    struct stat folder = {};
    ASSERT_EQ(stat("/tmp/.uci", &folder), 0);
    EXPECT_EQ(folder.st_uid, 0u);
    EXPECT_EQ(folder.st_mode & 07777, 0700u);
}

// holds: save-folder-made
TEST_F(uci_late_save_folder, is_not_read_where_none_could_be_made)
{
    std::filesystem::create_directory("/run/bare");
    ASSERT_EQ(mount("tmpfs", "/run/bare", "tmpfs", 0, "nr_inodes=3,mode=1777"), 0);
    std::filesystem::rename("/tmp/prepared", "/tmp/prepared.away");
    std::filesystem::copy("/tmp/prepared.away", "/run/bare/prepared");
    for (const char *path : {"/run/bare/prepared", "/run/bare/prepared/network"})
        EXPECT_EQ(chown(path, 65534, 65534), 0);
    ASSERT_EQ(mount("/run/bare", "/tmp", nullptr, MS_MOVE, nullptr), 0);
    EXPECT_EQ(value(), "dhcp");
    EXPECT_TRUE(file_exists("/tmp/.uci/network")) << "it did come";
    EXPECT_EQ(umount2("/tmp", MNT_DETACH), 0);
    std::filesystem::remove_all("/tmp/prepared.away");
}

} // namespace
