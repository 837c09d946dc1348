// SPDX-License-Identifier: MIT
// What `wan_detect --status` does: a client of the running daemon on the bus. It asks, prints and ends; it shares
// nothing with the daemon but the program.
#pragma once

struct t_status_wish {
    bool wanted;
    bool watch; // goes on, with a new picture whenever something changes
    bool json;  // the answer itself in place of the picture
};

// The process's exit status: 1 without bus, daemon or answer, after a line on standard error.
int show_status(const t_status_wish &wish);
