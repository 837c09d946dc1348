// SPDX-License-Identifier: MIT
// A loop per test, with the signal dispositions a fresh process has, and watches that run a function.
#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

inline constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGCHLD, SIGPIPE, SIGUSR1};

// A test that starts the loop by itself.
class bare_loop_test : public ::testing::Test {
protected:
    bare_loop_test()
    {
        for (size_t i = 0; i < saved_.size(); i++) {
            sigaction(SIGNALS[i], nullptr, &saved_[i]);
            signal(SIGNALS[i], SIG_DFL);
        }
        uloop_handle_sigchld = true;
        uloop_fd_set_cb = nullptr;
    }

    ~bare_loop_test() override
    {
        uloop_done();
        uloop_fd_set_cb = nullptr;
        for (size_t i = 0; i < saved_.size(); i++)
            sigaction(SIGNALS[i], &saved_[i], nullptr);
    }

private:
    std::array<struct sigaction, std::size(SIGNALS)> saved_;
};

class loop_test : public bare_loop_test {
protected:
    void SetUp() override { ASSERT_EQ(uloop_init(), 0); }
};

inline void (*disposition(int signo))(int)
{
    struct sigaction action;
    sigaction(signo, nullptr, &action);
    return action.sa_handler;
}

struct timer : uloop_timeout {
    explicit timer(std::function<void()> function = {}) : uloop_timeout{}, run(std::move(function))
    {
        cb = [](uloop_timeout *t) { static_cast<timer *>(t)->run(); };
    }
    ~timer() { uloop_timeout_cancel(this); }
    timer(const timer &) = delete;
    timer &operator=(const timer &) = delete;

    std::function<void()> run;
};

struct watch : uloop_fd {
    explicit watch(
        int descriptor, std::function<void(unsigned int)> function = [](unsigned int) {})
        : uloop_fd{}, run(std::move(function))
    {
        fd = descriptor;
        cb = [](uloop_fd *u, unsigned int events) { static_cast<watch *>(u)->run(events); };
    }
    ~watch() { uloop_fd_delete(this); }
    watch(const watch &) = delete;
    watch &operator=(const watch &) = delete;

    std::function<void(unsigned int)> run;
};

// Two connected descriptors, closed at the end unless the test did so.
struct fd_pair {
    ~fd_pair()
    {
        close_end(0);
        close_end(1);
    }
    void close_end(int i)
    {
        if (fds[i] >= 0)
            close(fds[i]);
        fds[i] = -1;
    }
    int fds[2] = {-1, -1};
};

struct pipe_pair : fd_pair {
    pipe_pair() { EXPECT_EQ(pipe(fds), 0); }
    int reader() const { return fds[0]; }
    int writer() const { return fds[1]; }
    void fill(const char *bytes = "x") { EXPECT_GT(write(fds[1], bytes, strlen(bytes)), 0); }
};

struct socket_pair : fd_pair {
    socket_pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0); }
};

// Runs the loop until something ends it, or for ten times as long as what is waited for takes on a machine that has
// nothing else to do; for long waits, twice.
inline int run_for(int ms)
{
    constexpr int LONG_MS = 1000;
    timer end([] { uloop_end(); });
    uloop_timeout_set(&end, ms * (ms < LONG_MS ? 10 : 2));
    return uloop_run();
}

inline double ms_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline std::chrono::steady_clock::time_point clock_now()
{
    return std::chrono::steady_clock::now();
}
