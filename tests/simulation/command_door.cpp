// SPDX-License-Identifier: MIT
// Children that are none: records of commands under way. spawn_command() here stands in the place of
// platform/spawn.cpp.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <sys/wait.h>

#include "platform/spawn.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/commands.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/door.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr pid_t FIRST_PID = 10'000;

namespace {

struct t_child {
    pid_t pid;
    std::string command;
    t_plan plan;
    t_description_ref output;
    bool has_ended = false;
    int status = 0;
};

struct t_child_end : t_description {
    std::shared_ptr<t_child> child;

    short readiness() const override { return child->has_ended ? POLLIN : short{0}; }
    const char *kind() const override { return "pidfd"; }
};

} // namespace

static std::map<pid_t, std::shared_ptr<t_child>> children;
static pid_t last_pid = FIRST_PID;

int count_of_commands()
{
    return static_cast<int>(children.size());
}

static void end_child(t_child &child, int status)
{
    if (child.has_ended)
        return;
    child.has_ended = true;
    child.status = status;
    child.output.reset();
    saw({.deed = t_deed::command_ended, .number = status, .text = child.command.c_str()});
}

static void act(t_child &child)
{
    if (child.has_ended)
        return;
    write_to_pipe(child.output, child.plan.prints.c_str());
    if (child.plan.effect)
        child.plan.effect();
}

static int start(const char *command, int output, pid_t *pid)
{
    auto child = std::make_shared<t_child>();
    child->command = command;
    child->plan = plan_command(command);
    world.model_is_read = world.model_is_read || strncmp(command, "echo ", 5) != 0; // the log level is told before
    if (child->plan.start_error) {
        saw({.deed = t_deed::command_refused, .text = command});
        return child->plan.start_error;
    }
    child->pid = *pid = ++last_pid;
    child->output = output >= 0 ? share_description(output) : nullptr;
    children[child->pid] = child;
    saw({.deed = t_deed::command_started, .text = command});
    happen_at(now() + child->plan.acts_after, [child, began = now()] {
        act(*child);
        if (child->plan.takes != NEVER) // never before it has acted, though both may come at one time
            happen_at(std::max(now(), began + child->plan.takes), [child] { end_child(*child, child->plan.status); });
    });
    return 0;
}

int signal_commands(pid_t pid, int number)
{
    const auto found = children.find(pid < 0 ? -pid : pid);
    if (found == children.end()) {
        errno = ESRCH;
        return -1;
    }
    if (number == SIGKILL || (number == SIGTERM && found->second->plan.heeds_term))
        end_child(*found->second, number);
    return 0;
}

int open_end_of_command(pid_t pid)
{
    const auto found = children.find(pid);
    if (found == children.end()) {
        errno = ESRCH;
        return -1;
    }
    auto end = std::make_shared<t_child_end>();
    end->child = found->second;
    return install_descriptor(std::move(end));
}

static pid_t collect(pid_t pid, int *status)
{
    const auto found = children.find(pid);
    if (found == children.end()) {
        errno = ECHILD;
        return -1;
    }
    if (!found->second->has_ended)
        return 0;
    if (status)
        *status = found->second->status;
    children.erase(found);
    return pid;
}

} // namespace sim

using namespace sim;

int spawn_command(const char *command, int output, pid_t *child)
{
    door(t_door::command);
    return start(command, output, child);
}

DOOR(pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options), t_door::command)
{
    if (!(options & WNOHANG) || pid <= 0)
        fail("waitpid is used in a way that the simulation does not know");
    return collect(pid, status);
}

DOOR(int, waitid, (idtype_t type, id_t id, siginfo_t *info, int options), (type, id, info, options), t_door::command)
{
    if (type != P_PID || !(options & WNOWAIT) || !(options & WNOHANG))
        fail("waitid is used in a way that the simulation does not know");
    const auto found = children.find(static_cast<pid_t>(id));
    if (found == children.end()) {
        errno = ECHILD;
        return -1;
    }
    *info = {};
    if (found->second->has_ended)
        info->si_pid = static_cast<pid_t>(id);
    return 0;
}
