// SPDX-License-Identifier: MIT
// What the answers of a cycle say about settings that somebody may want to set right. New hints are told. Loop thread.
#pragma once

struct t_device;

// A verdict names this port, and the list holds who answered.
void look_for_hints(const t_device *winner);

// Everybody who may be WAN was asked, and nobody is left.
void look_for_hints_of_silence();

// A pass finds nobody left, and maybe nobody was asked: once in a look, what that says.
void look_for_hints_of_nobody();
