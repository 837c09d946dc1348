// SPDX-License-Identifier: MIT
// What may be at the far end of a cable, and the table of it.
#include <iterator>

#include "tests/simulation/world.h"

namespace sim {

extern const t_neighbour_kind dhcp_server; // dhcp_server.cpp

static const t_neighbour_kind nothing = {.name = "nothing"};
static const t_neighbour_kind silent = {.name = "silent"};

static const t_neighbour_kind *const NEIGHBOURS[] = {&nothing, &silent, &dhcp_server};

const t_neighbour_kind &neighbour_kind(const std::string &name)
{
    for (const t_neighbour_kind *kind : NEIGHBOURS)
        if (name == kind->name)
            return *kind;
    fail("nobody is called %s", name.c_str());
}

} // namespace sim
