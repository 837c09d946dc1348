// SPDX-License-Identifier: MIT
// What the daemon remembers of its own doings, for whoever asks why: nothing here decides anything. Bounded, in memory
// only. Written and read on the loop thread, but for what is shared.
#pragma once

#include <cstdint>

#include "model/device.h"
#include "platform/clock.h"

constexpr int REMEMBERED_CYCLES = 32;
constexpr int8_t NO_PORT = -1;

// What opened a cycle.
enum class t_opener : uint8_t { start_up, wan_loss, bus_call, switched_on, after_swap, look_again };

// What became of a port in a cycle; the last one that was noted counts.
enum class t_fate : uint8_t {
    not_looked_at,
    works,         // it is the WAN port, and is connected
    not_connected, // it is the WAN port, and is not
    no_link,
    not_in_pool,
    reserved, // for a link aggregation, or as the gaming port
    banned,
    lan_hosts,
    not_listed_yet, // its link came up too late for this cycle, or before the loss that opened it
    asked,          // and the cycle is not over, or was ended from outside
    silent,         // as often as it is asked
    other_answered, // silent when another one answered
    no_gateway,     // does not answer behind it
    no_name_server, // answers behind it, but behind another one
    lower_priority,
    won,
};

// What ended a cycle.
enum class t_decision : uint8_t {
    none, // it is open
    wan_works,
    only_answer,
    only_gateway,
    name_server,
    priority, // several were as good
    gave_up,  // for a cycle over all ports that was asked for meanwhile
    switched_off,
    role_is_foreign, // the WAN role is at a port that is none of the table
    not_detectable,  // no connection type, or one that nobody can ask for
    nobody,          // a step that had nothing to go on with
};

// Failed: the role is not where it was sent. Called off: the command was not started, and the role is not there either.
enum class t_swap : uint8_t { not_needed, done, failed, called_off };

enum class t_confirmation : uint8_t { unknown, agreed, disagreed }; // what the next cycle found after a swap

// One cycle. Ports are meant by their place in the main table.
struct t_cycle_note {
    uint32_t number; // of this life, from 1; 0 for none
    t_time_stamp begun;
    uint32_t took_ms; // 0 while it runs
    t_opener opener;
    t_decision decision;
    t_swap swap;
    int16_t swap_status; // what the command returned
    t_confirmation confirmation;
    int8_t winner;
    uint16_t asked; // a bit for each port
    t_fate fates[MAX_DEVICES];
};

// platform/tallies.h counts more.
struct t_counters {
    uint32_t cycles, questions, answers, verdicts;
    uint32_t swaps_asked, swaps_confirmed, swaps_failed_in_a_row;
};

// What a verdict stumbled over that somebody may want to set right; bits.
enum t_hint : uint8_t {
    HINT_VLAN = 1,        // asked untagged, and the WAN interface is configured on a VLAN
    HINT_ONLY_BANNED = 2, // the only port that answered is banned
    HINT_ONLY_RESERVED = 4,
    HINT_POOL = 8,     // the pool names ports that do not exist
    HINT_SEVERAL = 16, // more than one line answers
};

struct t_chronicle {
    uint32_t started_s;                     // on the clock of monotonic_s
    t_cycle_note cycles[REMEMBERED_CYCLES]; // a ring
    t_counters counters;
    uint8_t hints;           // of the last verdict that somebody was asked for
    bool pool_has_strangers; // the configured pool names ports that do not exist
    t_opener asked_opener;   // who asked last for a cycle over all ports
    t_opener next_opener;    // of the cycle that begins next
    uint32_t swapped_in;     // the cycle whose swap was the last one; 0 for none
};

extern t_chronicle chronicle;

// Empties it: a life begins.
void begin_chronicle();

// The number of a port in the main table, or NO_PORT.
int8_t port_place(const t_device *dev);

// The running cycle, or the last one; null before the first.
t_cycle_note *newest_cycle();

// The note that is `age` cycles older than the newest; null when there is none.
const t_cycle_note *remembered_cycle(int age);

// --- while a cycle runs

void note_opener(t_opener opener); // who asks for a cycle over all ports
void note_cycle_over_all();        // it opens; a cycle that opens without this was opened by the loss of the WAN port
void note_cycle_begins();
void note_fate(const t_device *dev, t_fate fate);
void note_decision(t_decision decision); // the last of a cycle counts, as its verdict does
void note_cycle_ends(const t_device *winner);

// What was noted of a port in the running cycle, or the last one.
t_fate noted_fate(const t_device *dev);

// True when nobody answered behind this port in the cycle before the newest, in which it was asked to the end.
bool was_silent_before(const t_device *dev);

// --- swaps

// The swap command was run in this cycle; its exit status, -1 without one.
void note_swap(int status);

// A later cycle found the role where the last swap sent it, and the port connected, or not.
void note_confirmation(bool agreed);

// --- on the wire

// A question went out through this port: a DISCOVER, a PADI, an ARP request for the gateway, a DNS query.
void note_question(t_device *dev);

// Somebody behind it answered, and this was learned. `protocol` is borrowed and never freed; null for an answer that
// confirms an earlier one, which keeps what was learned then. It is counted, but not this port's, where the link went
// meanwhile.
void note_answer(t_device *dev, const char *protocol, const t_detect_result &learned = {});

// Another host of the LAN is behind it; whoever looks for them sets their number to 0 first.
void note_lan_host(t_device *dev);

// Questions of the last 60 minutes, to the minute.
uint32_t questions_last_hour(const t_device *dev);
