// SPDX-License-Identifier: MIT
// The made-up world around the daemon: its ports with what is behind them, its time, and the truth that checks read.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "tests/simulation/life.h"
#include "tests/simulation/scheduler.h"

namespace sim {

constexpr const char *BRIDGE_NAME = "br-lan";
constexpr int BRIDGE_IFINDEX = 2;

struct t_port;
struct t_neighbour;

// --- what a cable leads to

// Whether questions for a connection find an upstream, from the surest to the least sure.
enum class t_found : uint8_t {
    at_once,     // whoever asks is answered in time
    second_look, // only who asks from the connection's own address, as every second look does
    doubtful,    // answers that come now and then, too late, or not to be believed: nothing follows from it
    never,
};

// One of those at the far end. To add a kind: a source of its own and a line in the table of neighbours.cpp.
struct t_neighbour_kind {
    const char *name;
    // A frame comes in. Answers go back by answer_frame().
    void (*hears)(t_neighbour &who, const std::string &frame) = nullptr;
    // Whether a connection of this type works by it, as an honest network manager would find.
    bool (*serves)(const t_neighbour &who, const std::string &connection) = nullptr;
    // Its cable was plugged in, or it came to life; for those that speak by themselves.
    void (*begins)(t_neighbour &who) = nullptr;
    // How a daemon that asks by the rules for this type of connection would find it.
    t_found (*found)(const t_neighbour &who, const std::string &connection) = nullptr;
};
const t_neighbour_kind &neighbour_kind(const std::string &name); // fails for an unknown one

struct t_neighbour {
    const t_neighbour_kind *kind;
    std::string trait;     // a word of its kind, or empty
    int port;              // where its cable ends now
    int place;             // its number among those on its cable, from 0
    bool is_dead = false;  // it is there and says nothing; an event may bring it back
    bool is_known = false; // of a LAN host: it stands in the bridge's table
    uint32_t heard = 0;    // questions that were for it
    t_time since = 0;      // when its link came, or it came to life
};

// One of the two sides of a combo port, or the only one of another.
struct t_cable {
    std::string word = "nothing"; // as in a life
    bool link = false;
    std::vector<t_neighbour> neighbours;
    uint64_t plugged = 0; // how often another cable came
};
enum t_side : uint8_t { PHY, SFP };

// --- ports

// What is true of a port. Kept up to date by note_truth(); each change is told as t_deed::truth_changed.
struct t_port_truth {
    bool in_pool = false;           // by the configuration that the daemon started with
    bool is_known = true;           // it has a `device` section, so that the daemon has it in its table
    bool is_reserved = false;       // aggregated, or the gaming port, by the configuration as it is now
    bool is_banned = false;         // for sure: the daemon has taken the ban, and no link that came lifted it
    bool may_be_banned = false;     // the ban has not run out; whether a link that came has lifted it nobody knows
    bool link = false;              // as the port-state script would tell
    int lan_hosts = 0;              // in the bridge's and the ARP table, and answering: what a look would find
    t_found found = t_found::never; // an upstream of the configured kind, by questions
    bool serves = false;            // and a connection of that kind would work there
    bool name_server = false;       // and a name is resolved through it
    bool operator==(const t_port_truth &other) const = default;
};

struct t_port {
    int number; // from 1, as in "port1"
    std::string name;
    bool link = false;                       // the carrier, as the driver tells it: of the side in use
    t_time link_since = 0;                   // when that changed last
    t_time link_lost = NEVER;                // when it went last, NEVER for not yet
    t_time answers_after = 20 * MILLISECOND; // how slow its neighbours are
    bool is_combo = false;
    t_side side = PHY;     // in use
    t_cable cables[2];     // by side
    bool in_bridge = true; // a member of the LAN bridge
    bool in_other_bridge = false;
    bool is_reserved = false;
    uint32_t questions = 0;     // frames that the daemon sent out there
    uint32_t answers = 0;       // frames that came back
    t_time banned_at = 0;       // when the daemon took the newest ban from the bus
    t_time banned_until = 0;    // NEVER for a ban without end; over when it is past
    t_time banned_at_least = 0; // the same, without bans that a link may have lifted since
    t_time hotplugged = NEVER;  // when somebody told the daemon of its link last, rightly or not

    t_port_truth truth;
    t_time truth_since = 0;     // when any of it changed last
    t_time lan_hosts_since = 0; // when hosts were first to be found there; meaningful while there are some
    t_time upstream_since = 0;  // when `found` changed last

