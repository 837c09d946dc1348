// SPDX-License-Identifier: MIT
#include "tests/simulation/timeline.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/wait.h>

#include "tests/simulation/checks.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time TOLD_TOGETHER = 100 * MILLISECOND; // frames of one kind, as one stage sends them
constexpr double SECOND_REAL = SECOND;

// --- lines

static std::string open_kind; // of the line that more ports may join
static t_time open_since = 0;
static int open_port = 0;
static std::string last_line; // when it is whole
static unsigned repeats = 0;  // of that one
static bool has_begun = false;

static double seconds_since_start()
{
    return static_cast<double>(now() - world.began_at) / SECOND_REAL;
}

static void begin()
{
    has_begun = true;
    draw_panel();
    say("%9.3f s  the daemon starts\n", 0.0);
}

static void begin_line()
{
    if (!has_begun)
        begin();
    if (!open_kind.empty())
        say("\n");
    if (repeats > 0)
        say("             %u times more\n", repeats);
    repeats = 0;
    open_kind.clear();
    last_line.clear();
}

static void tell(const std::string &text)
{
    if (text == last_line) {
        repeats++;
        return;
    }
    begin_line();
    say("%9.3f s  %s\n", seconds_since_start(), text.c_str());
    last_line = text;
}

static std::string name_of(int port)
{
    return port >= 1 && static_cast<size_t>(port) <= world.ports.size() ? port_at(port).name : "a port that is none";
}

// "DHCP discovery leaves eth0, eth2", whose ports come one by one.
static void tell_of_port(const std::string &kind, int port)
{
    const std::string name = port ? name_of(port) : "the LAN bridge";
    if (kind == open_kind && now() - open_since <= TOLD_TOGETHER) {
        if (port != open_port)
            say(", %s", name.c_str());
    } else {
        begin_line();
        say("%9.3f s  %s %s", seconds_since_start(), kind.c_str(), name.c_str());
        open_kind = kind;
        open_since = now();
    }
    open_port = port;
}

// --- what the daemon did

static std::string status_of_command(int64_t status)
{
    const int wait_status = static_cast<int>(status);
    if (WIFSIGNALED(wait_status))
        return " ends by signal " + std::to_string(WTERMSIG(wait_status));
    return " ends with status " + std::to_string(WEXITSTATUS(wait_status));
}

static void tell_end_of_command(const t_seen &seen)
{
    if (seen.number != 0 || !is_asked_all_the_time(seen.text))
        tell(words_of_command(seen.text) + (seen.number == 0 ? " is through" : status_of_command(seen.number)));
}

static void tell_file(const std::string &path)
{
    if (path.compare(0, 5, "/tmp/") == 0 && path.find(".uci") == std::string::npos &&
        path.find(".draft.") == std::string::npos)
        tell(path + " says: " + text_of_file(path));
}

void tell_deed(const t_seen &seen)
{
    const std::string text = seen.text;
    const std::string number = std::to_string(seen.number);
    if (seen.deed == t_deed::frame_sent)
        tell_of_port(text + " leaves", seen.port);
    else if (seen.deed == t_deed::command_started && !is_asked_all_the_time(text))
        tell(words_of_command(text));
    else if (seen.deed == t_deed::command_ended)
        tell_end_of_command(seen);
    else if (seen.deed == t_deed::role_moved)
        tell((seen.number ? "the WAN role went to " : "somebody gives the WAN role to ") + name_of(seen.port));
    else if (seen.deed == t_deed::bus_replied)
        tell("bus: reply to call " + number + " " + text);
    else if (seen.deed == t_deed::bus_call_over)
        tell("bus: call " + number + " " + text + " is over with status " + std::to_string(seen.port));
    else if (seen.deed == t_deed::notified)
        tell("bus: subscribers hear of " + text);
    else if (seen.deed == t_deed::file_written)
        tell_file(text);
    else if (seen.deed == t_deed::log_line)
        tell("| " + text);
    else if (seen.deed == t_deed::way_taken && seen.number % (STATES + 1) != 0) // not one that leads back
        tell("the cycle: " + text);
    else if (seen.deed == t_deed::life_ended)
        tell("the daemon ends with status " + number);
}

// --- the other entries of the event log

// What tell_deed() tells, and what goes on all the time.
static const char *const UNTOLD[] = {"frame", "command", "ended", "role",   "reply", "answer", "notify",
                                     "file",  "log",     "end",   "thread", "truth", "served", "cycle"};

void tell_entry(const char *who, const std::string &text)
{
    const auto is_who = [who](const char *word) { return strcmp(who, word) == 0; };
    if (std::any_of(std::begin(UNTOLD), std::end(UNTOLD), is_who))
        return;
    if (is_who("world"))
        tell(words_of_event(text));
    else if (is_who("FAILED"))
        tell("FAILED: " + text);
    else if (!is_who("config") || text.compare(0, 22, "switch.wan.switch_port") != 0) // the role's move is told
        tell(std::string(who) + ": " + text);
}

} // namespace sim
