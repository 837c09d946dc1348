// SPDX-License-Identifier: MIT
// The router's commands, its network manager, the bus and the machine itself do not do what they should for a time.
#include <algorithm>
#include <csignal>

#include "tests/simulation/bus.h"
#include "tests/simulation/events.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/router.h"
#include "tests/simulation/signals.h"

namespace sim {

constexpr unsigned USUAL_DESCRIPTORS = 1024;

bool threads_are_refused = false;

bool machine_is_well()
{
    return !threads_are_refused && world.descriptor_limit == USUAL_DESCRIPTORS && !disk_is_full &&
           !memory_will_be_refused();
}

static int64_t draw_time(t_number number)
{
    static const int64_t TIMES[] = {500, 3000, 10'000, 30'000, 60'000, 90'000};
    return one_of(TIMES, number);
}

static void until(t_time end, void (*what)())
{
    happen_at(end, [what] {
        what();
        note_truth();
    });
}

// --- commands: the word is "command:fault"

static void command(const t_event &event)
{
    const size_t colon = event.text.find(':');
    begin_command_fault(event.text.substr(0, colon), event.text.substr(colon + 1), event.number * MILLISECOND);
}

// What a command that went wrong takes along: the fault may end before it does.
static int64_t command_lasts(const t_event &event)
{
    constexpr int64_t SLOW_ONES_MS = 10'000;
    return event.number + SLOW_ONES_MS;
}

static int64_t hang_lasts(const t_event &event)
{
    constexpr int64_t HANGING_ONES_MS = 62'000;
    return event.number + HANGING_ONES_MS;
}

static void draw_command_with(const t_life &life, const char *fault, t_event *event, t_number number)
{
    static const char *const NAMES[] = {"swap",  "swap",   "swap",   "port_state", "port_state",
                                        "combo", "online", "reload", "all"};
    const bool tests_online = life.connection == "static" && one_in(3, number);
    event->text = std::string(tests_online ? "online" : one_of(NAMES, number)) + ":" + fault;
    event->number = draw_time(number);
}

static void draw_command(const t_life &life, t_event *event, t_number number)
{
    static const char *const FAULTS[] = {"slow",   "slow", "fails",   "fails",       "half",
                                         "killed", "lies", "garbage", "acts_killed", "odd"};
    draw_command_with(life, one_of(FAULTS, number), event, number);
}

static void draw_hang(const t_life &life, t_event *event, t_number number)
{
    static const char *const FAULTS[] = {"hangs", "hangs", "acts_hangs", "deaf", "missing"};
    draw_command_with(life, one_of(FAULTS, number), event, number);
}

// --- the network manager: the word says how it is until the time is over

static void manager(const t_event &event)
{
    set_manager(event.text);
    until(now() + event.number * MILLISECOND, [] { set_manager("honest"); });
}

static void draw_manager(const t_life &, t_event *event, t_number number)
{
    static const char *const WORDS[] = {"flags",   "away",    "away",       "hangs", "says_yes",
                                        "says_no", "says_no", "connecting", "empty", "refuses"};
    event->text = one_of(WORDS, number);
    event->number = draw_time(number);
}

// --- the bus

static void bus_is_away(const t_event &event)
{
    bus_dies();
    until(now() + event.number * MILLISECOND, bus_returns);
}

static void bus_hangs(const t_event &event)
{
    bus.hangs = true;
    until(now() + event.number * MILLISECOND, [] { bus.hangs = false; });
}

static void bus_is_deaf(const t_event &event)
{
    bus.is_deaf = true;
    until(now() + event.number * MILLISECOND, [] { bus.is_deaf = false; });
}

// Somebody else offers the object that the word names until he goes; he was faster when the bus daemon started anew.
static void bus_refuses(const t_event &event)
{
    constexpr t_time TO_START = 300 * MILLISECOND;
    bus.refused = event.text;
    if (calls_can_be_made()) {
        bus_dies();
        until(now() + std::min(TO_START, event.number * MILLISECOND), bus_returns);
    }
    until(now() + event.number * MILLISECOND, [] { bus.refused.clear(); });
}

static void draw_refused(const t_life &, t_event *event, t_number number)
{
    event->text = one_in(2, number) ? "wan_detect" : "wan_detect.state";
    event->number = draw_time(number);
}

static void draw_for_a_time(const t_life &, t_event *event, t_number number)
{
    event->number = draw_time(number);
}

// --- the machine

// So many more than are open now are left.
static void descriptors(const t_event &event)
{
    world.descriptor_limit = static_cast<unsigned>(atoi(event.text.c_str()));
    until(now() + event.number * MILLISECOND, [] { world.descriptor_limit = USUAL_DESCRIPTORS; });
}

static void draw_descriptors(const t_life &, t_event *event, t_number number)
{
    event->text = std::to_string(between(8, 24, number));
    event->number = draw_time(number);
}

static void disk(const t_event &event)
{
    disk_is_full = true;
    until(now() + event.number * MILLISECOND, [] { disk_is_full = false; });
}

static void threads(const t_event &event)
{
    threads_are_refused = true;
    until(now() + event.number * MILLISECOND, [] { threads_are_refused = false; });
}

// So many allocations are refused in a row, after as many as the word says; those that nobody asked for are granted
// later.
constexpr t_time MEMORY_IS_SHORT_FOR = 20 * SECOND;

static void memory(const t_event &event)
{
    refuse_memory(static_cast<uint64_t>(atoll(event.text.c_str())), static_cast<uint64_t>(event.number));
    until(now() + MEMORY_IS_SHORT_FOR, [] { refuse_memory(0, 0); });
}

static void draw_memory(const t_life &, t_event *event, t_number number)
{
    event->number = one_in(2, number) ? 1 : between(2, 40, number);
    event->text = std::to_string(number(one_in(2, number) ? 40 : 1000));
}

static int64_t memory_lasts(const t_event &)
{
    return MEMORY_IS_SHORT_FOR / MILLISECOND;
}

// The wall clock jumps by so many seconds.
static void jump(const t_event &event)
{
    world.wall_clock_ahead += event.number * SECOND;
}

static void draw_jump(const t_life &, t_event *event, t_number number)
{
    static const int64_t JUMPS[] = {-86'400, -30, 1, 3600, 1'000'000'000, -1'500'000'000};
    event->number = one_of(JUMPS, number);
}

static void hang_up(const t_event &)
{
    send_signal(SIGHUP);
}

// Somebody who read what the daemon wrote is gone.
static void reader_goes(const t_event &)
{
    send_signal(SIGPIPE);
}

static void draw_nothing(const t_life &, t_event *, t_number) {}

extern const t_event_kind command_kind, hang_kind, manager_kind, bus_dies_kind, bus_hangs_kind, bus_deaf_kind,
    bus_refuses_kind, memory_kind, descriptors_kind, threads_kind, disk_kind, jump_kind, hang_up_kind, pipe_kind;
const t_event_kind command_kind = {
    .name = "command", .happen = command, .draw = draw_command, .weight = 9, .lasts_ms = command_lasts};
const t_event_kind hang_kind = {
    .name = "hang", .happen = command, .draw = draw_hang, .weight = 60, .is_rare = true, .lasts_ms = hang_lasts};
const t_event_kind manager_kind = {
    .name = "manager", .happen = manager, .draw = draw_manager, .weight = 9, .lasts_ms = lasts_its_number};
const t_event_kind bus_dies_kind = {.name = "bus_dies",
                                    .happen = bus_is_away,
                                    .draw = draw_for_a_time,
                                    .weight = 60,
                                    .is_rare = true,
                                    .lasts_ms = lasts_its_number};
const t_event_kind bus_hangs_kind = {.name = "bus_hangs",
                                     .happen = bus_hangs,
                                     .draw = draw_for_a_time,
                                     .weight = 25,
                                     .is_rare = true,
                                     .lasts_ms = lasts_its_number};
const t_event_kind bus_deaf_kind = {.name = "bus_deaf",
                                    .happen = bus_is_deaf,
                                    .draw = draw_for_a_time,
                                    .weight = 20,
                                    .is_rare = true,
                                    .lasts_ms = lasts_its_number};
const t_event_kind bus_refuses_kind = {.name = "bus_refuses",
                                       .happen = bus_refuses,
                                       .draw = draw_refused,
                                       .weight = 20,
                                       .is_rare = true,
                                       .lasts_ms = lasts_its_number};
const t_event_kind threads_kind = {.name = "threads",
                                   .happen = threads,
                                   .draw = draw_for_a_time,
                                   .weight = 15,
                                   .is_rare = true,
                                   .lasts_ms = lasts_its_number};
const t_event_kind descriptors_kind = {.name = "descriptors",
                                       .happen = descriptors,
                                       .draw = draw_descriptors,
                                       .weight = 25,
                                       .is_rare = true,
                                       .lasts_ms = lasts_its_number};
const t_event_kind memory_kind = {
    .name = "memory", .happen = memory, .draw = draw_memory, .weight = 60, .is_rare = true, .lasts_ms = memory_lasts};
const t_event_kind disk_kind = {.name = "disk",
                                .happen = disk,
                                .draw = draw_for_a_time,
                                .weight = 25,
                                .is_rare = true,
                                .lasts_ms = lasts_its_number};
const t_event_kind jump_kind = {.name = "jump", .happen = jump, .draw = draw_jump, .weight = 3};
const t_event_kind hang_up_kind = {.name = "hang_up", .happen = hang_up, .draw = draw_nothing, .weight = 3};
const t_event_kind pipe_kind = {.name = "pipe", .happen = reader_goes, .draw = draw_nothing, .weight = 1};

} // namespace sim
