// SPDX-License-Identifier: MIT
// Parked: ports that come up while a cycle is open wait for its next pass, in a list that no frame and no file tells
// of. It is empty between two cycles, and whoever comes into it has a link.
#include "core/engine.h"

#include "model/port_model.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/scheduler.h"

namespace sim {

constexpr t_time SAME_MOMENT = 100 * MILLISECOND; // a link may go while the port is put there
constexpr int MOST_PORTS = 16;

namespace {

struct t_known {
    bool is_parked = false;
    t_time lost = NEVER; // the link
};

} // namespace

static void look_at_port(const t_device *dev, t_known *known)
{
    const bool is_parked = engine.possible_wan_dev_list_cache.find(dev);
    known->lost = dev->link_active ? NEVER : std::min(known->lost, now());
    if (is_parked && engine.state == t_cycle_state::resting)
        fail("parked: %s is parked, and no cycle is open", dev->name);
    if (is_parked && !known->is_parked && known->lost < now() - SAME_MOMENT)
        fail("parked: %s is parked %ld ms after its link went", dev->name,
             static_cast<long>((now() - known->lost) / MILLISECOND));
    known->is_parked = is_parked;
}

static void look_at_rest_of_parked()
{
    static t_known ports[MOST_PORTS]; // in the order of the table
    t_known *known = ports;
    for (const t_device *dev = port_model.dev_hashmap_head; dev && known < ports + MOST_PORTS; known++) {
        look_at_port(dev, known);
        dev = static_cast<t_device *>(dev->hh.next);
    }
}

extern const t_check parked;
const t_check parked = {.name = "parked", .at_rest = look_at_rest_of_parked};

} // namespace sim
