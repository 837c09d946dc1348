// SPDX-License-Identifier: MIT
// The router's commands when all is well, and the table of them.
#include <cstdlib>
#include <iterator>

#include "tests/simulation/commands.h"
#include "tests/simulation/world.h"

namespace sim {

static uint64_t commands_planned = 0;

// A time between the two, another one for each command.
static t_time some_time(t_time least, t_time most)
{
    return least + static_cast<t_time>(draw(7, commands_planned) % static_cast<uint64_t>(most - least + 1));
}

static t_plan tell_port_states(const std::string &)
{
    t_plan plan;
    plan.takes = plan.acts_after = some_time(5 * MILLISECOND, 60 * MILLISECOND);
    for (const t_port &port : world.ports)
        plan.prints += (plan.prints.empty() ? "{\"" : ",\"") + port.name + (port.link ? "\":true" : "\":false");
    plan.prints += "}\n";
    return plan;
}

static t_plan tell_combo_state(const std::string &)
{
    t_plan plan;
    plan.takes = plan.acts_after = some_time(5 * MILLISECOND, 30 * MILLISECOND);
    plan.prints = "{\"phy\":true,\"sfp\":false,\"serdes\":\"phy\"}\n";
    return plan;
}

static t_plan swap(const std::string &command)
{
    t_plan plan;
    const int port = atoi(command.c_str() + command.find(" port") + 5);
    plan.acts_after = some_time(50 * MILLISECOND, 800 * MILLISECOND);
    plan.takes = plan.acts_after + some_time(50 * MILLISECOND, SECOND);
    plan.effect = [port] { move_role(port, true); };
    return plan;
}

static t_plan test_online(const std::string &)
{
    t_plan plan;
    plan.takes = some_time(10 * MILLISECOND, 2 * SECOND);
    plan.status = upstream_works() ? 0 : 1 << 8;
    return plan;
}

static t_plan reload_ports(const std::string &)
{
    t_plan plan;
    plan.takes = some_time(50 * MILLISECOND, SECOND);
    plan.heeds_term = false;
    return plan;
}

static t_plan echo(const std::string &)
{
    return {};
}

static const t_command_kind COMMANDS[] = {
    {"/etc/wan_detect/get_all_port_state.sh", tell_port_states},
    {"/etc/wan_detect/get_combo_state.sh", tell_combo_state},
    {"network_lanwan_swap set port", swap},
    {"online-test", test_online},
    {"/sbin/wanlan_port_reload", reload_ports},
    {"echo ", echo},
};

t_plan plan_command(const std::string &command)
{
    commands_planned++;
    for (const t_command_kind &kind : COMMANDS)
        if (command.rfind(kind.name, 0) == 0)
            return kind.plan(command);
    fail("the router has no such command: %s", command.c_str());
}

} // namespace sim
