// SPDX-License-Identifier: MIT
// Answers: every call gets exactly one reply, with the code that docs/bus.md names for it; a request that got 0 ends
// with its result file, in time and right for the world as it was.
#include <algorithm>
#include <cstring>
#include <sstream>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/stuck.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr const char *RESULT = "/tmp/protocol_detect_result";
constexpr const char *CYCLE_RESULT = "/tmp/wan_detect_result";
constexpr int BUSY = -85, NOT_THERE = -96, MISSING = -99, OUT_OF_RANGE = -1;
constexpr int64_t LEAST_TIMEOUT_MS = 1000, MOST_TIMEOUT_MS = 4000, USUAL_TIMEOUT_MS = 2000, MOST_DELAY_S = 60;
constexpr int64_t COLLECTED_EVERY_MS = 500;
constexpr size_t PROBING = 3; // the number of that state
// Where there are 16 the reading of the order ends.
constexpr size_t MOST_PORTS_WITH_ORDER = 15;
// From the call to the question: links are read, LAN hosts are asked, both while the loop is blocked; and to the file.
constexpr t_time ACROSS_STEPS = SECOND;
// From the swap's command to the cycle's result.
constexpr t_time READ_AGAIN = 100 * MILLISECOND;
// A call reads links, asks LAN hosts and reads configuration that may be locked, before its reply.
constexpr t_time LONGEST_CALL = 62 * SECOND;

namespace {

struct t_promise {
    bool is_open = false;
    t_request request;
    t_time blocked = 0; // the loop's time, when it was made
    t_time since = 0;
    std::string right; // the result if nobody begins to serve meanwhile; empty when it may be several
};

t_promise promise;

t_request *request_with(int64_t number)
{
    for (auto one = world.requests.rbegin(); one != world.requests.rend(); ++one)
        if (one->number == number)
            return &*one;
    return nullptr;
}

int64_t timeout_of(const t_request &request)
{
    const bool fits = request.value >= LEAST_TIMEOUT_MS && request.value <= MOST_TIMEOUT_MS;
    return fits ? request.value : USUAL_TIMEOUT_MS;
}

} // namespace

// --- replies

// 0 for "any code", where the arguments are not what they should be, or the code depends on what nobody sees.
static bool is_right_code(const t_request &request)
{
    if (request.is_odd)
        return true;
    if (request.method == "wan_detect")
        return request.code == (request.value < 0 || request.value > MOST_DELAY_S ? OUT_OF_RANGE : 0);
    if (request.method == "proto_detect")
        return request.code == 0 || request.code == BUSY;
    if (request.method == "hotplug" && request.device.empty())
        return request.code == MISSING;
    if (request.method == "hotplug")
        return request.code == (port_named(request.device) ? 0 : NOT_THERE) ||
               loop_began() == NEVER; // the ports may not be read yet
    return request.method != "set" || request.code == 0;
}

static void look_at_reply(const t_request &request)
{
    const long number = static_cast<long>(request.number);
    if (request.object != "wan_detect")
        return;
    if (request.replies != (request.status == 0 ? 1U : 0U) && world.health.all())
        fail("answers: call %ld (%s) ended with status %d and %u replies", number, request.method.c_str(),
             request.status, request.replies);
    if (request.has_code && !is_right_code(request))
        fail("answers: call %ld (%s %ld) got the code %d", number, request.method.c_str(),
             static_cast<long>(request.value), request.code);
}

// --- the promise of a request

static std::string right_result();

static void make_promise(const t_request &request)
{
    if (promise.is_open && loop_began() != NEVER)
        fail("answers: call %ld is taken while call %ld has no result", static_cast<long>(request.number),
             static_cast<long>(promise.request.number));
    promise = {true, request, time_loop_was_blocked(), now(), ""};
    promise.right = right_result();
    if (files.count(RESULT))
        fail("answers: call %ld is taken, and the former result is still there", static_cast<long>(request.number));
}

