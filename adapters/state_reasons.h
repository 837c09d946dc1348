// SPDX-License-Identifier: MIT
// Why a port is what it is, in sentences that a person reads. Loop thread.
#pragma once

#include "adapters/bus_reply.h"

struct t_device;

// The port of the main table that has this name, or null; without a word.
const t_device *port_named(const char *name);

// Its name and the sentences: what became of it, what it says, and what would change it.
void report_reasons(t_bus_reply &reply, const t_device &dev);
