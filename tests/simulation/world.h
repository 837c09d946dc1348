// SPDX-License-Identifier: MIT
// The made-up world around the daemon: its ports with what is behind them, its time, and the truth that checks read.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/simulation/life.h"
#include "tests/simulation/scheduler.h"

namespace sim {

constexpr const char *BRIDGE_NAME = "br-lan";
constexpr int BRIDGE_IFINDEX = 2;

struct t_port;

// What a cable may lead to. To add one: a source of its own and a line in the table of neighbours.cpp.
struct t_neighbour_kind {
    const char *name;
    // A frame of the router's comes in. The answer, if any, goes back by answer_frame().
    void (*hears)(t_port &port, const std::string &frame) = nullptr;
    // Whether a connection of this type works there, as the network manager would find.
    bool (*serves)(const t_port &port, const std::string &connection) = nullptr;
};
const t_neighbour_kind &neighbour_kind(const std::string &name); // fails for an unknown one

struct t_port {
    int number; // from 1, as in "port1"
    std::string name;
    bool link = false;                        // the carrier, as the driver tells it
    t_time link_since = 0;                    // when that changed last
    const t_neighbour_kind *behind = nullptr; // never null once the world has begun
    t_time answers_after = 20 * MILLISECOND;  // how slow it is
    bool is_mute = false;                     // it is there and says nothing
    uint32_t questions = 0;                   // frames that the daemon sent out there
    std::vector<std::string> media;           // of a combo port
};

struct t_world {
    t_life life;
    std::vector<t_port> ports; // in the order of their numbers
    t_time wall_clock_ahead = 1'600'000'000 * SECOND;
    unsigned descriptor_limit = 1024;
    uint32_t lan_address_be = 0;
    uint32_t lan_netmask_be = 0;
    t_time role_since = 0; // when somebody moved the WAN role last
    t_time told_to_end = NEVER;
    uint32_t swaps = 0, events_happened = 0, cycles = 0;
};
extern t_world world;

// The world as the life has it at its start: files, ports, events.
void begin_world(const t_life &life);

// --- time

// Something of the world's own: an answer on its way, a command that ends. Equal times are ordered by the seed.
void happen_at(t_time time, std::function<void()> what);
t_time world_next_time();
void world_happen(); // the next one; its time has come

// --- ports

t_port &port_at(int number);
int port_named(const std::string &name); // 0 for none
int ifindex_of(int port);
int port_of_ifindex(int ifindex); // 0 for none
const uint8_t *mac_of(int port);
const uint8_t *bridge_mac();
void set_link(t_port &port, bool link);
void plug_in(t_port &port, const std::string &neighbour);

// A frame of the daemon's leaves at a port; a frame comes back after the neighbour's own time, if its link lasts.
void frame_goes(int port, const std::string &frame);
void answer_frame(const t_port &port, const std::string &frame, t_time after);

// --- the role, as the configuration has it

int holder_of_role(); // number of the port, 0 for none
void move_role(int port, bool by_daemon);
std::string configured_connection();
bool upstream_works(); // behind the port that holds the role, for the configured connection

// --- the configuration (router_files.cpp)

void write_router_files(const t_life &life);
std::string option_of(const std::string &package, const std::string &section, const std::string &option);
void set_option(const std::string &package, const std::string &section, const std::string &option,
                const std::string &value);

} // namespace sim
