// SPDX-License-Identifier: MIT
// The router's commands when all is well, and the table of them.
#include <cstdlib>
#include <iterator>

#include "tests/simulation/commands.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/router.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr int FAILED = 1 << 8; // as wait() tells exit status 1

static uint64_t commands_planned = 0;

// A time between the two, another one for each command.
static t_time some_time(t_time least, t_time most)
{
    return least + static_cast<t_time>(draw(7, commands_planned) % static_cast<uint64_t>(most - least + 1));
}

static const char *word(bool value)
{
    return value ? "true" : "false";
}

static t_plan tell_port_states(const std::string &)
{
    t_plan plan;
    plan.takes = plan.acts_after = some_time(5 * MILLISECOND, 60 * MILLISECOND);
    for (const t_port &port : world.ports)
        plan.prints += (plan.prints.empty() ? "{\"" : ",\"") + port.name + "\":" + word(port.link);
    plan.prints += "}\n";
    plan.effect = [] { begin_step("scan"); };
    return plan;
}

// The number behind "port", 0 for none of the board's.
static int port_in(const std::string &command)
{
    const size_t at = command.find(" port");
    const int port = at == std::string::npos ? 0 : atoi(command.c_str() + at + 5);
    return is_port(port) ? port : 0;
}

static t_plan tell_combo_state(const std::string &command)
{
    t_plan plan;
    plan.takes = plan.acts_after = some_time(5 * MILLISECOND, 30 * MILLISECOND);
    const int number = port_in(command);
    if (number == 0 || !port_at(number).is_combo) {
        plan.status = FAILED;
        return plan;
    }
    const t_port &port = port_at(number);
    plan.prints = std::string("{\"phy\":") + word(port.cables[PHY].link) + ",\"sfp\":" + word(port.cables[SFP].link) +
                  ",\"serdes\":\"" + (port.side == SFP ? "sfp" : "phy") + "\"}\n";
    return plan;
}

static void carry_out_swap(int number, t_side side, bool has_side)
{
    if (has_side)
        set_option("switch", "port" + std::to_string(number), "wan_port", side == SFP ? "sfp" : "phy");
    move_role(number, true);
    if (has_side)
        use_side(port_at(number), side);
    rebuild_bridge();
}

static t_plan swap(const std::string &command)
{
    t_plan plan;
    const int port = port_in(command);
    const bool to_sfp = command.find(" sfp") != std::string::npos;
    const bool has_side = to_sfp || command.find(" phy") != std::string::npos;
    plan.acts_after = some_time(50 * MILLISECOND, 800 * MILLISECOND);
    plan.takes = plan.acts_after + some_time(50 * MILLISECOND, SECOND);
    const bool is_written = package_is_usable("switch") && (!disk_is_full || holder_of_role() == port);
    if (!is_written || port == 0 || (has_side && !port_at(port).is_combo))
        plan.status = FAILED;
    else
        plan.effect = [=] { carry_out_swap(port, to_sfp ? SFP : PHY, has_side); };
    if (plan.effect)
        plan.half = [=] { move_role(port, true); };
    begin_step("swap");
    return plan;
}

static t_plan test_online(const std::string &)
{
    t_plan plan;
    plan.takes = some_time(10 * MILLISECOND, 2 * SECOND);
    plan.status = upstream_works() ? 0 : FAILED;
    return plan;
}

static t_plan reload_ports(const std::string &)
{
    t_plan plan;
    plan.acts_after = some_time(20 * MILLISECOND, 500 * MILLISECOND);
    plan.takes = plan.acts_after + some_time(20 * MILLISECOND, 500 * MILLISECOND);
    plan.heeds_term = false;
    plan.effect = rebuild_bridge;
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
        if (command.rfind(kind.name, 0) == 0) {
            t_plan plan = kind.plan(command);
            bend_plan(command, &plan);
            return plan;
        }
    fail("the router has no such command: %s", command.c_str());
}

} // namespace sim
