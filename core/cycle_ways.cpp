// SPDX-License-Identifier: MIT
// cycle.cpp takes these ways and no others; tests/cycle_picture.py draws them in docs/architecture.md.
#include "core/cycle_ways.h"

#include <algorithm>

using enum t_cycle_state;

// clang-format off
constexpr t_cycle_way WAYS[] = {
    {resting, waiting},       // the WAN port was lost, or all ports are listed
    {waiting, looking},       // the first pass
    {looking, looking},       // another pass: nobody is left, or the ports are listed anew
    {looking, probing},       // servers of the configured protocol are to be asked
    {looking, asking_arp},    // a static address
    {looking, ending},        // the WAN port works, or there is nothing to detect
    {probing, looking},       // the WAN port was lost meanwhile
    {probing, judging},       // all have answered, or the time is over
    {probing, ending},        // detection was switched off
    {judging, looking},       // nobody answered
    {judging, asking_dns},    // several did
    {judging, ending},        // one did
    {asking_arp, looking},    // the gateway is behind no port, or the WAN port was lost meanwhile
    {asking_arp, asking_dns}, // it is behind several
    {asking_arp, ending},     // it is behind one
    {asking_dns, looking},    // nobody is left to ask
    {asking_dns, ending},     // a verdict
    {ending, looking},        // the verdict is void
    {ending, resting},        // the cycle is over
};
// clang-format on

std::span<const t_cycle_way> cycle_ways()
{
    return WAYS;
}

bool is_cycle_way(t_cycle_state from, t_cycle_state to)
{
    return std::any_of(std::begin(WAYS), std::end(WAYS),
                       [=](const t_cycle_way &way) { return way.from == from && way.to == to; });
}
