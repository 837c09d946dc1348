// SPDX-License-Identifier: MIT
// What becomes of the ports in a cycle, for the chronicle. Nothing here decides anything. Loop thread only.
#pragma once

#include "model/chronicle.h"

// A pass found the WAN port working, or not.
void note_wan_port(bool works);

// The candidates of a pass stand: why is no other port among them?
void note_ports_left_out();

// Every candidate is asked now.
void note_candidates_asked();

// Ports that were asked and are no candidates any more fell out for this.
void note_candidates_lost(t_fate fate);

// A verdict names this port; those candidates that it beat answered as well.
void note_winner(const t_device *winner, t_decision how);