static void look_for_late_result()
{
    if (!promise.is_open)
        return;
    if (world.told_to_end != NEVER || !world.health.machine) {
        promise.is_open = false; // a file that cannot be written is told of in the log only
        return;
    }
    if (loop_began() == NEVER)
        promise.since = now(); // requests begin when start-up is over
    const t_time most = (timeout_of(promise.request) + COLLECTED_EVERY_MS) * MILLISECOND + ACROSS_STEPS +
                        time_loop_was_blocked() - promise.blocked;
    if (now() - promise.since > most)
        fail("answers: call %ld got 0 and has no result after %ld ms", static_cast<long>(promise.request.number),
             static_cast<long>((now() - promise.since) / MILLISECOND));
}

// --- is it right?

// How surely a protocol is found at a port by one question.
static t_found found_at(const t_port &port, const char *protocol)
{
    t_found best = t_found::never;
    if (!port.link)
        return best;
    for (const t_neighbour &who : port.cable().neighbours)
        if (!who.is_dead && who.kind->found)
            best = std::min(best, who.kind->found(who, protocol));
    return best;
}

// The word that the result must be; empty when it may be several.
static std::string protocol_behind(const t_port &port, const std::string &wanted)
{
    if (port.truth.found == t_found::doubtful)
        return "";
    for (const char *protocol : {"pppoe", "dhcp"}) { // by proto_priority
        if ((wanted == "dhcp" || wanted == "pppoe") && wanted != protocol)
            continue;
        const t_found one = found_at(port, protocol);
        if (one != t_found::at_once && one != t_found::never)
            return "";
        if (one == t_found::at_once)
            return protocol;
    }
    return "static";
}

static bool was_steady(const t_port &port)
{
    const t_time told = port.hotplugged == NEVER ? 0 : port.hotplugged; // of its link, rightly or not
    return port.truth_since < promise.request.served &&
           std::max(port.link_since, told) < promise.request.served - 2 * SECOND;
}

static std::string right_result_of_all()
{
    if (world.ports.size() > MOST_PORTS_WITH_ORDER)
        return "static"; // who has no place in the order is asked, and not told
    std::istringstream order(option_of("network", "auto_wan_detect", "wan_port_priority"));
    for (int number; order >> number;) {
        if (!is_port(number))
            continue;
        const t_port &port = port_at(number);
        if (!was_steady(port) || port.is_reserved || port.truth.lan_hosts > 0)
            return "";
        const std::string one = protocol_behind(port, promise.request.protocol);
        if (one != "static")
            return one;
    }
    return "static";
}

static std::string right_result()
{
    const int number = port_named(promise.request.device);
    if (number == 0)
        return right_result_of_all();
    const t_port &port = port_at(number);
    return was_steady(port) ? protocol_behind(port, promise.request.protocol) : "";
}

static t_time stage_began = 0; // of a cycle

static void look_at_result()
{
    const std::string text = text_of_file(RESULT);
    if (text != "dhcp" && text != "pppoe" && text != "static")
        fail("answers: the result is \"%s\"", text.c_str());
    if (!promise.is_open && text != "static" && last_answered(text == "dhcp" ? BY_DHCP : BY_PPPOE) < stage_began)
        fail("answers: the result of a cycle's stage is %s, and nobody has answered so since it began", text.c_str());
    if (!promise.is_open)
        return;
    promise.is_open = false;
    const bool is_well = world.health.all() && world.health_since < promise.request.served - 45 * SECOND;
    if (promise.request.is_odd || !is_well || !world.detection_on || !world.is_router || loop_began() == NEVER ||
        promise.request.served < loop_began() || timeout_of(promise.request) < USUAL_TIMEOUT_MS)
        return;
    const std::string right = right_result();
    if (!right.empty() && right == promise.right && text != right)
        fail("answers: call %ld asked on %s for %s, and the result is %s instead of %s",
             static_cast<long>(promise.request.number), promise.request.device.c_str(),
             promise.request.protocol.c_str(), text.c_str(), right.c_str());
}

