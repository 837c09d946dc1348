// SPDX-License-Identifier: MIT
// Two network namespaces of the benchmark's own, the router's and the one of its peers, and the cables between them.
// Apart from each other, so that the router's sockets hear a frame only where a cable ends.
#pragma once

#include <string>

// Says what failed and ends the program.
[[noreturn]] void give_up(const std::string &what);

// Runs a shell command; gives up when it fails. `input` is what it reads.
void must_run(const std::string &command, const std::string &input = "");

// Makes both namespaces and stays in the router's, with a /sys that shows its interfaces. Before any thread starts.
void enter_networks();

// A cable from the router to the peers' namespace, both ends up.
void add_cable(const std::string &near_end, const std::string &far_end);

// The calling thread is in the peers' namespace as long as this lives.
class t_far_side {
public:
    t_far_side();
    ~t_far_side();
    t_far_side(const t_far_side &) = delete;
    t_far_side &operator=(const t_far_side &) = delete;
};
