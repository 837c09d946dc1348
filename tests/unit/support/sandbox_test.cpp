// SPDX-License-Identifier: MIT
// The sandbox keeps the host out, and a captured log hides nothing of a test that failed.
#include "tests/unit/support/sandbox.h"

#include <functional>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/log.h"

namespace {

// What a copy of this process, which may fail without harm, prints while it does `act`.
std::string printed_by_a_copy(const std::function<void()> &act)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    fflush(stdout);
    pid_t copy = fork();
    if (copy == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        act();
        fflush(stdout);
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char chunk[4096];
    ssize_t got;
    while ((got = read(ends[0], chunk, sizeof chunk)) > 0)
        text.append(chunk, static_cast<size_t>(got));
    close(ends[0]);
    EXPECT_EQ(waitpid(copy, nullptr, 0), copy);
    return text;
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(sandbox, what_is_written_to_the_console_stays_in_a_file)
{
    struct stat status = {};
    ASSERT_EQ(stat("/dev/console", &status), 0);
    ASSERT_TRUE(S_ISREG(status.st_mode));
    write_file("/dev/console", "said on the console");
    EXPECT_EQ(read_file("/dev/console"), "said on the console");
}

TEST(sandbox, runtime_state_is_not_the_hosts)
{
    write_file("/var/state/sandbox_test", "private");
    EXPECT_EQ(read_file("/run/scratch/_var/upper/state/sandbox_test"), "private");
}

TEST(log_capture, shows_the_reason_of_a_failure_and_what_was_said_before_it)
{
    std::string text = printed_by_a_copy([] {
        t_log_capture log;
        LOG(Error, "said before\n");
        ADD_FAILURE() << "the reason";
    });
    size_t said = text.find("]: said before\n");
    ASSERT_NE(said, std::string::npos) << text;
    EXPECT_NE(text.find("the reason", said), std::string::npos) << text;
}

TEST(log_capture, within_another_one_shows_a_failure_all_the_same)
{
    std::string text = printed_by_a_copy([] {
        t_log_capture outer;
        t_log_capture inner;
        ADD_FAILURE() << "the reason";
    });
    EXPECT_TRUE(contains(text, "the reason")) << text;
}

TEST(log_capture, of_a_test_without_failures_shows_nothing)
{
    EXPECT_EQ(printed_by_a_copy([] {
                  t_log_capture log;
                  LOG(Error, "said\n");
              }),
              "");
}

TEST(log_capture, gives_standard_output_and_the_level_back)
{
    int before = log_get_level();
    std::string text = printed_by_a_copy([] {
        {
            t_log_capture log;
        }
        printf("afterwards");
    });
    EXPECT_EQ(text, "afterwards");
    {
        t_log_capture log;
        EXPECT_EQ(log_get_level(), LOG_LEVEL_Debug);
    }
    EXPECT_EQ(log_get_level(), before);
}
