// SPDX-License-Identifier: MIT
// Configuration files that somebody else keeps locked, on a clock that only moves while somebody waits.
#include <fcntl.h>
#include <filesystem>
#include <numeric>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <uci.h>

#include "platform/ending.h"
#include "platform/uci_access.h"
#include "platform/uci_edit.h"
#include "platform/uci_lock.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr int64_t ONE_POLL_MS = 10; // more than what a wait may be off

// A lock of somebody else, who may only read the file.
class t_foreign_lock {
public:
    explicit t_foreign_lock(const std::string &path, int operation = LOCK_EX)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_EQ(flock(fd_, operation | LOCK_NB), 0) << path;
    }
    ~t_foreign_lock() { let_go(); }
    void let_go()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

class uci_lock : public testing::Test {
protected:
    uci_lock()
    {
        write_config("network", "config interface 'wan'\n\toption proto 'dhcp'\n");
        write_config("switch", "config switch_port 'port1'\n\toption ifname 'eth0'\n");
        write_config("wan_detect", "config settings 'main'\n\toption level '2'\n");
        fake_clock.reset();
        fake_clock.set(1000);
    }
    ~uci_lock() override
    {
        fake_clock.reset();
        for (const char *package : {"network", "switch", "wan_detect"})
            remove_config(package);
        std::filesystem::remove_all("/tmp/.uci");
    }
    static int get(const char *path)
    {
        char value[UCI_VALUE_SIZE];
        return _uci_get_value(path, value);
    }
    static int set(const char *value)
    {
        char path[] = "network.wan.proto";
        return _uci_set_value_commit(path, value);
    }
    // Since the last time it was asked for.
    static int64_t waited_ms()
    {
        const int64_t sum = std::accumulate(fake_clock.sleeps.begin(), fake_clock.sleeps.end(), int64_t{0});
        fake_clock.sleeps.clear();
        return sum;
    }
    // Every thread has its own time, so each test is one.
    template <typename Body> static void on_a_thread(Body body)
    {
        std::thread thread(body);
        thread.join();
    }

    t_log_capture log;
};

} // namespace

// holds: locked-read
TEST_F(uci_lock, a_read_of_a_locked_file_fails_after_a_second)
{
    const t_foreign_lock lock("/etc/config/network");
    on_a_thread([&] {
        EXPECT_EQ(get("network.wan.proto"), -1);
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    });
    EXPECT_TRUE(log.has("Info", "_uci_get_value", "fail to get ptr network.wan.proto "));
}

// holds: locked-read
TEST_F(uci_lock, while_the_daemon_starts_a_locked_file_is_waited_for_longer)
{
    const t_foreign_lock lock("/etc/config/network");
    set_uci_lock_limit(UCI_LOCK_START_LIMIT_MS);
    on_a_thread([] {
        EXPECT_EQ(get("network.wan.proto"), -1);
        EXPECT_NEAR(waited_ms(), UCI_LOCK_START_LIMIT_MS, ONE_POLL_MS);
    });
    set_uci_lock_limit(UCI_LOCK_LIMIT_MS);
}

// holds: locked-start-up
TEST_F(uci_lock, what_start_up_waited_is_not_held_against_what_comes_after_it)
{
    const t_foreign_lock lock("/etc/config/network"), other("/etc/config/switch");
    on_a_thread([&] {
        set_uci_lock_limit(UCI_LOCK_START_LIMIT_MS);
        get("network.wan.proto");
        set_uci_lock_limit(UCI_LOCK_LIMIT_MS);
        waited_ms();
        fake_clock.advance_ms(UCI_LOCK_LIMIT_MS);
        get("switch.port1.ifname");
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    });
}

// holds: locked-start-up
TEST_F(uci_lock, a_process_that_is_told_to_end_while_it_starts_waits_no_longer_than_later_on)
{
    const t_foreign_lock lock("/etc/config/network"), other("/etc/config/switch");
    ASSERT_TRUE(init_ending());
    set_uci_lock_limit(UCI_LOCK_START_LIMIT_MS);
    fake_clock.during_sleep = [](uint32_t) { ask_for_end(); };
    on_a_thread([&] {
        get("network.wan.proto");
        get("switch.port1.ifname");
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS + UCI_LOCK_FLOOR_MS, ONE_POLL_MS);
    });
    release_ending();
    set_uci_lock_limit(UCI_LOCK_LIMIT_MS);
}

// holds: locked-read
TEST_F(uci_lock, a_file_refused_again_and_again_does_not_let_another_one_be_forgotten)
{
    const t_foreign_lock lock("/etc/config/network"), other("/etc/config/switch");
    on_a_thread([&] {
        get("switch.port1.ifname");
        for (int i = 0; i < 20; i++)
            get("network.wan.proto");
        waited_ms();
        get("switch.port1.ifname");
        EXPECT_EQ(waited_ms(), 0);
    });
}

