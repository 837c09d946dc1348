// SPDX-License-Identifier: MIT
// The words of a timeline: what the world's events and the router's commands are called, and the panel of its ports.
#include "tests/simulation/timeline.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "tests/simulation/event_log.h"
#include "tests/simulation/world.h"

namespace sim {

// --- events

// {port}, {number}, {text}, and {seconds} for a number of milliseconds are filled in. An event that is not named here
// is told as its life has it.
static const struct {
    const char *kind;
    const char *words;
} EVENT_WORDS[] = {
    {"unplug", "the cable of {port} is pulled out"},
    {"plug", "the cable of {port} now leads to: {text}"},
    {"move", "the cable of {port} goes to port {number}"},
    {"flap", "the link of {port} goes and comes {number} times, {text} ms each"},
    {"host", "hosts come behind {port}: {text}"},
    {"dies", "who is behind {port} falls silent"},
    {"returns", "who is behind {port} speaks again"},
    {"slowness", "who is behind {port} answers after {seconds} s from now on"},
    {"ban", "the bus event bans {port} for {number} s {text}"},
    {"role", "somebody else gives away the WAN role: {port} {text}"},
    {"option", "somebody changes the configuration: {text}"},
    {"lock", "somebody keeps the configuration locked for {seconds} s: {text}"},
    {"break", "the configuration is broken for {seconds} s: {text}"},
    {"command", "commands go wrong for {seconds} s: {text}"},
    {"hang", "commands go wrong for {seconds} s: {text}"},
    {"manager", "the network manager changes for {seconds} s: {text}"},
    {"bus_dies", "the bus daemon is away for {seconds} s"},
    {"bus_hangs", "the bus daemon hangs for {seconds} s"},
    {"bus_refuses", "somebody else offers the object {text} on the bus for {seconds} s"},
    {"bus_deaf", "the bus daemon takes nothing for {seconds} s"},
    {"memory", "{number} allocations are refused, after {text} more"},
    {"descriptors", "{text} descriptors must do for {seconds} s"},
    {"threads", "no thread can be started for {seconds} s"},
    {"disk", "the disk is full for {seconds} s"},
    {"jump", "the wall clock jumps by {number} s"},
    {"hang_up", "SIGHUP is sent"},
    {"set", "somebody switches detection, to {number} {text}"},
    {"detect", "somebody asks for a cycle in {number} s {text}"},
    {"ask", "somebody asks who serves {port}: {text}, {seconds} s"},
    {"hotplug", "the bus says the link of {port} is {number} {text}"},
    {"log", "somebody sets the log level to {number} {text}"},
    {"state", "somebody asks for {text} {port}"},
    {"subscribe", "somebody subscribes (1) or leaves (0): {number}"},
    {"end", "the daemon is told to end"},
};

static void fill_in(std::string *words, const std::string &place, const std::string &value)
{
    if (const size_t at = words->find(place); at != std::string::npos)
        words->replace(at, place.size(), value);
}

static std::string in_seconds(const std::string &milliseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%g", strtod(milliseconds.c_str(), nullptr) / 1000);
    return text;
}

// "plug port 3 number 0 dhcp", as the event log has it.
std::string words_of_event(const std::string &entry)
{
    std::istringstream in(entry);
    std::string kind, port_word, number_word, number, text;
    int port = 0;
    if (!(in >> kind >> port_word >> port >> number_word >> number) || port_word != "port" || number_word != "number")
        return entry;
    std::getline(in >> std::ws, text);
    const std::string name = port >= 1 && static_cast<size_t>(port) <= world.ports.size() ? port_at(port).name : "";
    for (const auto &known : EVENT_WORDS)
        if (kind == known.kind) {
            std::string words = known.words;
            fill_in(&words, "{port}", name);
            fill_in(&words, "{number}", number);
            fill_in(&words, "{seconds}", in_seconds(number));
            fill_in(&words, "{text}", text);
            return words;
        }
    return kind + (name.empty() ? "" : " " + name) + (number == "0" ? "" : " " + number) +
           (text.empty() ? "" : " " + text);
}

// --- commands

bool is_asked_all_the_time(const std::string &command)
{
    return command.find("get_all_port_state") != std::string::npos ||
           command.find("get_combo_state") != std::string::npos;
}

std::string words_of_command(const std::string &command)
{
    if (command.find("network_lanwan_swap") != std::string::npos)
        return "swap: " + command;
    if (command.find("wanlan_port_reload") != std::string::npos)
        return "the ports are set up anew: " + command;
    return "command: " + command;
}

// --- the panel

constexpr size_t CELL = 14;
constexpr size_t MOST_IN_A_ROW = 5;

static std::string repeated(const char *piece, size_t count)
{
    std::string text;
    while (count-- > 0)
        text += piece;
    return text;
}

// `width` is what the text takes on the screen, which is less than its bytes for other than Latin letters.
static std::string centred(const std::string &text, size_t width)
{
    const size_t space = CELL > width ? CELL - width : 0;
    return std::string(space / 2, ' ') + text + std::string(space - space / 2, ' ');
}

static std::string centred(const std::string &text)
{
    return centred(text.substr(0, CELL), std::min(text.size(), CELL));
}

template <typename t_cell> static void draw_row(size_t from, size_t to, const char *edge, t_cell cell)
{
    std::string line = std::string("  ") + edge;
    for (size_t i = from; i < to; i++)
        line += cell(world.ports[i]) + edge;
    line.erase(line.find_last_not_of(' ') + 1);
    say("%s\n", line.c_str());
}

// What its cables lead to, where the panel shows less.
static void tell_what_has_no_room(const t_port &port)
{
    if (port.cable().word.size() > CELL)
        say("  %s: %s\n", port.name.c_str(), port.cable().word.c_str());
    const t_side other = port.side == PHY ? SFP : PHY;
    if (port.is_combo && port.cables[other].word != "nothing")
        say("  %s, its %s side: %s\n", port.name.c_str(), other == PHY ? "copper" : "fibre",
            port.cables[other].word.c_str());
}

static void draw_ports(size_t from, size_t to)
{
    const int holder = world.swaps == 0 && now() == 0 ? world.life.wan : holder_of_role();
    const auto is_plugged = [](const t_port &port) { return port.cable().word != "nothing"; };
    std::string above = "  ┌", below = "  └";
    for (size_t i = from; i < to; i++) {
        above += repeated("─", CELL) + (i + 1 < to ? "┬" : "┐");
        below += repeated("─", CELL / 2) + (is_plugged(world.ports[i]) ? "┬" : "─") + repeated("─", CELL / 2 - 1) +
                 (i + 1 < to ? "┴" : "┘");
    }
    say("%s\n", above.c_str());
    draw_row(from, to, "│", [](const t_port &port) { return centred(port.name); });
    draw_row(from, to, "│", [=](const t_port &port) { return centred(port.number == holder ? "WAN" : "LAN"); });
    draw_row(from, to, "│",
             [](const t_port &port) { return port.link ? centred("● link", 6) : centred("○ no link", 9); });
    say("%s\n", below.c_str());
    draw_row(from, to, " ", [=](const t_port &port) { return centred(is_plugged(port) ? port.cable().word : ""); });
    for (size_t i = from; i < to; i++)
        tell_what_has_no_room(world.ports[i]);
}

void draw_panel()
{
    const size_t count = world.ports.size();
    const size_t rows = (count + MOST_IN_A_ROW - 1) / MOST_IN_A_ROW;
    say("\n");
    for (size_t row = 0; row < rows; row++)
        draw_ports(count * row / rows, count * (row + 1) / rows);
    say("\n");
}

} // namespace sim
