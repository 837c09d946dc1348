// SPDX-License-Identifier: MIT
// A daemon that does what it must not, played by the world in its name: for the lives in can_fail/, each of which must
// make one check fail. Never drawn.
#include <cstring>
#include <deque>
#include <memory>

#include "tests/simulation/bus_connection.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/told.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *RESULT = "/tmp/protocol_detect_result";

// "swap": the command is started for this port, whatever holds of it.
static void swap(const t_event &event)
{
    const std::string command = "network_lanwan_swap set port" + std::to_string(event.port);
    saw({.deed = t_deed::command_started, .text = command.c_str()});
    saw({.deed = t_deed::command_ended, .text = command.c_str()});
}

// "sides": the same for one side of a combo port, by another thread than the loop's.
static void *switch_sides_of(void *port)
{
    const std::string command = "network_lanwan_swap set port" + std::to_string(*static_cast<int *>(port)) + " sfp";
    saw({.deed = t_deed::command_started, .text = command.c_str()});
    return nullptr;
}

static void switch_sides(const t_event &event)
{
    static int port;
    pthread_t thread;
    port = event.port;
    start_thread(&thread, nullptr, switch_sides_of, &port);
}

// "run": a script that is asked for the sides of a combo port, and never let go.
static void run(const t_event &)
{
    saw({.deed = t_deed::command_started, .text = "/etc/wan_detect/get_combo_state.sh"});
}

// "ask": so many questions at once.
static void ask(const t_event &event)
{
    for (int64_t i = 0; i < event.number; i++)
        saw({.deed = t_deed::frame_sent, .port = event.port, .text = "dhcp"});
}

// "spin", "table", "mutex": the thread with this number keeps such a lock.
static void hold(const t_event &event)
{
    t_thread *thread = thread_at(event.port);
    thread->spins_held += event.text == "spin";
    thread->tables_held += event.text == "table";
    thread->locks_held += event.text != "spin";
}

// "sleep": the thread with this number hears nothing for so many milliseconds.
static void sleep(const t_event &event)
{
    t_thread *thread = thread_at(event.port);
    thread->wait = {.deadline = now() + event.number * MILLISECOND, .what = "a lie"};
}

// "deaf": whoever is behind this port would answer, and is never heard.
static void deafen(const t_event &event)
{
    static std::deque<t_neighbour_kind> mute;
    for (t_neighbour &who : port_at(event.port).cable().neighbours) {
        mute.push_back(*who.kind);
        mute.back().hears = nullptr;
        who.kind = &mute.back();
    }
}

static t_request &make_request(const char *method, int64_t value)
{
    t_request request = {};
    request.number = 1'000'000 + static_cast<int64_t>(world.requests.size());
    request.object = "wan_detect";
    request.method = method;
    request.value = value;
    request.sent = request.served = now();
    world.requests.push_back(request);
    return world.requests.back();
}

static void answer(t_request &request, unsigned replies)
{
    request.over = now();
    request.status = 0;
    request.has_code = true;
    request.replies = replies;
    saw({.deed = t_deed::bus_call_over, .number = request.number, .text = request.method.c_str()});
}

// "unanswered", "code", "twice", "promise": a call without an answer, with a wrong code, with two replies, and one that
// got 0 and no result.
static void reply(const t_event &event)
{
    remove_file(RESULT);
    if (event.text == "unanswered")
        make_request("log", 2);
    else if (event.text == "code")
        answer(make_request("wan_detect", 61), 1);
    else
        answer(make_request(event.text == "twice" ? "log" : "proto_detect", 2000), event.text == "twice" ? 2 : 1);
}

// "untaken": a call that nobody takes.
static void leave_call(const t_event &)
{
    make_request("log", 2).served = NEVER;
}

// "withdraw": nobody hears the events of the bus any more.
static void withdraw(const t_event &)
{
    connection->patterns.clear();
}

// "way": of a cycle, as t_deed::way_taken has it.
static void take_way(const t_event &event)
{
    saw({.deed = t_deed::way_taken, .number = event.number, .text = "a lie"});
}

// "keep": it opens a socket, and closes it never.
static void keep_socket(const t_event &)
{
    struct t_socket : t_description {
        short readiness() const override { return 0; }
        const char *kind() const override { return "socket"; }
    };
    install_descriptor(std::make_shared<t_socket>());
}

// "exit": it ends by itself, with this status.
static void end_by_itself(const t_event &event)
{
    saw({.deed = t_deed::life_ended, .number = event.number});
    look_at_end();
}

// "line": something is told, by whoever holds what.
static void tell(const t_event &)
{
    self().spins_held++;
    saw({.deed = t_deed::log_line, .text = "a lie"});
}

static void *stay(void *)
{
    wait_for({.what = "a lie"});
    return nullptr;
}

// "threads": so many more.
static void start_threads(const t_event &event)
{
    for (int64_t i = 0; i < event.number; i++) {
        pthread_t handle;
        start_thread(&handle, nullptr, stay, nullptr);
    }
}

// "result": another word than the right one, as soon as there is one.
static void write_result(const t_event &event)
{
    put_file(RESULT, event.number ? "dhcp" : "nothing");
    saw({.deed = t_deed::file_written, .text = RESULT});
}

static void lie(const t_event &event)
{
    static constexpr struct {
        const char *word;
        void (*tell)(const t_event &event);
    } LIES[] = {{"swap", swap},
                {"run", run},
                {"ask", ask},
                {"spin", hold},
                {"table", hold},
                {"mutex", hold},
                {"sleep", sleep},
                {"deaf", deafen},
                {"unanswered", reply},
                {"code", reply},
                {"twice", reply},
                {"promise", reply},
                {"result", write_result},
                {"untaken", leave_call},
                {"withdraw", withdraw},
                {"way", take_way},
                {"line", tell},
                {"keep", keep_socket},
                {"exit", end_by_itself},
                {"threads", start_threads},
                {"sides", switch_sides}};
    for (const auto &[word, tell] : LIES)
        if (event.text == word)
            return tell(event);
    const size_t equals = event.text.find('=');
    if (equals == std::string::npos)
        fail("nobody lies so: %s", event.text.c_str());
    tell_instead(event.text.substr(0, equals), event.text.substr(equals + 1));
}

extern const t_event_kind lie_kind;
const t_event_kind lie_kind = {.name = "lie", .happen = lie};

} // namespace sim
