// SPDX-License-Identifier: MIT
// What the reader of the standard output can be shown, as the environment tells.
#pragma once

#include "status/page.h"

struct t_terminal {
    t_look look;
    bool can_redraw; // a new picture takes the place of the old one
};

t_terminal look_at_terminal(bool is_terminal);

// How many lines the terminal has just now; as many as there may be where nobody knows.
int terminal_rows();
