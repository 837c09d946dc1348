// SPDX-License-Identifier: MIT
// Drawing a life from its seed, writing it to a file and reading it back.
#include "tests/simulation/life.h"

#include <cstdlib>
#include <sstream>

#include "tests/simulation/event_log.h"
#include "tests/simulation/events.h"
#include "tests/simulation/near.h"
#include "tests/simulation/scheduler.h"

namespace sim {

constexpr const char *MAGIC = "life 1";

int64_t t_life::setting(const std::string &name, int64_t otherwise) const
{
    const auto found = settings.find(name);
    return found == settings.end() ? otherwise : atoll(found->second.c_str());
}

// --- drawing

static uint64_t state_of_drawing;

static uint64_t number(uint64_t below)
{
    state_of_drawing = mix(state_of_drawing);
    return state_of_drawing % below;
}

std::string draw_switch_rate(t_number number)
{
    return std::to_string(uint64_t{1} << number(14));
}

static t_life draw_anew()
{
    using enum t_character;
    static const t_character CHARACTERS[] = {usual,   usual,   losses, losses,   losses,
                                             crowded, crowded, stormy, troubled, troubled};
    t_life life;
    const t_character character = one_of(CHARACTERS, number);
    draw_board(&life, character, number);
    life.settings[SWITCH_RATE] = draw_switch_rate(number);
    draw_events(&life, character, number);
    if (one_in(4, number))
        life.settings[HOTPLUG] = std::to_string(between(1, one_in(2, number) ? 100 : 1500, number));
    if (one_in(200, number))
        life.events = {{.kind = "end", .number = between(2, 60, number), .text = ""}}; // in the midst of the start
    return life;
}

t_life draw_life(uint64_t seed)
{
    constexpr uint64_t IS_NEAR = 3; // one in so many
    t_life life;
    state_of_drawing = seed;
    if (mix(~seed) % IS_NEAR == 0)
        draw_near(kept_life_for(seed), &life, number);
    else
        life = draw_anew();
    life.seed = seed;
    return life;
}

// --- writing and reading

std::string text_of_life(const t_life &life)
{
    std::ostringstream text;
    text << MAGIC << (life.near.empty() ? "" : "\n# near ") << life.near << "\nseed " << life.seed << "\nwan "
         << life.wan << "\nconnection " << life.connection << "\n";
    for (const t_port_plan &port : life.ports)
        text << "port " << port.behind << " " << port.link << " " << port.answers_after_ms
             << (port.behind_sfp.empty() ? "" : " ") << port.behind_sfp << "\n";
    text << "pool";
    for (int port : life.pool)
        text << " " << port;
    text << "\n";
    for (const auto &[key, value] : life.settings)
        text << "set " << key << " " << value << "\n";
    for (const t_event &event : life.events)
        text << "at " << event.at_ms << " " << event.kind << " " << event.port << " " << event.number << " "
             << (event.text.empty() ? "-" : event.text)
             << (event.step.empty() ? "" : " " + event.step + " " + std::to_string(event.after_ms)) << "\n";
    return text.str();
}

static bool read_event(std::istringstream &words, t_life *life)
{
    t_event event;
    words >> event.at_ms >> event.kind >> event.port >> event.number >> event.text;
    if (words.fail() || !event_kind(event.kind))
        return false;
    if (event.text == "-")
        event.text.clear();
    if (words >> event.step && !(words >> event.after_ms))
        return false;
    life->events.push_back(event);
    return true;
}

static bool read_line(const std::string &line, t_life *life)
{
    std::istringstream words(line);
    std::string first;
    words >> first;
    if (first.empty() || first[0] == '#' || line == MAGIC)
        return true;
    if (first == "seed")
        words >> life->seed;
    else if (first == "wan")
        words >> life->wan;
    else if (first == "connection")
        words >> life->connection;
    else if (first == "pool")
        for (int port; words >> port;)
            life->pool.push_back(port);
    else if (first == "port") {
        t_port_plan port;
        words >> port.behind >> port.link >> port.answers_after_ms >> port.behind_sfp;
        life->ports.push_back(port);
    } else if (first == "set") {
        std::string key, value;
        words >> key >> std::ws;
        std::getline(words, value);
        life->settings[key] = value;
    } else
        return first == "at" && read_event(words, life);
    return true;
}

bool read_life(const std::string &text, t_life *life)
{
    *life = {};
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!read_line(line, life)) {
            say("no line of a life: %s\n", line.c_str());
            return false;
        }
    return !life->ports.empty();
}

} // namespace sim
