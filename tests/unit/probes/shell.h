// SPDX-License-Identifier: MIT
// Commands that build a test's network inside the sandbox's own namespace.
#pragma once

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/mount.h>

inline void run(const std::string &command)
{
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

// Hides the kernel's network folder behind an empty one of the test's own, which it may fill, while it lives.
struct t_hidden_sysfs {
    t_hidden_sysfs() { EXPECT_EQ(mount("tmpfs", "/sys/class/net", "tmpfs", 0, nullptr), 0); }
    ~t_hidden_sysfs() { EXPECT_EQ(umount("/sys/class/net"), 0); }
    t_hidden_sysfs(const t_hidden_sysfs &) = delete;
    t_hidden_sysfs &operator=(const t_hidden_sysfs &) = delete;
};
