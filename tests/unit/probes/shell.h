// SPDX-License-Identifier: MIT
// Commands that build a test's network inside the sandbox's own namespace.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/mount.h>

// Ends the program when the command fails: a test must not go on in a network that is not there.
inline void must_run(const std::string &command)
{
    if (system(command.c_str()) == 0)
        return;
    fprintf(stderr, "failed: %s\n", command.c_str());
    abort();
}

// Hides the kernel's network folder behind an empty one of the test's own, which it may fill, while it lives.
struct t_hidden_sysfs {
    t_hidden_sysfs() { EXPECT_EQ(mount("tmpfs", "/sys/class/net", "tmpfs", 0, nullptr), 0); }
    ~t_hidden_sysfs() { EXPECT_EQ(umount("/sys/class/net"), 0); }
    t_hidden_sysfs(const t_hidden_sysfs &) = delete;
    t_hidden_sysfs &operator=(const t_hidden_sysfs &) = delete;
};
