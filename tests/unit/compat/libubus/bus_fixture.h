// SPDX-License-Identifier: MIT
// A bus of the test's own in a private folder, programs run against it, and a raw connection to it.
#pragma once

#include "recording.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// Longer than anything takes on a busy machine.
constexpr auto PATIENCE = std::chrono::seconds(10);

// A folder that goes away with its content. Everybody may enter it.
class t_private_folder {
public:
    t_private_folder();
    ~t_private_folder();
    t_private_folder(const t_private_folder &) = delete;
    t_private_folder &operator=(const t_private_folder &) = delete;

    std::string path(const std::string &name) const { return folder_ + "/" + name; }

private:
    std::string folder_;
};

// A child process with its output caught.
class t_process {
public:
    enum t_stderr { to_pipe, to_terminal };

    // A program of the build, run as the given user.
    t_process(const std::string &program, const std::vector<std::string> &arguments, t_stderr kind = to_pipe,
              uid_t user = 0);
    // A function in a fork; its return value is the exit code.
    explicit t_process(const std::function<int()> &body);
    ~t_process(); // kills it if it still runs
    t_process(const t_process &) = delete;
    t_process &operator=(const t_process &) = delete;

    void signal(int number) const;
    // Exit code, or the negative number of the signal that ended it. Kills it after PATIENCE.
    int wait();
    // Waits until something was written, and returns it; wait() returns all of it again.
    const std::string &first_output();
    // Complete after wait().
    const std::string &output() const { return output_; }
    const std::string &errors() const { return errors_; }
    pid_t pid() const { return pid_; }

private:
    void start(t_stderr kind, const std::function<int()> &body);
    void read_until_end();

    pid_t pid_ = -1;
    int output_fd_ = -1;
    int errors_fd_ = -1;
    std::string output_;
    std::string errors_;
    std::optional<int> result_;
};

// A running ubusd.
class t_daemon {
public:
    // Without a folder of its own it finds no access lists.
    explicit t_daemon(const std::string &socket, const std::string &access_folder = "/nonexistent");
    ~t_daemon();

    // Ends it and returns its exit code; whatever it complained about becomes a failure of the test.
    int stop();
    // Without a chance to clean up.
    void kill();
    pid_t pid() const { return process_->pid(); }

private:
    std::optional<t_process> process_;
};

// Bytes to and from a bus, without the library.
class t_connection {
public:
    explicit t_connection(int fd) : fd_(fd) {}
    // Connects and leaves the greeting unread.
    explicit t_connection(const std::string &socket, uid_t user = 0);
    ~t_connection() { close(); }
    t_connection(t_connection &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    t_connection &operator=(t_connection &&) = delete;

    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    // False if the other side is gone.
    bool send(const t_bytes &bytes);
    // The next frame; nullopt at the end of the stream, or when nothing comes in time.
    std::optional<t_bytes> receive(std::chrono::milliseconds limit = PATIENCE);
    // True if the other side closes without sending anything more.
    bool is_closed_by_peer();
    void close();

private:
    bool read_exactly(t_bytes &into, size_t count, std::chrono::steady_clock::time_point deadline);

    int fd_;
};

// Whether the process, and no other, greets who connects to this socket before PATIENCE is over.
bool wait_until_it_serves(const t_process &bus, const std::string &socket);

t_bytes frame_header(uint8_t type, uint16_t seq, uint32_t peer, uint32_t blob_word);

class t_bus_test : public testing::Test {
protected:
    void SetUp() override { daemon_.emplace(socket_); }
    void TearDown() override;

    // A connection that was greeted.
    t_connection connect(uid_t user = 0);
    // Whether the bus still serves: answers a ping.
    void expect_alive();

    t_private_folder folder_;
    std::string socket_ = folder_.path("bus");
    std::optional<t_daemon> daemon_;
};