// holds: locked-read
TEST_F(uci_lock, a_file_that_is_let_go_in_time_is_read)
{
    t_foreign_lock lock("/etc/config/network");
    fake_clock.during_sleep = [&](uint32_t) {
        if (fake_clock.now_us >= 1'000'900'000)
            lock.let_go();
    };
    on_a_thread([&] {
        EXPECT_EQ(get("network.wan.proto"), 0);
        EXPECT_NEAR(waited_ms(), 900, ONE_POLL_MS);
    });
}

// holds: locked-read
TEST_F(uci_lock, whoever_only_reads_is_not_waited_for)
{
    const t_foreign_lock lock("/etc/config/network", LOCK_SH);
    on_a_thread([&] { EXPECT_EQ(get("network.wan.proto"), 0); });
    EXPECT_EQ(waited_ms(), 0);
}

// holds: locked-read
TEST_F(uci_lock, reads_that_follow_each_other_share_the_second)
{
    const t_foreign_lock lock("/etc/config/network"), other("/etc/config/switch");
    on_a_thread([&] {
        for (int i = 0; i < 20; i++) {
            EXPECT_EQ(get("network.wan.proto"), -1);
            EXPECT_EQ(get("switch.port1.ifname"), -1);
        }
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS + UCI_LOCK_FLOOR_MS, ONE_POLL_MS);
    });
}

// holds: locked-read
TEST_F(uci_lock, a_file_that_is_just_written_is_read_although_the_second_is_spent_on_another)
{
    const t_foreign_lock lock("/etc/config/network");
    t_foreign_lock writer("/etc/config/switch");
    on_a_thread([&] {
        get("network.wan.proto");
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
        fake_clock.during_sleep = [&](uint32_t) {
            if (waited_ms() >= UCI_LOCK_FLOOR_MS / 4)
                writer.let_go();
        };
        EXPECT_EQ(get("switch.port1.ifname"), 0);
    });
}

// holds: locked-read
TEST_F(uci_lock, time_without_a_wait_is_got_back)
{
    const t_foreign_lock lock("/etc/config/network");
    on_a_thread([&] {
        get("network.wan.proto");
        waited_ms();
        fake_clock.advance_ms(400);
        get("network.wan.proto");
        EXPECT_NEAR(waited_ms(), 400, ONE_POLL_MS);
        fake_clock.advance_ms(60000);
        get("network.wan.proto");
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    });
}

// holds: locked-read
TEST_F(uci_lock, after_a_wait_in_vain_a_free_file_is_read_at_once)
{
    const t_foreign_lock lock("/etc/config/network");
    on_a_thread([&] {
        get("network.wan.proto");
        waited_ms();
        EXPECT_EQ(get("switch.port1.ifname"), 0);
        EXPECT_EQ(waited_ms(), 0);
    });
}

// holds: locked-read
TEST_F(uci_lock, each_thread_has_its_own_second)
{
    const t_foreign_lock lock("/etc/config/network");
    for (int i = 0; i < 2; i++) {
        on_a_thread([&] { get("network.wan.proto"); });
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    }
}

// holds: locked-read
TEST_F(uci_lock, a_locked_package_cannot_be_loaded_and_the_reason_is_that_it_cannot_be_read)
{
    const t_foreign_lock lock("/etc/config/network");
    on_a_thread([&] {
        const t_uci_package network("network");
        EXPECT_EQ(network.package, nullptr);
        testing::internal::CaptureStderr();
        network.tell_error();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "network: I/O error\n");
    });
}

// holds: locked-read
TEST_F(uci_lock, changes_that_wait_and_are_locked_are_not_passed_over)
{
    write_file("/tmp/.uci/network", "network.wan.proto='pppoe'\n");
    std::filesystem::permissions("/tmp/.uci", std::filesystem::perms(0755));
    const t_foreign_lock lock("/tmp/.uci/network");
    on_a_thread([&] {
        EXPECT_EQ(get("network.wan.proto"), -1);
        EXPECT_EQ(t_uci_package("network").package, nullptr);
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    });
}

// holds: locked-read
TEST_F(uci_lock, a_locked_file_leaks_no_descriptor)
{
    const auto open_ones = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const t_foreign_lock lock("/etc/config/network");
    on_a_thread([&] {
        const auto before = open_ones();
        for (int i = 0; i < 20; i++)
            get("network.wan.proto");
        EXPECT_EQ(open_ones(), before);
    });
}

// holds: locked-commit
TEST_F(uci_lock, a_commit_of_a_locked_file_fails_after_a_second)
{
    const std::string before = read_file("/etc/config/network");
    for (int operation : {LOCK_EX, LOCK_SH}) {
        const t_foreign_lock lock("/etc/config/network", operation);
        on_a_thread([&] { EXPECT_EQ(set("pppoe"), -1); });
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
        EXPECT_EQ(read_file("/etc/config/network"), before);
    }
    EXPECT_EQ(read_file("/tmp/.uci/network"), "network.wan.proto='pppoe'\n") << "what could be read, but not written";
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to get ptr again network.wan.proto "));
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to commit network.wan.proto"));
}

// holds: locked-commit
TEST_F(uci_lock, the_other_members_wait_no_longer)
{
    const t_foreign_lock lock("/etc/config/wan_detect");
    on_a_thread([&] {
        uci_context *slot = nullptr;
        EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "level", "7"), -1);
        EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(_uci_set_value(&slot, "network", "wan", "proto", "pppoe"), 0);
        EXPECT_EQ(_uci_commit(slot), -1);
        EXPECT_EQ(_uci_delete_commit("wan_detect", "main", "level"), -1);
        EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "port", "eth0"), -1);
        EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "port", "eth0"), -1);
        char value[8];
        EXPECT_EQ(_uci_get_state_value("wan_detect", "main", "level", value, sizeof value), -1);
        EXPECT_NEAR(waited_ms(), UCI_LOCK_LIMIT_MS, ONE_POLL_MS);
    });
    EXPECT_EQ(read_file("/etc/config/wan_detect"), "config settings 'main'\n\toption level '2'\n");
}
