// SPDX-License-Identifier: MIT
// What must hold. A check reads the world's truth (world.h) and what the daemon did through the doors, never the
// daemon's own variables. It calls fail() with a sentence when something does not hold. To add one: write it in a file
// of its own, declare it in checks.cpp and put it into the table there.
#pragma once

#include "tests/simulation/scheduler.h"

namespace sim {

// What the daemon did, as the world saw it. More kinds may be added at the end.
enum class t_deed : uint8_t {
    frame_sent,      // port, text: kind of frame
    command_started, // text: the command
    command_ended,   // text: the command, number: its wait status
    role_moved,      // port: the new holder (by anybody), number: 1 when the daemon's command did it
    bus_replied,     // number: the call, text: the method
    bus_call_over,   // number: the call, text: the method; port: status
    notified,        // text: the kind of notification
    file_written,    // text: path
    log_line,        // text
    life_ended,      // number: exit status
    truth_changed,   // port: whose truth (world.h), 0 for that of the whole
    request_served,  // number: the call whose handler begins, text: the method; number 0 for an event
    command_refused, // it could not be started; text: the command
    way_taken,       // of a cycle; text: from -> to, number: from * STATES + to
};

struct t_seen {
    t_deed deed;
    int port = 0; // number of the port, 0 for none
    int64_t number = 0;
    const char *text = "";
};

struct t_check {
    const char *name;
    void (*on_deed)(const t_seen &seen) = nullptr; // at once, in the midst of a door
    void (*on_event)() = nullptr;                  // after each event of the world
    void (*at_rest)() = nullptr;                   // nobody can run: before the clock jumps
    void (*at_end)() = nullptr;                    // the daemon's main has returned, or it has exited
};

// For doors and world: tells the checks, and the event log.
void saw(const t_seen &seen);

void look_after_event();
void look_at_rest();
void look_at_end();

} // namespace sim
