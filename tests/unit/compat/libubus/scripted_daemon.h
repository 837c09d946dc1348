// SPDX-License-Identifier: MIT
// A stand-in for the daemon that plays one recorded conversation byte by byte and checks the client's side of it.
#pragma once

#include "bus_fixture.h"

#include <thread>

class t_scripted_daemon {
public:
    explicit t_scripted_daemon(const std::string &socket);
    ~t_scripted_daemon();
    t_scripted_daemon(const t_scripted_daemon &) = delete;
    t_scripted_daemon &operator=(const t_scripted_daemon &) = delete;

    // Accepts one client and plays the script with it. before_end runs when only the end of the connection is left, and
    // gets the connection.
    void play(const t_conversation &script, const std::function<void(t_connection &)> &before_end = {});
    // The same from a thread of its own; finish() waits for it. The connection closes when the script ends.
    void play_in_background(std::vector<t_conversation> scripts);
    void finish();

private:
    int fd_;
    std::thread thread_;
};
