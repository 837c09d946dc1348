// SPDX-License-Identifier: MIT
// The configuration changes, is broken or locked for a time, and others move the WAN role.
#include <map>

#include "tests/simulation/event_log.h"
#include "tests/simulation/events.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/router.h"

namespace sim {

static std::map<std::string, int> locks;          // of a package
static std::map<std::string, std::string> broken; // its text before

bool configuration_is_well()
{
    return locks.empty() && broken.empty();
}

bool package_is_usable(const std::string &package)
{
    return locks.count(package) == 0 && broken.count(package) == 0;
}

static std::string path_of(const std::string &package)
{
    return "/etc/config/" + package;
}

static const char *draw_package(t_number number)
{
    static const char *const PACKAGES[] = {"network", "switch", "switch", "protocol"};
    return one_of(PACKAGES, number);
}

// --- another value

// The word is "package.section.option=value", with commas for spaces.
static void option(const t_event &event)
{
    const std::string &word = event.text;
    const size_t first = word.find('.'), second = word.find('.', first + 1), equals = word.find('=', second);
    if (equals == std::string::npos)
        fail("no option: %s", word.c_str());
    std::string value = word.substr(equals + 1);
    for (char &letter : value)
        letter = letter == ',' ? ' ' : letter;
    const std::string package = word.substr(0, first);
    if (broken.count(package) == 0)
        set_option(package, word.substr(first + 1, second - first - 1), word.substr(second + 1, equals - second - 1),
                   value);
}

static void draw_option(const t_life &life, t_event *event, t_number number)
{
    static const char *const TYPES[] = {"dhcp", "dhcp", "pppoe", "static", "static", "carrier-pigeon"};
    static const char *const RETRIES[] = {"10", "30", "60", "0", "never"};
    const std::string port = std::to_string(some_port(life, number));
    switch (number(7)) {
    case 0:
    case 1:
        event->text = std::string("network.wan.wan_type=") + one_of(TYPES, number);
        return;
    case 2:
        event->text = std::string("network.auto_wan_detect.retry_interval=") + one_of(RETRIES, number);
        return;
    case 3:
        event->text = "switch.gaming.switch_port=port" + port;
        return;
    case 4:
        event->text = std::string("switch.lan_agg.enable_agg=") + (one_in(2, number) ? "0" : "1");
        return;
    case 5:
        event->text = "switch.lan_agg.lacpports=" + port + "," + std::to_string(some_port(life, number));
        return;
    default:
        event->text = one_in(2, number) ? "network.wan.device=eth0.7" : "protocol.static.gateway=203.0.113.9";
        return;
    }
}

// --- locked, or broken

static void lock(const t_event &event)
{
    const std::string package = event.text;
    if (locks[package]++ == 0)
        lock_by_world(path_of(package), true);
    happen_at(now() + event.number * MILLISECOND, [package] {
        if (--locks[package] == 0) {
            locks.erase(package);
            lock_by_world(path_of(package), false);
        }
        note_truth();
    });
}

static void break_file(const t_event &event)
{
    const std::string package = event.text;
    if (broken.count(package))
        return;
    broken[package] = text_of_file(path_of(package));
    put_file(path_of(package), "config device\n\toption name 'eth0\n");
    happen_at(now() + event.number * MILLISECOND, [package] {
        put_file(path_of(package), broken[package]);
        broken.erase(package);
        note_truth();
    });
}

static void draw_trouble(const t_life &, t_event *event, t_number number)
{
    static const int64_t TIMES[] = {300, 1500, 5000, 20000, 60000};
    event->text = draw_package(number);
    event->number = one_of(TIMES, number);
}

// --- the role

// Somebody gives it to a port; without one, to an interface that is none of the daemon's, or to nobody.
static void role(const t_event &event)
{
    const bool is_there = is_port(event.port) && holder_of_role() == event.port;
    if (is_there || !package_is_usable("switch"))
        return;
    move_role(is_port(event.port) ? event.port : event.number ? FOREIGN_PORT : NO_PORT, false);
    rebuild_bridge();
}

static void draw_role(const t_life &life, t_event *event, t_number number)
{
    event->port = one_in(8, number) ? 0 : some_port(life, number);
    event->number = static_cast<int64_t>(number(2));
}

extern const t_event_kind option_kind, lock_kind, break_kind, role_kind;
const t_event_kind option_kind = {.name = "option", .happen = option, .draw = draw_option, .weight = 10};
const t_event_kind lock_kind = {
    .name = "lock", .happen = lock, .draw = draw_trouble, .weight = 4, .lasts_ms = lasts_its_number};
const t_event_kind break_kind = {
    .name = "break", .happen = break_file, .draw = draw_trouble, .weight = 2, .lasts_ms = lasts_its_number};
const t_event_kind role_kind = {.name = "role", .happen = role, .draw = draw_role, .weight = 9};

} // namespace sim
