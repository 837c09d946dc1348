// SPDX-License-Identifier: MIT
// What the daemon asked on each port, and when: several checks read it. A question is what docs/operating.md counts: a
// DHCP or PPPoE frame, an ARP request for a gateway, a DNS query.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "tests/simulation/scheduler.h"

namespace sim {

enum t_question_kind : uint8_t { BY_DHCP = 1, BY_PPPOE = 2, BY_ARP = 4, BY_DNS = 8 };
constexpr unsigned BY_DISCOVERY = BY_DHCP | BY_PPPOE;
constexpr unsigned BY_ANYTHING = BY_DISCOVERY | BY_ARP | BY_DNS;

struct t_question {
    t_time when;
    t_question_kind kind;
};

const std::deque<t_question> &questions_of(int port);

constexpr t_time NOT_YET = -24 * 3600 * SECOND; // before everything
t_time last_asked(int port, unsigned kinds);
uint32_t questions_since(int port, t_time since);

// The newest of these questions, on any port, to which an answer has come that fits it.
t_time last_answered(unsigned kinds);
void note_answer(const std::string &frame, t_time asked); // it comes, to a question of that time

// How the configured connection is looked for: by discovery, or by ARP.
bool is_asked_by_arp();

} // namespace sim
