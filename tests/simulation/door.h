// SPDX-License-Identifier: MIT
// How a door is written. The linker leads every call of NAME in the daemon, its libraries and the simulation to
// __wrap_NAME (doors.txt has the list); outside of a life, and on threads that are none of the daemon's, the call
// goes on to the C library:
//
//     DOOR(int, fsync, (int fd), (fd), t_door::file)
//     {
//         return ...;
//     }
#pragma once

#include "tests/simulation/scheduler.h"

#define DOOR(type, name, parameters, arguments, kind) \
    extern "C" type __real_##name parameters;         \
    static type door_##name parameters;               \
    extern "C" type __wrap_##name parameters;         \
    extern "C" type __wrap_##name parameters          \
    {                                                 \
        if (!sim::inside)                             \
            return __real_##name arguments;           \
        sim::door(kind);                              \
        return door_##name arguments;                 \
    }                                                 \
    static type door_##name parameters

// The same for a call that takes no time, at which nobody else goes on, and which interrupts nothing.
#define QUIET_DOOR(type, name, parameters, arguments)                         \
    extern "C" type __real_##name parameters;                                 \
    static type door_##name parameters;                                       \
    extern "C" type __wrap_##name parameters;                                 \
    extern "C" type __wrap_##name parameters                                  \
    {                                                                         \
        return sim::inside ? door_##name arguments : __real_##name arguments; \
    }                                                                         \
    static type door_##name parameters
