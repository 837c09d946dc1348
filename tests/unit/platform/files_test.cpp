// SPDX-License-Identifier: MIT
// Result files.
#include <filesystem>

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

TEST(write_whole_file, fails_when_the_disk_is_full)
{
    EXPECT_FALSE(write_whole_file("/dev/full", "eth1"));
}
