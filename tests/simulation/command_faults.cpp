// SPDX-License-Identifier: MIT
// What may be wrong with a command for a time.
//
// slow: it takes long; fails: it ends with status 1 and does nothing; hangs: it never ends and does nothing;
// acts_hangs: it does what it should and never ends; half: of what it prints half comes, and the swap moves
// the role but no port; deaf: it
// hangs, and SIGTERM too; killed: a signal ends it before it acts; acts_killed: after that; lies: status 1 although it
// has acted; garbage: it prints no JSON; odd: words for yes; missing: it cannot be started.
#include <cerrno>
#include <csignal>
#include <map>

#include "tests/simulation/commands.h"
#include "tests/simulation/router.h"

namespace sim {

constexpr t_time LONG = 4 * SECOND;
constexpr int FAILED = 1 << 8;
constexpr t_time IS_CUT_AFTER = 61 * SECOND; // one that hangs: the longest limit of any command

static std::map<std::string, std::string> faults; // of a command, by the word of an event

static t_time bent_until = 0; // commands that began during a fault may outlast it

static const char *word_of(const std::string &command)
{
    if (command.find("get_all_port_state") != std::string::npos)
        return "port_state";
    if (command.find("get_combo_state") != std::string::npos)
        return "combo";
    if (command.find("network_lanwan_swap") != std::string::npos)
        return "swap";
    if (command.find("online-test") != std::string::npos)
        return "online";
    return command.find("wanlan_port_reload") != std::string::npos ? "reload" : "other";
}

static void do_nothing(t_plan *plan)
{
    plan->effect = nullptr;
    plan->prints.clear();
}

static void end_with(t_plan *plan, int status)
{
    plan->status = status;
}

static void hang(t_plan *plan)
{
    plan->takes = NEVER;
}

// Of what it prints nothing is yes or no any more.
static void make_odd(t_plan *plan)
{
    for (size_t at = 0; (at = plan->prints.find(":true", at)) != std::string::npos;)
        plan->prints.replace(at, 5, ":\"up\"");
}

namespace {

struct t_fault_kind {
    const char *name;
    void (*bend)(t_plan *plan);
};

const t_fault_kind KINDS[] = {
    {"slow", [](t_plan *plan) { plan->acts_after += LONG, plan->takes += LONG; }},
    {"fails", [](t_plan *plan) { do_nothing(plan), end_with(plan, FAILED); }},
    {"hangs", [](t_plan *plan) { do_nothing(plan), hang(plan); }},
    {"acts_hangs", hang},
    {"half", [](t_plan *plan) { plan->prints.resize(plan->prints.size() / 2), plan->effect = plan->half; }},
    {"deaf", [](t_plan *plan) { do_nothing(plan), hang(plan), plan->heeds_term = false; }},
    {"killed", [](t_plan *plan) { do_nothing(plan), end_with(plan, SIGSEGV); }},
    {"acts_killed", [](t_plan *plan) { end_with(plan, SIGKILL); }},
    {"lies", [](t_plan *plan) { end_with(plan, FAILED); }},
    {"odd", make_odd},
    {"garbage", [](t_plan *plan) { plan->prints = "no such driver\n"; }},
    {"missing", [](t_plan *plan) { plan->start_error = ENOMEM; }},
};

} // namespace

static const t_fault_kind &fault_kind(const std::string &name)
{
    for (const t_fault_kind &kind : KINDS)
        if (name == kind.name)
            return kind;
    fail("no command is %s", name.c_str());
}

void begin_command_fault(const std::string &name, const std::string &fault, t_time lasts)
{
    fault_kind(fault);
    faults[name] = fault;
    happen_at(now() + lasts, [name, fault] {
        if (const auto found = faults.find(name); found != faults.end() && found->second == fault)
            faults.erase(found);
        note_truth();
    });
}

void bend_plan(const std::string &command, t_plan *plan)
{
    auto found = faults.find(word_of(command));
    if (found == faults.end())
        found = faults.find("all");
    if (found == faults.end())
        return;
    fault_kind(found->second).bend(plan);
    const t_time end = now() + (plan->takes == NEVER ? IS_CUT_AFTER : plan->takes);
    if (end <= bent_until)
        return;
    bent_until = end;
    happen_at(end, note_truth);
}

bool commands_are_well()
{
    return faults.empty() && now() >= bent_until;
}

} // namespace sim
