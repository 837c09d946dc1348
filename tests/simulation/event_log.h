// SPDX-License-Identifier: MIT
// What happened in a life, in order. Two runs of one life have the same hash; a run that tells prints a line for each
// entry.
#pragma once

#include <cstdint>

namespace sim {

struct t_event_log {
    uint64_t hash = 0xcbf29ce484222325; // of everything noted so far
    uint64_t entries = 0;
    bool tells = false;  // prints what happens, as a timeline in plain words (timeline.h)
    bool is_raw = false; // or a line for each entry
};

extern t_event_log event_log;

// Mixes numbers into the hash only: scheduling choices, doors, readings. Nothing that differs between two runs of a
// life may go in: no address, real time, process or descriptor number of the real process.
inline void log_number(uint64_t value)
{
    event_log.hash = (event_log.hash ^ value) * 0x100000001b3;
    event_log.hash ^= event_log.hash >> 29;
}

// One line of the timeline: who ("world", "daemon", "bus", "command", ...) and what. Counts in the hash, too.
void log_line(const char *who, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The same for "TEXT [port PORT, number NUMBER]", which is told so often that it is not formatted.
void log_deed(const char *who, const char *text, int port, int64_t number);

// A line to standard output whatever the log does; for the simulation itself.
void say(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace sim
