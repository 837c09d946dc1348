// SPDX-License-Identifier: MIT
// The router around the daemon: its commands' faults, its network manager, its machine, and who asks over the bus.
#pragma once

#include <cstdint>
#include <string>

#include "tests/simulation/scheduler.h"
#include "tests/simulation/world.h"

extern "C" {
#include <libubox/blobmsg.h>
}

namespace sim {

// --- commands (command_faults.cpp)

// What is wrong with a command for a time. The name is a part of the command line: "swap", "port_state", "combo",
// "online", "reload", or "all".
struct t_plan;
void begin_command_fault(const std::string &name, const std::string &fault, t_time lasts);
void bend_plan(const std::string &command, t_plan *plan);
bool commands_are_well();

// --- the network manager (manager.cpp)

enum class t_manager : uint8_t {
    honest,
    flags,      // honest, but in flags instead of a word
    away,       // nobody is on the bus
    hangs,      // it takes the question and never answers
    says_yes,   // connected, whatever is true
    says_no,    // disconnected, whatever is true
    connecting, // for ever
    empty,      // an answer without anything of use
    refuses,    // a status other than 0
};
bool is_manager_word(const std::string &word);
void set_manager(const std::string &word); // fails for a word that is none
bool manager_is_well();

// --- the machine and its files

bool configuration_is_well();    // config_events.cpp
bool machine_is_well();          // machine_events.cpp
extern bool threads_are_refused; // likewise; no more can be started

// --- whoever asks over the bus (requests.cpp)

using t_fill = std::function<void(blob_buf *message)>;
void send_request(t_request request, const t_fill &arguments);
void send_ban(t_request request, const t_fill &fields);

// For the door of the bus.
void request_is_served(int64_t number);
void request_is_replied(int64_t number, blob_attr *message);
void request_is_over(int64_t number, int status);
void requests_are_lost();

} // namespace sim