// What a cycle ended with is the port that has the role then.
static void look_at_cycle_result()
{
    const std::string text = text_of_file(CYCLE_RESULT);
    const bool is_moving = world.role_mover == t_mover::somebody && now() - world.role_since < SECOND;
    // A swap reads the role again, for which memory may have been refused just now.
    const bool is_read = world.health.configuration && world.health.machine && now() - world.health_since > READ_AGAIN;
    if (is_port(world.role_holder) && !is_moving && is_read && text != port_at(world.role_holder).name)
        fail("answers: the cycle ended with %s, and %s has the role", text.c_str(),
             port_at(world.role_holder).name.c_str());
}

// --- calls that nobody answers

static void look_for_unanswered(t_time at)
{
    for (const t_request &request : world.requests)
        if (request.served != NEVER && request.over == NEVER && !request.is_lost && request.method != "ban" &&
            world.health.bus && world.health_since < request.sent && at - request.served > LONGEST_CALL)
            fail("answers: call %ld (%s) was taken and got no reply", static_cast<long>(request.number),
                 request.method.c_str());
}

// Also during the start calls are taken at once, but for what blocks the loop.
static void look_for_untaken()
{
    constexpr t_time TAKEN_WITHIN = 10 * SECOND;
    static size_t open = 0; // the first that was not taken yet
    static t_time since = 0, blocked = 0;
    const auto is_over = [](const t_request &one) { return one.served != NEVER || one.over != NEVER || one.is_lost; };
    const size_t before = open;
    while (open < world.requests.size() && is_over(world.requests[open]))
        open++;
    // The loop rests for the first time behind the cycle of the start.
    const bool is_first_turn = loop_began() == NEVER && world.cycles > 0;
    if (open == world.requests.size() || open != before || !world.health.all() || world.told_to_end != NEVER ||
        is_first_turn) {
        since = now();
        blocked = time_loop_was_blocked();
        return;
    }
    const t_time most = TAKEN_WITHIN + (loop_began() == NEVER ? 0 : time_loop_was_blocked() - blocked);
    const t_time waited = now() - std::max({since, world.requests[open].sent, world.health_since});
    if (waited > most)
        fail("answers: call %ld (%s) was not taken for %ld ms", static_cast<long>(world.requests[open].number),
             world.requests[open].method.c_str(), static_cast<long>(waited / MILLISECOND));
}

// Whoever is not on the bus comes back to it once a second, and may call and register for a second.
static void look_whether_offered()
{
    constexpr t_time COMES_BACK = 5 * SECOND;
    static t_time since = 0, blocked = 0;
    const bool is_free = world.told_to_end != NEVER || loop_began() == NEVER || !world.health.bus ||
                         !world.health.machine || daemon_is_offered();
    if (is_free) {
        since = now();
        blocked = time_loop_was_blocked();
    } else if (now() - since > COMES_BACK + time_loop_was_blocked() - blocked) {
        fail("answers: the bus is there for %ld ms, and the daemon is not on it with its object and its event",
             static_cast<long>((now() - since) / MILLISECOND));
    }
}

static void look_at_deed(const t_seen &seen)
{
    if (seen.deed == t_deed::file_written && strcmp(seen.text, RESULT) == 0)
        return look_at_result();
    if (seen.deed == t_deed::file_written && strcmp(seen.text, CYCLE_RESULT) == 0)
        return look_at_cycle_result();
    if (seen.deed == t_deed::way_taken && static_cast<size_t>(seen.number) % STATES == PROBING)
        stage_began = now();
    if (seen.deed != t_deed::bus_call_over)
        return;
    t_request *request = request_with(seen.number);
    if (!request)
        return;
    look_at_reply(*request);
    if (request->method == "proto_detect" && request->has_code && request->code == 0)
        make_promise(*request);
}

static void look_at_rest_of_calls()
{
    look_for_late_result();
    look_for_untaken();
    look_whether_offered();
    if (world.told_to_end == NEVER)
        look_for_unanswered(now());
}

extern const t_check answers;
const t_check answers = {.name = "answers", .on_deed = look_at_deed, .at_rest = look_at_rest_of_calls};

} // namespace sim
