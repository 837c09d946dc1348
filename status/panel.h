// SPDX-License-Identifier: MIT
// The router's front panel: a socket for each port, and below it who answers there, or why the port is not the WAN
// port.
#pragma once

#include <cstdio>

#include "status/page.h"

struct blob_attr;

// From the answer of the method "status".
void draw_panel(FILE *out, blob_attr *status, t_look look);
