// SPDX-License-Identifier: MIT
// A life as data: the board, and the script of what happens. It is drawn from its seed before it begins, and each event
// carries its own numbers, so that events can be left out and all others stay as they are. It can be written to a small
// file and read from one.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace sim {

constexpr int HOLDER_OF_ROLE = -1;
constexpr int HOPEFUL = -2; // a port that has not the role and should be found

struct t_event {
    int64_t at_ms = 0; // after the start of the daemon
    std::string kind;
    int port = 0; // 0: none; else one of those above, as it is then
    int64_t number = 0;
    std::string text; // one word, or empty
    // It waits, from its time on, for the next step of this name (world.h), and so long behind the step's beginning.
    std::string step = "";
    int64_t after_ms = 0;
};

// What a port has: the neighbours on its cable as one word ("nothing", "silent", "dhcp+dns:silent+host"; neighbours.cpp
// knows the names and what may stand behind a colon), and the same for the fibre side of a combo port.
struct t_port_plan {
    std::string behind = "nothing";
    bool link = false;
    int64_t answers_after_ms = 20;
    std::string behind_sfp; // empty: a plain port
};

struct t_life {
    uint64_t seed = 0; // of the scheduling
    std::string near;  // the kept life near which it was drawn; empty for one that was drawn anew
    int wan = 1;       // the port that holds the role at first
    std::string connection = "dhcp";
    std::vector<t_port_plan> ports;              // the first one is port 1
    std::vector<int> pool;                       // in the order of their priority
    std::map<std::string, std::string> settings; // a key of the configuration (with dots), or a word of the simulation
    std::vector<t_event> events;

    int64_t setting(const std::string &name, int64_t otherwise) const;
};

// One word each for how often the scheduler switches (of 65536), and the daemon's log level.
constexpr const char *SWITCH_RATE = "switch_rate";
constexpr const char *LOG_LEVEL = "log_level";
// The ports that are members of another bridge, by their numbers, and how the network manager is at first
// (manager.cpp).
constexpr const char *GUEST_PORTS = "guest_ports";
constexpr const char *MANAGER = "manager";
// How long after each change of a link a script tells the daemon of it, in milliseconds; 0 for never.
constexpr const char *HOTPLUG = "hotplug_after";

t_life draw_life(uint64_t seed);

// What happens in a life that is drawn.
enum class t_character : uint8_t {
    usual,    // anything, at any time
    losses,   // one port after the other gets the role and loses it
    crowded,  // the same, with several upstreams at a time
    stormy,   // one thing right behind the other
    troubled, // one kind of trouble again and again, and others at the same moment
};

std::string text_of_life(const t_life &life);
bool read_life(const std::string &text, t_life *life); // false, and a word about the line, when it is none

using t_number = uint64_t (*)(uint64_t below); // the numbers of a life that is being drawn

// A kind of event. To add one: write it in a file of its own and put it into the table of events.cpp.
struct t_event_kind {
    const char *name;
    void (*happen)(const t_event &event);
    // Fills in what happens, at the time that is there already. Null for one that is only written by hand.
    void (*draw)(const t_life &life, t_event *event, t_number number) = nullptr;
    unsigned weight = 10; // how often it is drawn
    bool is_rare = false; // only in one life of ten
    // For how long it goes on by itself: a fault that ends, a ban that runs out, a link that flaps. Null for none.
    int64_t (*lasts_ms)(const t_event &event) = nullptr;
};
std::span<const t_event_kind *const> event_kinds();
const t_event_kind *event_kind(const std::string &name);                // null for none
void draw_events(t_life *life, t_character character, t_number number); // scripts.cpp

int64_t end_ms(const t_life &life); // when the daemon is told to end

} // namespace sim
