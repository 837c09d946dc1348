// SPDX-License-Identifier: MIT
// A library client of the test's own on a real bus, and services in processes of theirs.
#pragma once

#include "library_clients.h"
#include "scripted_daemon.h"

#include <csignal>
#include <memory>
#include <unistd.h>

using t_clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int SHORT_MS = 50;

inline int64_t elapsed_ms(t_clock::time_point start)
{
    return std::chrono::duration_cast<milliseconds>(t_clock::now() - start).count();
}

// A service in a process of its own, which reports at its end.
class t_service {
public:
    t_service(const std::string &socket, void (*publish)(t_library_client &))
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        process_.emplace([&] {
            t_library_client client(socket);
            publish(client);
            EXPECT_EQ(write(ready[1], "r", 1), 1);
            close(ready[1]);
            close(ready[0]);
            client.run();
            for (const std::string &line : client.report) {
                printf("%s\n", line.c_str());
            }
            return 0;
        });
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }

    std::string stop()
    {
        process_->signal(SIGTERM);
        EXPECT_EQ(process_->wait(), 0);
        EXPECT_EQ(process_->errors(), "");
        return process_->output();
    }

    void kill() { process_.reset(); }

private:
    std::optional<t_process> process_;
};

class library_test : public t_bus_test {
protected:
    void TearDown() override
    {
        client_.reset();
        t_bus_test::TearDown();
    }

    ubus_context *ctx()
    {
        if (!client_) {
            client_ = std::make_unique<t_library_client>(socket_);
        }
        return client_->ctx();
    }

    uint32_t id_of(const std::string &path)
    {
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(ctx(), path.c_str(), &id), 0) << path;
        return id;
    }

    int call(uint32_t id, const char *method, int timeout_ms = 0)
    {
        return ubus_invoke(ctx(), id, method, nullptr, nullptr, nullptr, timeout_ms);
    }

    void run_for(int ms)
    {
        uloop_timeout end = {};
        end.cb = [](uloop_timeout *) { uloop_end(); };
        uloop_timeout_set(&end, ms);
        uloop_run();
        uloop_timeout_cancel(&end);
    }

    std::unique_ptr<t_library_client> client_;
};
