// SPDX-License-Identifier: MIT
// Result files.
#include <atomic>
#include <filesystem>
#include <thread>

#include <sys/mount.h>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "support/sandbox.h"

namespace {

const std::string PATH = "/tmp/some_result";

}

TEST(delete_file, removes_the_file_and_says_so)
{
    write_file(PATH, "eth0");
    t_log_capture log;
    delete_file(PATH.c_str());
    EXPECT_FALSE(file_exists(PATH));
    EXPECT_TRUE(log.has("Debug", "delete_file", "file:/tmp/some_result deleted!"));
}

TEST(delete_file, of_a_missing_file_is_only_logged)
{
    t_log_capture log;
    delete_file("/tmp/no_such_file");
    EXPECT_TRUE(log.has("Info", "delete_file", "file:/tmp/no_such_file delete failed!"));
}

TEST(delete_file, leaves_a_folder_alone)
{
    std::filesystem::create_directory("/tmp/a_folder");
    t_log_capture log;
    delete_file("/tmp/a_folder");
    EXPECT_TRUE(file_exists("/tmp/a_folder"));
    EXPECT_TRUE(log.has("Info", "delete_file", "file:/tmp/a_folder delete failed!"));
    std::filesystem::remove("/tmp/a_folder");
}

TEST(write_whole_file, holds_exactly_the_text)
{
    EXPECT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    EXPECT_EQ(read_file(PATH), "eth1");
}

TEST(write_whole_file, leaves_nothing_of_a_longer_text)
{
    write_file(PATH, "a much longer text than the new one");
    EXPECT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    EXPECT_EQ(read_file(PATH), "eth1");
}

TEST(write_whole_file, of_an_empty_text_leaves_an_empty_file)
{
    EXPECT_TRUE(write_whole_file(PATH.c_str(), ""));
    EXPECT_TRUE(file_exists(PATH));
    EXPECT_EQ(read_file(PATH), "");
}

TEST(write_whole_file, fails_without_its_folder)
{
    EXPECT_FALSE(write_whole_file("/tmp/no_such_folder/result", "eth1"));
}

TEST(write_whole_file, fails_with_a_folder_in_its_place)
{
    std::filesystem::create_directory("/tmp/a_folder");
    EXPECT_FALSE(write_whole_file("/tmp/a_folder", "eth1"));
    EXPECT_TRUE(file_exists("/tmp/a_folder"));
    EXPECT_FALSE(file_exists("/tmp/a_folder.new"));
    std::filesystem::remove("/tmp/a_folder");
}

TEST(write_whole_file, of_a_path_that_leaves_no_room_for_a_draft_fails)
{
    const std::string folder = "/tmp/" + std::string(200, 'a');
    std::filesystem::create_directory(folder);
    EXPECT_FALSE(write_whole_file((folder + "/" + std::string(50, 'b')).c_str(), "eth1"));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::remove(folder);
}

TEST(write_whole_file, is_not_led_elsewhere_by_a_draft_that_was_left_behind)
{
    write_file("/tmp/elsewhere", "untouched");
    std::filesystem::create_symlink("/tmp/elsewhere", PATH + ".new");
    EXPECT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    EXPECT_EQ(read_file(PATH), "eth1");
    EXPECT_EQ(read_file("/tmp/elsewhere"), "untouched");
    EXPECT_FALSE(std::filesystem::is_symlink(PATH));
    std::filesystem::remove("/tmp/elsewhere");
}

TEST(write_whole_file, on_a_full_disk_fails_and_leaves_the_former_file)
{
    const std::string disk = "/tmp/small_disk";
    std::filesystem::create_directory(disk);
    ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=4k"), 0); // one page
    EXPECT_TRUE(write_whole_file((disk + "/result").c_str(), "eth1"));
    EXPECT_FALSE(write_whole_file((disk + "/result").c_str(), "eth2"));
    EXPECT_EQ(read_file(disk + "/result"), "eth1");
    EXPECT_FALSE(file_exists(disk + "/result.new"));
    umount(disk.c_str());
    std::filesystem::remove(disk);
}

// A reader that never rests sees the one text or the other, and nothing in between.
TEST(write_whole_file, is_never_seen_half_written)
{
    constexpr int ROUNDS = 2000;
    ASSERT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    std::atomic<bool> over = false;
    std::atomic<int> odd = 0;
    std::thread reader([&] {
        while (!over) {
            const std::string seen = read_file(PATH);
            odd += seen != "eth1" && seen != "eth2";
        }
    });
    for (int i = 0; i < ROUNDS; i++)
        EXPECT_TRUE(write_whole_file(PATH.c_str(), i % 2 ? "eth1" : "eth2"));
    over = true;
    reader.join();
    EXPECT_EQ(odd, 0);
}
