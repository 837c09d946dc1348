// SPDX-License-Identifier: MIT
// The kernel's side of the wire: packet sockets with their filters, and what it tells of interfaces.
#pragma once

#include <cstdint>
#include <linux/filter.h>
#include <string>
#include <vector>

namespace sim {

constexpr size_t MOST_FRAMES_QUEUED = 256; // of a socket, as its receive buffer would

// A frame comes in at a port: every socket that is bound to it and whose filter lets it through gets it. Nothing
// without a link. A bridge takes its members' frames before any listener for one protocol hears them, and is heard with
// its own index.
void frame_comes(int port, const std::string &frame);

// A failed interface: every socket bound to it has an error pending, as the kernel would tell of a port that went down.
void tell_sockets_of_loss(int port, int error);

// The classic filter language of the kernel: how many bytes of the frame are kept, 0 for none.
uint32_t run_filter(const std::vector<sock_filter> &program, const std::string &frame, uint32_t packet_type);

int count_of_packet_sockets();

} // namespace sim
