// SPDX-License-Identifier: MIT
// What this room has done so far, counted for whoever asks. Any thread.
#pragma once

#include <cstdint>

#include "platform/shared.h"

struct t_tallies {
    t_shared<uint32_t> commits; // of the configuration, by this process, and come onto the disk
    t_shared<uint32_t> commands_out_of_time;
    t_shared<uint32_t> bus_reconnects;
};

extern t_tallies tallies;
