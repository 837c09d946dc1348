// SPDX-License-Identifier: MIT
#include "tests/simulation/questions.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "tests/simulation/checks.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/world.h"

namespace sim {

static std::map<int, std::deque<t_question>> questions;

const std::deque<t_question> &questions_of(int port)
{
    return questions[port];
}

t_time last_asked(int port, unsigned kinds)
{
    const std::deque<t_question> &all = questions[port];
    for (auto one = all.rbegin(); one != all.rend(); ++one)
        if (one->kind & kinds)
            return one->when;
    return NOT_YET;
}

uint32_t questions_since(int port, t_time since)
{
    uint32_t count = 0;
    const std::deque<t_question> &all = questions[port];
    for (auto one = all.rbegin(); one != all.rend() && one->when >= since; ++one)
        count++;
    return count;
}

static t_time answered[] = {NOT_YET, NOT_YET}; // DHCP, PPPoE

t_time last_answered(unsigned kinds)
{
    return std::max(kinds & BY_DHCP ? answered[0] : NOT_YET, kinds & BY_PPPOE ? answered[1] : NOT_YET);
}

void note_answer(const std::string &frame, t_time asked)
{
    constexpr uint8_t BOOT_REPLY = 2;
    t_dhcp_frame dhcp;
    if (strcmp(kind_of_frame(frame), "pppoe") == 0)
        answered[1] = std::max(answered[1], asked);
    else if (strcmp(kind_of_frame(frame), "dhcp") == 0 && read_frame(frame, &dhcp) && dhcp.dhcp.op == BOOT_REPLY)
        answered[0] = std::max(answered[0], asked);
}

bool is_asked_by_arp()
{
    return world.connection == "static" ||
           option_of("protocol", world.connection, "snd_conn").compare(0, 6, "static") == 0;
}

static void note_question(const t_seen &seen)
{
    if (seen.deed != t_deed::frame_sent || seen.port == 0)
        return;
    static constexpr struct {
        const char *frame;
        t_question_kind kind;
    } KINDS[] = {{"dhcp", BY_DHCP}, {"pppoe", BY_PPPOE}, {"arp", BY_ARP}, {"dns", BY_DNS}};
    for (const auto &[frame, kind] : KINDS)
        if (strcmp(frame, seen.text) == 0)
            questions[seen.port].push_back({now(), kind});
}

extern const t_check notes_questions;
const t_check notes_questions = {.name = "questions", .on_deed = note_question};

} // namespace sim
