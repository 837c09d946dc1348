// SPDX-License-Identifier: MIT
// The daemon's half of a recorded conversation.
#include "scripted_daemon.h"

#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A listening socket whose backlog must hold the clients of one test.
constexpr int BACKLOG = 4;

void play_steps(t_connection &client, const t_conversation &script,
                const std::function<void(t_connection &)> &before_end)
{
    for (size_t i = 0; i < script.steps.size(); i++) {
        const t_step &step = script.steps[i];
        if (step.kind == t_step::from_daemon) {
            ASSERT_TRUE(client.send(step.frame)) << script.name << " is gone at step " << i;
        } else if (step.kind == t_step::from_client) {
            std::optional<t_bytes> frame = client.receive();
            ASSERT_TRUE(frame) << script.name << " sends nothing at step " << i;
            ASSERT_EQ(to_hex(*frame), to_hex(step.frame)) << script.name << " step " << i;
        } else if (before_end) {
            break;
        } else if (step.kind == t_step::client_closes) {
            EXPECT_TRUE(client.is_closed_by_peer()) << script.name << " does not close";
        }
    }
    if (before_end) {
        before_end(client);
    }
}

} // namespace

t_scripted_daemon::t_scripted_daemon(const std::string &socket)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socket.c_str(), sizeof(address.sun_path) - 1);
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd_, BACKLOG), 0);
}

t_scripted_daemon::~t_scripted_daemon()
{
    finish();
    close(fd_);
}

void t_scripted_daemon::play(const t_conversation &script, const std::function<void(t_connection &)> &before_end)
{
    pollfd readable = {.fd = fd_, .events = POLLIN, .revents = 0};
    int limit = static_cast<int>(std::chrono::milliseconds(PATIENCE).count());
    ASSERT_GT(poll(&readable, 1, limit), 0) << script.name << " does not connect";
    t_connection client(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    play_steps(client, script, before_end);
}

void t_scripted_daemon::play_in_background(std::vector<t_conversation> scripts)
{
    thread_ = std::thread([this, scripts = std::move(scripts)] {
        for (const t_conversation &script : scripts) {
            play(script);
        }
    });
}

void t_scripted_daemon::finish()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}
