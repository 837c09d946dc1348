// SPDX-License-Identifier: MIT
// What the neighbours share: their names as words of a life, their addresses, and the frames they hear and send.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "probes/wire/wire_formats.h"
#include "tests/simulation/world.h"

namespace sim {

// Addresses of the outside world, as the configuration of a static connection or a tunnel names them.
constexpr const char *OWN_ADDRESS = "203.0.113.7";
constexpr const char *GATEWAY = "203.0.113.1";
constexpr const char *NAME_SERVER = "203.0.113.53";

// "dhcp:late+dns" and the like; "nothing" and "silent" are nobody. Fails for a word that is none.
std::vector<t_neighbour> read_neighbours(const std::string &word, int port);
void begin_neighbour(t_neighbour &who);

t_port &port_of(const t_neighbour &who);
bool has_trait(const t_neighbour &who, const char *trait);
t_mac mac_of(const t_neighbour &who);
uint32_t network_of(const t_neighbour &who); // the first address, in host order, of a network of its own
t_time usual_delay(const t_neighbour &who);  // until it answers
bool is_late(const t_neighbour &who);        // the trait "late": it does not serve yet

// How a server that serves would be found: at once, unless it is slow, or has a trait that makes it doubtful.
t_found found_as_server(const t_neighbour &who, const char *doubtful_trait);

bool is_disturber(const t_neighbour &who); // what it does may keep right answers away

const char *kind_of_frame(const std::string &frame); // "dhcp", "pppoe", "arp", "arp reply", "dns" or "frame"

// A frame as a record; false when it is shorter.
template <typename Record> bool read_frame(const std::string &frame, Record *record)
{
    if (frame.size() < sizeof *record)
        return false;
    memcpy(record, frame.data(), sizeof *record);
    return true;
}

template <typename Record> std::string frame_of(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

// An ARP request for an address, in network order. Answers by the neighbour's own MAC.
bool is_arp_request_for(const std::string &frame, uint32_t address_be, t_arp_frame *request);
void answer_arp(const t_neighbour &who, const t_arp_frame &request);

} // namespace sim