    t_cable &cable() { return cables[side]; }
    const t_cable &cable() const { return cables[side]; }
};

// --- what somebody asks of the daemon over the bus

struct t_request {
    int64_t number;        // of bus.h, which t_deed::bus_replied and bus_call_over tell too
    std::string object;    // "wan_detect" or "wan_detect.state"
    std::string method;    // "ban" for the event
    std::string device;    // as it was asked for; empty for none
    std::string protocol;  // likewise
    int64_t value = 0;     // timeout, delay, level, enable, status, seconds of a ban
    bool is_odd = false;   // something about the arguments is not as it should be
    t_time sent = 0;       //
    t_time served = NEVER; // its handler began; stays NEVER for one that the bus lost
    bool is_lost = false;  // it never reached the daemon, or the bus died before its end
    t_time over = NEVER;   // the call was answered, with these:
    int status = -1;       // of the call; -1 while there is none
    bool has_code = false; // a reply came
    int code = 0;          // its err_code
    uint32_t replies = 0;
};

// --- the whole

enum class t_mover : uint8_t { beginning, daemon, somebody };

// How the surroundings are. A fault begins and ends with events; what began with the life counts, too.
struct t_health {
    bool commands = true;      // each of the router's commands does what it should, in a time that is usual
    bool bus = true;           // the bus daemon is there and answers
    bool manager = true;       // the network manager is there and tells the truth
    bool configuration = true; // all packages can be read, and are not locked
    bool machine = true;       // memory, descriptors, disk
    bool all() const { return commands && bus && manager && configuration && machine; }
};

struct t_world {
    t_life life;
    std::vector<t_port> ports; // in the order of their numbers
    t_time wall_clock_ahead = 1'600'000'000 * SECOND;
    unsigned descriptor_limit = 1024;
    uint32_t lan_address_be = 0;
    uint32_t lan_netmask_be = 0;
    t_time began_at = 0;
    t_time told_to_end = NEVER;
    uint32_t swaps = 0, events_happened = 0, cycles = 0;

    t_time begins_at = 0;  // the start of the daemon; the virtual clock begins earlier
    t_time quiet_from = 0; // all events so far are over; note that a server may still need its time (truth_since)
    t_time ends_at = 0;    // when the life ends

    // the role, as the configuration has it
    int role_holder = 0;   // number of the port, 0 for none of the board's
    t_time role_since = 0; // when somebody moved it last
    t_mover role_mover = t_mover::beginning;
    t_time role_taken_by_others = NEVER; // when somebody other than the daemon moved it last; NEVER for not yet

    // what the daemon was told, or finds when it reads the configuration
    std::string connection; // the configured type as it is now, "pppoe" for "pppoeshare"
    std::string gateway;    // of a static connection
    t_time connection_since = 0;
    t_time connection_read = 0;       // by the last pass that could
    bool model_is_read = false;       // the first script is behind the reading of `enable`
    bool connection_in_doubt = false; // it was changed to one that nobody knows, before it was surely read
    bool is_router = true;            // by sysmode at the start
    bool detection_on = true;         // by the configuration at the start, then by each `set` from the reply on
    t_time detection_since = 0;       //
    bool detection_in_doubt = false;  // the bus died behind a `set`; until the next one is answered
    int sets_under_way = 0;           // of `set`, sent and not answered: detection may be on or off
    std::deque<t_request> requests;   // all of the life, in the order of their sending

    t_health health;
    t_time health_since = 0;            // when any of it changed last
    bool manager_was_ill_early = false; // in the start
};
extern t_world world;

// The world as the life has it at its start: files, ports, events.
void begin_world(const t_life &life);

// A step begins, and with it what waits for that: "swap" for the command, "scan" for the script that tells the links,
// or a state of the cycle.
void begin_step(const std::string &step);

// Looks at everything anew: each port's truth, the role, the connection, the health. For whatever changed something.
void note_truth();

// Whether no link can have lifted the newest ban: the daemon learns of one late, and lifts a ban then that it took
// meanwhile.
bool link_was_settled(const t_port &port);

bool package_is_usable(const std::string &package); // neither locked nor broken

// Whether detection can be expected to find a port: on, on a router, told by a manager and commands that are well.
bool detection_is_undisturbed();
// At the start the network manager alone says whether the upstream works; when it was wrong, no cycle was opened since.
bool start_was_deceived();
t_time unchanged_since();   // all of it but what is to come
t_time undisturbed_since(); // the latest of all changes above but the daemon's own swaps, and of all ports' truth

// --- time

// Something of the world's own: an answer on its way, a command that ends. Equal times are ordered by the seed.
void happen_at(t_time time, std::function<void()> what);
t_time world_next_time();
void world_happen(); // the next one; its time has come

// --- ports (ports.cpp)

t_port &port_at(int number);
bool is_port(int number);
int port_named(const std::string &name); // 0 for none
int ifindex_of(int port);
int port_of_ifindex(int ifindex); // 0 for none
const uint8_t *mac_of(int port);
const uint8_t *bridge_mac();
void set_link(t_port &port, t_side side, bool link);
void plug_in(t_port &port, t_side side, const std::string &word); // "nothing": the cable is pulled out
void join(t_port &port, const std::string &word);                 // one more on the cable in use
void use_side(t_port &port, t_side side);
void rebuild_bridge(); // every port a member but the WAN port and the fake one

// A frame of the daemon's leaves at a port, or at all members of the bridge that it could be for; a frame comes back
// after the neighbour's own time, if its link lasts.
void frame_goes(int port, const std::string &frame);
void frame_goes_to_bridge(const std::string &frame);
void answer_frame(const t_neighbour &who, const std::string &frame, t_time after);

// --- the role, as the configuration has it

constexpr int FOREIGN_PORT = 99; // a section of the switch package whose interface the daemon does not have
constexpr int NO_PORT = 77;      // no section at all
int holder_of_role();            // number of the port, 0 for none
void move_role(int port, bool by_daemon);
std::string configured_connection();
bool upstream_works(); // behind the port that holds the role, for the configured connection

// --- the configuration (router_files.cpp)

void write_router_files(const t_life &life);
std::string option_of(const std::string &package, const std::string &section, const std::string &option);
void set_option(const std::string &package, const std::string &section, const std::string &option,
                const std::string &value);

} // namespace sim
