// SPDX-License-Identifier: MIT
// The two ways of reading a port's DNS answers: all that is pending while the probe waits, or one frame from the loop.
// Both record an accepted answer on the entry and make its port the winner of the handle that the entry stands in. Loop
// thread only.
#pragma once

#include "probes/dns/dns_entry.h"

void recv_dns_query(uloop_fd *watcher);

// The loop's callback. Nothing puts the sockets into the loop; it is kept for whoever does.
void uloop_recv_dns_query(uloop_fd *watcher, unsigned int events);
