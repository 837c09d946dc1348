// SPDX-License-Identifier: MIT
// Folders that lie over others number what is delivered below with 64 bits, however few the C library makes do with.
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/uci_access.h"
#include "tests/unit/support/sandbox.h"

namespace {

const std::string FIRMWARE = "/run/firmware";

// A configuration as the firmware delivers it, on a disk that nobody writes to, with what is changed on another one.
class file_numbers : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char *folder : {"/lower", "/upper"})
            std::filesystem::create_directories(FIRMWARE + folder);
        ASSERT_EQ(mount("tmpfs", (FIRMWARE + "/lower").c_str(), "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mount("tmpfs", (FIRMWARE + "/upper").c_str(), "tmpfs", 0, nullptr), 0);
        for (const char *folder : {"/upper/files", "/upper/work"})
            std::filesystem::create_directories(FIRMWARE + folder);
        write_file(FIRMWARE + "/lower/network", "config interface 'wan'\n\toption proto 'dhcp'\n");
        const std::string layers = "xino=on,lowerdir=" + FIRMWARE + "/lower,upperdir=" + FIRMWARE +
                                   "/upper/files,workdir=" + FIRMWARE + "/upper/work";
        ASSERT_EQ(mount("overlay", "/etc/config", "overlay", 0, layers.c_str()), 0);
    }
    ~file_numbers() override
    {
        umount("/etc/config");
        umount((FIRMWARE + "/upper").c_str());
        umount((FIRMWARE + "/lower").c_str());
    }
};

// holds: any-file-number
TEST_F(file_numbers, of_64_bits_are_no_obstacle_to_reading_and_writing_the_configuration)
{
    struct stat file = {};
    ASSERT_EQ(stat("/etc/config/network", &file), 0);
    ASSERT_GT(file.st_ino, UINT32_MAX);
    char value[UCI_VALUE_SIZE], change[] = "network.wan.proto";
    EXPECT_EQ(_uci_get_value("network.wan.proto", value), 0);
    EXPECT_STREQ(value, "dhcp");
    EXPECT_EQ(_uci_set_value_commit(change, "pppoe"), 0);
    EXPECT_NE(read_file("/etc/config/network").find("option proto 'pppoe'"), std::string::npos);
}

} // namespace
